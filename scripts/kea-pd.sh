# Sourced by the demo, the delegation test and its benchmark: the configuration of an upstream
# Kea that delegates one /56, its whole pool, to the device. Its sockets are retried while the
# link-local address is still in duplicate address detection, and it keeps no state on disk.
# kea_pd_config IFACE SUBNET PREFIX RENEW REBIND PREFERRED VALID: prints it.
kea_pd_config() {
    cat <<EOF2
{ "Dhcp6": { "interfaces-config": { "interfaces": [ "$1" ],
    "service-sockets-max-retries": 20, "service-sockets-retry-wait-time": 200 },
  "lease-database": { "type": "memfile", "persist": false }, "server-id": { "type": "LL", "persist": false },
  "renew-timer": $4, "rebind-timer": $5, "preferred-lifetime": $6, "valid-lifetime": $7,
  "subnet6": [ { "id": 1, "subnet": "$2", "interface": "$1",
    "pd-pools": [ { "prefix": "$3", "prefix-len": 56, "delegated-len": 56 } ] } ] } }
EOF2
}
