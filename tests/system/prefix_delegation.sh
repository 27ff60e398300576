#!/bin/sh
# prefix_delegation.sh TOOL PROBE HOOK RA_CONF: a DHCPv6 server upstream delegates a
# /56 to dhcpcd on wan0, whose hook feeds the router; dnsmasq advertises lbr0's /64 to a LAN host;
# a real OpenVPN server follows. Then a renewal, a re-delegation and a release.
set -eu
# Opened before lib.sh's private /tmp hides them (tarnprefix by the router's helpers, on 7).
exec 5<"$3" 6<"$4"
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"
for prog in kea-dhcp6 dhcpcd dnsmasq openvpn openssl start-stop-daemon; do
    command -v $prog >/dev/null || skip "no $prog"
done
T=/tmp/pd
mkdir -p $T/hooks $T/kea
cp /proc/self/fd/7 /tmp/bin/tarnprefix && chmod 755 /tmp/bin/tarnprefix
cp /proc/self/fd/5 $T/hooks/70-tarnprefix
cp /proc/self/fd/6 $T/ra.conf
exec 5<&- 6<&-
# A hook after ours records each call, so that a step can wait for the client.
echo 'echo "$reason" >>/tmp/pd/reasons' >$T/hooks/99-record
: >$T/reasons

PIDS=
cleanup() {
    # shellcheck disable=SC2181
    [ $? = 0 ] || tail -n 20 $T/*.log $T/reasons >&2
    for file in $T/ovpn.pid /run/dhcpcd/wan0-6.pid; do
        [ ! -s $file ] || kill "$(cat $file)" 2>/dev/null || true
    done
    for pid in $PIDS; do kill "$pid" 2>/dev/null || true; done
}
trap cleanup EXIT
# holder: a process in a network namespace of its own, its pid in $HOLDER.
holder() {
    unshare --net setpriv --pdeathsig KILL sleep 600 &
    HOLDER=$! PIDS="$PIDS $!"
    until [ "$(readlink /proc/$HOLDER/ns/net)" != "$(readlink /proc/self/ns/net)" ]; do sleep 0.02; done
}
in_ns() { pid=$1 && shift && nsenter -t "$pid" -n "$@"; }
# wait_for SECONDS COMMAND...: until COMMAND succeeds.
wait_for() {
    end=$(($(date +%s) + $1)) && shift
    until "$@" >/dev/null 2>&1; do [ "$(date +%s)" -lt $end ] || fail "waited in vain for: $*"; sleep 0.1; done
}
reasons_above() { [ "$(wc -l <$T/reasons)" -gt "$1" ]; }
calls() { wc -l <$T/reasons; }
host6() { in_ns "$LAN" ip -6 -o addr show dev eth0 scope global; }
host_has() { host6 | grep "inet6 $1" | grep -v tentative | grep -q "$2"; }
has_addr() { ip -6 addr show dev "$1" to "$2" | grep -q inet6; }
host_lacks() { ! host6 | grep -q "inet6 $1"; }
lifetimes() { ip -6 -o addr show dev "$1" scope global | grep -o 'valid_lft [0-9a-z]* preferred_lft [0-9a-z]*'; }

# Upstream: the server on up0, routing the delegated prefixes back to the device.
holder && UP=$HOLDER
holder && LAN=$HOLDER
ip link add wan0 type veth peer name up0 netns "$UP"
ip link set wan0 up
in_ns "$UP" ip link set up0 up
ip addr add 2001:db8:0:1::2/64 dev wan0 nodad
in_ns "$UP" ip addr add 2001:db8:0:1::1/64 dev up0 nodad
in_ns "$UP" ip route add 2001:db8::/32 via 2001:db8:0:1::2
ip route add default via 2001:db8:0:1::1
kea_conf() {
    cat >$T/kea.conf <<EOF
{ "Dhcp6": { "interfaces-config": { "interfaces": [ "up0" ],
    "service-sockets-max-retries": 20, "service-sockets-retry-wait-time": 200 },
  "lease-database": { "type": "memfile", "persist": false },
  "server-id": { "type": "LL", "persist": false },
  "renew-timer": 10, "rebind-timer": 16, "preferred-lifetime": 20, "valid-lifetime": 30,
  "subnet6": [ { "id": 1, "subnet": "2001:db8:0:1::/64", "interface": "up0",
    "pd-pools": [ { "prefix": "$1", "prefix-len": 56, "delegated-len": 56 } ] } ] } }
EOF
}
kea_conf 2001:db8:1200::
KEA_PIDFILE_DIR=$T/kea KEA_LOCKFILE_DIR=$T/kea nsenter -t "$UP" -n kea-dhcp6 -c $T/kea.conf >$T/kea.log 2>&1 &
KEA=$! PIDS="$PIDS $!"

# The LAN host behind lbr0, a guest bridge, and the device's router for wan0.
ip link add lbr0 type bridge
ip link add gbr0 type bridge
# As on the device: the router alone numbers its bridges' /64s, and dnsmasq advertises a /64
# only once its address has passed duplicate address detection.
sysctl -qw net.ipv6.conf.lbr0.accept_dad=0 net.ipv6.conf.gbr0.accept_dad=0
ip link add lan0 type veth peer name eth0 netns "$LAN"
ip link set lan0 master lbr0 up
ip link set lbr0 up
ip link set gbr0 up
in_ns "$LAN" ip link set eth0 up
vpn_server yes
mount --bind $T/hooks /usr/lib/dhcpcd/dhcpcd-hooks
(cd $T && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 \
    -subj /CN=tarn-test -keyout key.pem -out cert.pem) 2>/dev/null
printf 'dev tun0\nproto udp\nport 1194\ntopology subnet\nserver 192.0.2.128 255.255.255.192\nserver-ipv6 2001:db8:ffff::/64\nca %s\ncert %s\nkey %s\ndh none\n' \
    $T/cert.pem $T/cert.pem $T/key.pem >$VPN_CONF
cat >$VPN_SCRIPT <<EOF
#!/bin/sh
echo "\$*" >>$VPN_CALLS
start-stop-daemon --stop --quiet --oknodo --pidfile $T/ovpn.pid --exec /usr/sbin/openvpn --retry 3
start-stop-daemon --start --quiet --pidfile $T/ovpn.pid --exec /usr/sbin/openvpn -- \
    --daemon --writepid $T/ovpn.pid --log $T/ovpn.log --config $VPN_CONF
EOF
ok "$TOOL" --init-ipv6-router wan0 native
write_document wan0 '{"type": "native", "prefix": "",
  "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}'
dnsmasq -k --conf-file=$T/ra.conf --pid-file=$T/dnsmasq.pid --dhcp-leasefile=$T/leases \
    --log-facility=$T/dnsmasq.log &
PIDS="$PIDS $!"
printf 'ipv6only\nnoipv6rs\nnodelay\nduid\nallowinterfaces wan0\ninterface wan0\n    ia_pd 1/::/56\n' >$T/dhcpcd.conf
PATH=/tmp/bin:$PATH dhcpcd -6 -B -f $T/dhcpcd.conf wan0 >$T/dhcpcd.log 2>&1 &
PIDS="$PIDS $!"

# Delegation: the consumers' /64s with the delegation's lifetimes, the VPN server started on its
# /64, the LAN host's SLAAC address, and a ping upstream from it.
P=2001:db8:1200
wait_for 30 has_addr tun0 $P:2::1/64
expect_eq "$(holdings wan0)" "lbr0 $P::,gbr0 $P:1::,ovpn $P:2::," "holdings"
holds "$(lifetimes lbr0)" "preferred_lft 20sec" "lbr0's lifetimes"
wait_for 10 host_has $P: " dynamic"
in_ns "$LAN" busybox ping -6 -c 1 -W 2 2001:db8:0:1::1 >/dev/null || fail "ping upstream from the LAN host"

# Renewal of the same prefix: no address comes or goes, the VPN server keeps running.
restarts=$(cat $VPN_CALLS)
timeout 30 ip -o monitor address >$T/monitor &
MON=$!
sleep 0.5
n=$(calls)
dhcpcd -6 -N wan0 >/dev/null 2>&1
wait_for 10 reasons_above "$n"
sleep 0.5
kill $MON
expect_eq "$(sed -n '$p' $T/reasons)" RENEW6 "the renewal's reason"
expect_eq "$(grep -v -e " $P::1/64 " -e " $P:1::1/64 " -e '^Deleted.* fe80' $T/monitor || true)" "" "address events of a renewal"
expect_eq "$(cat $VPN_CALLS)" "$restarts" "VPN restarts on a renewal"

# Re-delegation: the server's pool moves; the consumers keep their indexes in the new /56, the
# old /64s leave the device and are deprecated on the LAN host at once, gone at their end.
kea_conf 2001:db8:3400::
kill -HUP $KEA
sleep 0.5
dhcpcd -6 -N wan0 >/dev/null 2>&1
Q=2001:db8:3400
wait_for 10 has_addr tun0 $Q:2::1/64
expect_eq "$(holdings wan0)" "lbr0 $Q::,gbr0 $Q:1::,ovpn $Q:2::," "holdings after a re-delegation"
expect_eq "$(global6 lbr0)|$(global6 gbr0)" "$Q::1/64 |$Q:1::1/64 " "lbr0|gbr0 addresses after a re-delegation"
wait_for 10 host_has $Q: " dynamic"
wait_for 5 host_has $P: deprecated
in_ns "$LAN" busybox ping -6 -c 1 -W 2 2001:db8:0:1::1 >/dev/null || fail "ping upstream from the new address"
wait_for 40 host_lacks $P:

# Release: the prefix is withdrawn, not taken away: deprecated on the consumers, the indexes and
# the VPN server's pool kept.
restarts=$(cat $VPN_CALLS)
dhcpcd -6 -k wan0 >/dev/null 2>&1
wait_for 10 grep -qx RELEASE6 $T/reasons
holds "$(lifetimes lbr0)" "preferred_lft 0sec" "lbr0's lifetimes after a release"
expect_eq "$(holdings wan0)" "lbr0 $Q::,gbr0 $Q:1::,ovpn $Q:2::," "holdings after a release"
expect_eq "$(grep server-ipv6 $VPN_CONF)|$(cat $VPN_CALLS)" "server-ipv6 $Q:2::/64|$restarts" "VPN server after a release"
wait_for 10 host_has $Q: deprecated
echo ok
