#!/bin/sh
# The IPv6 router through the product: a native router, a prefix handed out to lbr0, gbr0 and
# the VPN server, a re-delegation that keeps every consumer's index, and the router queries.
set -eu
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"
veth wan0 lbr0 gbr0
vpn_server yes

# Rejected words and names make no router and leave no document.
for args in "wan0 bogus" "wan0 NATIVE" "nosuch0 native" "../x native"; do
    # shellcheck disable=SC2086
    refused "$TOOL" --init-ipv6-router $args
done
[ ! -e $STORE/wan0 ] || fail "a refused router left a document"
refused "$TOOL" --apply-new-prefix wan0

ok "$TOOL" --init-ipv6-router wan0 native
ok "$TOOL" --init-ipv6-router wan0 native
expect_eq "$(cat /proc/sys/net/ipv6/conf/wan0/accept_ra /proc/sys/net/ipv6/conf/all/forwarding)" "2
1" "accept_ra and forwarding"
holds "$(cat $STORE/wan0)" '"type" : "native"' "stored type"
expect_eq "$("$TOOL" --get-ipv6-router-interface wan0)" "wan0" "router interface of a native router"

write_document wan0 '{"type": "native", "prefix": "2001:db8:1200::/56",
  "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}'
# check BASE RESTARTS: each consumer holds its own index inside BASE (a /56 written as its
# first three groups) and carries only that address; the VPN server follows.
check() {
    ok "$TOOL" --apply-new-prefix wan0
    expect_eq "$(holdings wan0)" "lbr0 $1::,gbr0 $1:1::,ovpn $1:2::," "holdings"
    expect_eq "$(global6 lbr0)|$(global6 gbr0)" "$1::1/64 |$1:1::1/64 " "lbr0|gbr0 addresses"
    expect_eq "$(grep server-ipv6 $VPN_CONF)" "server-ipv6 $1:2::/64" "VPN server pool"
    expect_eq "$(tr '\n' ' ' <$VPN_CALLS)" "$2" "restart calls"
    expect_eq "$("$TOOL" --get-internal-network | tr '\n' ' ')" "$1:1::/64 $1::/64 " "internal networks"
}
check 2001:db8:1200 "restart "
set_prefix wan0 2001:db8:3400::/56
check 2001:db8:3400 "restart restart "

# A stored tunnel type names the tunnel interface.
for row in 6in4:6in4-eth1 6to4:6in4-eth1 native:eth1; do
    write_document eth1 "{\"type\": \"${row%:*}\", \"prefix\": \"\"}"
    expect_eq "$("$TOOL" --get-ipv6-router-interface eth1)" "${row#*:}" "router interface of type ${row%:*}"
done
echo ok
