#!/bin/sh
# prefix_delegation.sh TOOL PROBE HOOK RA_CONF: Kea upstream delegates a /56 to dhcpcd on wan0,
# whose hook feeds the router; dnsmasq advertises lbr0's /64 to a LAN host. What the demo does not
# show: a renewal, a release, and a re-delegation in the order ISC dhcpd lists it.
set -eu
# Opened before lib.sh's private /tmp hides them (tarnprefix by the router's helpers, on 7).
exec 5<"$3" 6<"$4"
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/../../scripts/kea-pd.sh"
. "$(dirname "$0")/lib.sh"
for prog in kea-dhcp6 dhcpcd dnsmasq; do command -v $prog >/dev/null || skip "no $prog"; done
T=/tmp/pd
mkdir -p $T/hooks $T/kea
cp /proc/self/fd/7 /tmp/bin/tarnprefix && chmod 755 /tmp/bin/tarnprefix
cp /proc/self/fd/5 $T/hooks/70-tarnprefix && cp /proc/self/fd/6 $T/ra.conf
# A hook after ours records each call, so that a step can wait for the client.
echo 'echo "$reason" >>/tmp/pd/reasons' >$T/hooks/99-record
: >$T/reasons
PIDS=
cleanup() {
    [ ! -s /run/dhcpcd/wan0-6.pid ] || kill "$(cat /run/dhcpcd/wan0-6.pid)" 2>/dev/null || true
    for pid in $PIDS; do kill "$pid" 2>/dev/null || true; done
}
trap cleanup EXIT
holder() {
    unshare --net setpriv --pdeathsig KILL sleep 600 &
    HOLDER=$! PIDS="$PIDS $!"
    until [ "$(readlink /proc/$HOLDER/ns/net)" != "$(readlink /proc/self/ns/net)" ]; do sleep 0.02; done
}
in_ns() { pid=$1 && shift && nsenter -t "$pid" -n "$@"; }
calls_above() { [ "$(wc -l <$T/reasons)" -gt "$1" ]; }
host_has() { in_ns "$LAN" ip -6 -o addr show dev eth0 to "$1" | grep -v tentative | grep -q "$2"; }
lifetimes() { ip -6 -o addr show dev "$1" scope global | grep -o 'valid_lft [0-9a-z]* preferred_lft [0-9a-z]*'; }
kea_pd_config up0 2001:db8:0:1::/64 2001:db8:1200:: 10 16 20 30 >$T/kea.conf

holder && UP=$HOLDER
holder && LAN=$HOLDER
ip link add wan0 type veth peer name up0 netns "$UP" && ip link set wan0 up && in_ns "$UP" ip link set up0 up
KEA_PIDFILE_DIR=$T/kea KEA_LOCKFILE_DIR=$T/kea nsenter -t "$UP" -n kea-dhcp6 -c $T/kea.conf >$T/kea.log 2>&1 &
PIDS="$PIDS $!"
ip link add lbr0 type bridge && ip link add gbr0 type bridge
ip link add lan0 type veth peer name eth0 netns "$LAN"
ip link set lan0 master lbr0 up
ip link set lbr0 up && ip link set gbr0 up
in_ns "$LAN" ip link set eth0 up
vpn_server yes
mount --bind $T/hooks /usr/lib/dhcpcd/dhcpcd-hooks
ok "$TOOL" --init-ipv6-router wan0 native
write_document wan0 '{"type": "native", "prefix": "", "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}'
dnsmasq -k --conf-file=$T/ra.conf --pid-file=$T/dnsmasq.pid --dhcp-leasefile=$T/leases --log-facility=$T/dnsmasq.log &
PIDS="$PIDS $!"
printf 'ipv6only\nnoipv6rs\nnodelay\nduid\nallowinterfaces wan0\ninterface wan0\n    ia_pd 1/::/56\n' >$T/dhcpcd.conf
PATH=/tmp/bin:$PATH dhcpcd -6 -B -f $T/dhcpcd.conf wan0 >$T/dhcpcd.log 2>&1 &
PIDS="$PIDS $!"

# The delegation's lifetimes reach the consumers' addresses.
P=2001:db8:1200 Q=2001:db8:3400
wait_for 300 grep -q "$P:2::" $STORE/wan0 || fail "no second /64 stored"
# (what remains of them: a second may have gone by)
lifetimes lbr0 | grep -qE 'valid_lft (29|30)sec preferred_lft (19|20)sec' || fail "lbr0's lifetimes: $(lifetimes lbr0)"
wait_for 100 host_has $P::/64 " dynamic" || fail "no dynamic address on the LAN host"

# A renewal of the same prefix renews the lifetimes (no address event: ipv6_router.sh) and does
# not restart the VPN server.
n=$(wc -l <$T/reasons)
dhcpcd -6 -N wan0 >/dev/null 2>&1
wait_for 100 calls_above "$n" || fail "no further hook call"
expect_eq "$(tail -n 1 $T/reasons)|$(cat $VPN_CALLS)" "RENEW6|restart" "the renewal's reason and VPN restarts"

# A release withdraws the prefix: deprecated on the device and the LAN host, indexes and the VPN
# server's pool kept.
dhcpcd -6 -k wan0 >/dev/null 2>&1
wait_for 100 grep -qx RELEASE6 $T/reasons || fail "no RELEASE6"
holds "$(lifetimes lbr0)" "preferred_lft 0sec" "lbr0's lifetimes after a release"
expect_eq "$(holdings wan0)|$(grep server-ipv6 $VPN_CONF)" "lbr0 $P::,gbr0 $P:1::,ovpn $P:2::,|server-ipv6 $P:2::/64" "after a release"
wait_for 100 host_has $P::/64 deprecated || fail "the old address not deprecated"

# ISC dhcpd lists the old prefix, at lifetime 0, before the new one: the hook goes by lifetime.
env -i PATH=/tmp/bin:$PATH interface=wan0 reason=REBIND6 \
    new_dhcp6_ia_pd1_prefix1=$P:: new_dhcp6_ia_pd1_prefix1_length=56 new_dhcp6_ia_pd1_prefix1_pltime=0 \
    new_dhcp6_ia_pd1_prefix1_vltime=0 new_dhcp6_ia_pd1_prefix2=$Q:: new_dhcp6_ia_pd1_prefix2_length=56 \
    new_dhcp6_ia_pd1_prefix2_pltime=20 new_dhcp6_ia_pd1_prefix2_vltime=30 /usr/lib/dhcpcd/dhcpcd-run-hooks
expect_eq "$(holdings wan0)" "lbr0 $Q::,gbr0 $Q:1::,ovpn $Q:2::," "holdings after a rebind in dhcpd's order"
# A reply that leaves the prefix no lifetime withdraws it.
env -i PATH=/tmp/bin:$PATH interface=wan0 reason=RENEW6 new_dhcp6_ia_pd1_prefix1=$Q:: new_dhcp6_ia_pd1_prefix1_length=56 \
    new_dhcp6_ia_pd1_prefix1_pltime=0 new_dhcp6_ia_pd1_prefix1_vltime=0 /usr/lib/dhcpcd/dhcpcd-run-hooks
holds "$(lifetimes lbr0)" "preferred_lft 0sec" "lbr0's lifetimes after a prefix at lifetime 0"
echo ok
