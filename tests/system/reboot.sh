#!/bin/bash
# After a reboot: a device set up through the product (two uplinks with records and multi-gateway,
# a rule of our own, static routes, a native IPv6 router whose delegated prefix feeds two
# consumers) is made again from its files alone. A fresh network namespace over the same /etc
# gets its links as the network manager would make them, then tarnnetd and the boot path; rules,
# routes and addresses equal the first namespace's, the kernel's own routes and link-local
# addresses aside, and a second run of the boot path changes nothing.
set -eu
exec 4<"$4" 5<"$(dirname "$0")/../../packaging/tarn-restore"
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
command -v jq >/dev/null || skip "no jq"
RESTORE=/tmp/bin/tarn-restore
cp /proc/self/fd/5 $RESTORE && cp /proc/self/fd/4 /tmp/bin/restore-tables && chmod 755 $RESTORE /tmp/bin/restore-tables
exec 4<&- 5<&-
export PATH=/tmp/bin:$PATH
bus_start
device_ifconfig
dev() { ip netns exec "$NS" "$@"; }

# boot NAME: a fresh device namespace with the links, their addresses, and a route and a rule of
# another owner in our band.
boot() {
    NS=$1
    ip netns add "$NS"
    local n
    for n in wan1 wan2 lbr0 gbr0; do dev ip link add "$n" up type veth peer name "${n}p" && dev ip link set "${n}p" up; done
    for a in 198.51.100.2/25:wan1 203.0.113.2/25:wan2 192.0.2.1/26:lbr0; do dev ip addr add "${a%:*}" dev "${a##*:}"; done
    for a in 2001:db8:1::2/64:wan1 2001:db8:2::2/64:wan2; do dev ip addr add "${a%:*}" dev "${a##*:}" nodad; done
    dev ip route add 192.0.2.192/27 via 198.51.100.1 proto boot
    dev ip rule add from 192.0.2.99 lookup main priority 20100
    ip netns exec "$NS" /tmp/bin/tarnnetd --log-stderr 2>>"$DAEMON_LOG" &
    DAEMON_PID=$!
    wait_for 50 busctl --system call net.tarn.Netd1 /net/tarn/Netd1 org.freedesktop.DBus.Peer Ping || fail "tarnnetd not ready"
}
# state: what a reboot must give back, in a form that does not depend on the order of changes.
state() {
    local f
    for f in -4 -6; do
        dev ip -j "$f" rule | jq -c 'sort_by(tojson)'
        dev ip -j "$f" route show table all | jq -c '[.[] | select(.protocol != "kernel")] | sort_by(tojson)'
    done
    dev ip -j addr | jq -c '[.[] | {ifname, addr: [.addr_info[] | select(.scope != "link") | "\(.local)/\(.prefixlen)"] | sort}]'
    dev cat /proc/sys/net/ipv6/conf/all/forwarding /proc/sys/net/ipv6/conf/wan1/accept_ra
}

boot boot1
tool() { ok dev "$TOOL" "$@"; }
mkdir -p /etc/route-mgt/ipv6-router
echo '{"type": "native", "prefix": "2001:db8:1200::/56", "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}]}' \
    >/etc/route-mgt/ipv6-router/wan1
tool --init-ipv6-router wan1 native
tool --apply-new-prefix wan1
for g in "-4 1 wan1 198.51.100.1" "-4 2 wan2 203.0.113.1" "-6 1 wan1 2001:db8:1::1" "-6 2 wan2 2001:db8:2::1"; do
    set -- $g && tool --add-gateway-info "$1" "$2" "$3" "$4" "$4" wan
done
tool --refresh-gateway all
tool --enable-multi-gateway
tool --enable-multi-gateway-v6
tool --add-policy-route-rule -4 vpn wan2 192.0.2.128 255.255.255.192 203.0.113.1
tool --add-policy-route-rule -6 lab lbr0 2001:db8:ff:: 48 NULL
tool --add-policy-route-rule -4 lab lbr0 198.51.100.128 255.255.255.192 NULL
printf '%s\n' '203.0.113.128/25 198.51.100.1 wan1 10 ipv4' '2001:db8:ff00::/40 2001:db8:2::1 wan2 0 ipv6' \
    >/etc/route-mgt/static-routes
tool --refresh-static-route-rules
before=$(state)
daemon_stop
ip netns del boot1

boot boot2
ok dev "$RESTORE"
expect_eq "$(state)" "$before" "state after the boot path"
ok dev "$RESTORE"
expect_eq "$(state)" "$before" "state after a second run of the boot path"
echo ok
