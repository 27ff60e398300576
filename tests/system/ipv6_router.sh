#!/bin/sh
# The IPv6 router through the product: a native router, a prefix handed out to lbr0, gbr0 and
# the VPN server, a re-delegation that keeps every consumer's index, and the router queries.
set -eu
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"

veth wan0
veth lbr0
veth gbr0
vpn_server yes

# Rejected words and names make no router and leave no document.
for args in "wan0 bogus" "wan0 NATIVE" "nosuch0 native" "../x native"; do
    # shellcheck disable=SC2086
    if "$TOOL" --init-ipv6-router $args; then fail "--init-ipv6-router $args succeeded"; fi
done
[ ! -e $STORE/wan0 ] || fail "a refused router left a document"
if "$TOOL" --apply-new-prefix wan0; then fail "--apply-new-prefix without a document succeeded"; fi

"$TOOL" --init-ipv6-router wan0 native || fail "init: exit status $?"
"$TOOL" --init-ipv6-router wan0 native || fail "second init: exit status $?"
expect_eq "$(cat /proc/sys/net/ipv6/conf/wan0/accept_ra) $(cat /proc/sys/net/ipv6/conf/all/forwarding)" "2 1" "accept_ra and forwarding"
grep -q '"type" : "native"' $STORE/wan0 || fail "type not recorded: $(cat $STORE/wan0)"
expect_eq "$("$TOOL" --get-ipv6-router-interface wan0)" "wan0" "router interface of a native router"

write_document wan0 '{"type": "native", "prefix": "2001:db8:1200::/56",
  "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}'

# check BASE RESTARTS: each consumer holds its own index inside BASE (a /56 written as its
# first three groups) and carries only that address; the VPN server follows.
check() {
    expect_eq "$(holdings wan0 | tr '\n' ,)" "lbr0 $1::,gbr0 $1:1::,ovpn $1:2::," "holdings"
    expect_eq "$(global6 lbr0)" "$1::1/64 " "lbr0 addresses"
    expect_eq "$(global6 gbr0)" "$1:1::1/64 " "gbr0 addresses"
    expect_eq "$(grep server-ipv6 $VPN_CONF)" "server-ipv6 $1:2::/64" "VPN server pool"
    expect_eq "$(tr '\n' ' ' <$VPN_CALLS)" "$2" "restart calls"
    expect_eq "$("$TOOL" --get-internal-network)" "$1:1::/64
$1::/64" "internal networks"
}

"$TOOL" --apply-new-prefix wan0 || fail "apply: exit status $?"
check 2001:db8:1200 "restart "
set_prefix wan0 2001:db8:3400::/56
"$TOOL" --apply-new-prefix wan0 || fail "apply of the new prefix: exit status $?"
check 2001:db8:3400 "restart restart "

# A stored tunnel type names the tunnel interface.
for type in 6in4 6to4 native; do
    write_document eth1 "{\"type\": \"$type\", \"prefix\": \"\"}"
    expected=eth1
    [ $type = native ] || expected=6in4-eth1
    expect_eq "$("$TOOL" --get-ipv6-router-interface eth1)" "$expected" "router interface of type $type"
done
echo ok
