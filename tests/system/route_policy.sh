#!/bin/bash
# Policy route tables, both families: traffic from each of two WANs' addresses leaves through it, the
# LAN's through main, connected networks direct; reruns change nothing; others' rules stay.
set -eu
. "$(dirname "$0")/lib.sh"

# converges ARGS...: the tool succeeds, and two more runs leave the kernel as the first left it.
converges() {
    ok "$TOOL" "$@"; first=$(routing_state); ok "$TOOL" "$@"; ok "$TOOL" "$@"
    expect_eq "$(routing_state)" "$first" "kernel after rerunning $*"
}
# route_from FAMILY SOURCE DESTINATION EXPECTED: `ip route get` from SOURCE holds EXPECTED.
route_from() { holds "$(ip "$1" route get "$3" from "$2" | head -n 1)" "$4" "route to $3 from $2"; }
rules() { ip "$fam" rule | grep -c "$1" || true; }

# No link-local addresses: their late arrival would change the tables between runs.
echo 1 >/proc/sys/net/ipv6/conf/default/addr_gen_mode
veth wan1 wan2 lan0
# family nodad wan1/len wan1-gw wan2/len alias/len wan2-gw lan/len far-host connected-host rule-ip rule-mask rule-dst
while read -r -u 3 fam nd wan1net wan1gw wan2net aliasnet wan2gw lannet far near ruleip rulemask ruledst; do
    wan1=${wan1net%/*} wan2=${wan2net%/*} alias=${aliasnet%/*} lan=${lannet%/*}
    ip addr add "$wan1net" dev wan1 ${nd#-}
    ip addr add "$wan2net" dev wan2 ${nd#-}
    ip addr add "$aliasnet" dev wan2 ${nd#-}
    ip addr add "$lannet" dev lan0 ${nd#-}
    ip "$fam" route add default via "$wan1gw" dev wan1
    ip "$fam" rule add from "$near" lookup 100 pref 20100

    converges --add-policy-route-rule "$fam" multi-gateway wan1 NULL NULL "$wan1gw"
    converges --add-policy-route-rule "$fam" multi-gateway wan2 NULL NULL "$wan2gw"
    converges --add-policy-route-rule "$fam" vpn wan2 "$ruleip" "$rulemask" "$wan2gw"
    converges --enable-route-table "$fam" wan1 "$wan1"
    converges --enable-route-table "$fam" wan2 "$wan2,$alias"
    ip "$fam" route add "$near" dev wan1 table wan1
    converges --enable-route-table "$fam" wan2 "$wan2,$alias"
    route_from "$fam" "$wan2" "$far" "via $wan2gw dev wan2 table wan2"
    route_from "$fam" "$wan1" "$far" "via $wan1gw dev wan1 table wan1"
    route_from "$fam" "$lan" "$far" "via $wan1gw dev wan1 "
    route_from "$fam" "$wan2" "$near" "$near from $wan2 dev lan0 "
    holds "$(ip "$fam" route show table wan2 "$ruledst")" "$ruledst via $wan2gw dev wan2 proto tarn-policy" "stored rule"
    expect_eq "$(rules 'lookup main suppress_prefixlength 0 proto tarn-policy')" 1 "suppress rules"
    expect_eq "$(rules "from $alias lookup wan2 proto tarn-policy")" 1 "alias rule"

    converges --refresh-route-table "$fam" wan2 "$wan2,$alias"
    converges --refresh-route-table "$fam" wan2 "$wan2"
    expect_eq "$(rules "from $alias ")" 0 "rule of the address no longer in the source"
    route_from "$fam" "$wan2" "$far" "via $wan2gw dev wan2 table wan2"

    converges --del-policy-route-rule "$fam" multi-gateway wan2
    converges --del-policy-route-rule "$fam" never-added wan2
    expect_eq "$(ip "$fam" route show table wan2 default)" "" "default route of a deleted rule"
    route_from "$fam" "$wan2" "$far" "via $wan1gw dev wan1 "

    converges --disable-route-table "$fam" wan2
    expect_eq "$(rules 'lookup wan2')" 0 "rules of a disabled table"
    expect_eq "$(rules "from $wan1 lookup wan1 proto tarn-policy")" 1 "rule of the other table"
    expect_eq "$(rules "from $near lookup 100")" 1 "rule of another protocol in our band"
    holds "$(ip "$fam" route show table wan1 "$near")" "$near dev wan1" "route of another protocol in our table"

    # Invalid input and an interface that is not there change nothing.
    before=$(routing_state; cat /etc/route-mgt/policy-route)
    expect_eq "$(status "$TOOL" --add-policy-route-rule "$fam" x wan1 "$ruleip" 255.0.255.0 "$wan1gw")" 255 "bad mask"
    expect_eq "$(status "$TOOL" --enable-route-table "$fam" wan1 "$wan1,nonsense")" 255 "bad source"
    expect_eq "$(status "$TOOL" --enable-route-table "$fam" nosuch0 "$wan1")" 255 "missing interface"
    expect_eq "$(routing_state; cat /etc/route-mgt/policy-route)" "$before" "kernel and state after refused calls"
    ip addr flush dev wan1; ip addr flush dev wan2; ip addr flush dev lan0
done 3<<'ROWS'
-4 - 192.0.2.10/26 192.0.2.1 192.0.2.70/26 192.0.2.71/26 192.0.2.65 198.51.100.1/24 203.0.113.200 198.51.100.50 203.0.113.0 255.255.255.128 203.0.113.0/25
-6 nodad 2001:db8:1::10/64 2001:db8:1::1 2001:db8:2::10/64 2001:db8:2::11/64 2001:db8:2::1 2001:db8:3::1/64 2001:db8:ff::9 2001:db8:3::50 2001:db8:ff:1:: 64 2001:db8:ff:1::/64
ROWS

# The interface's rules come back with its table after it went away.
ip link del wan1
veth wan1
ip addr add 192.0.2.10/26 dev wan1
converges --enable-route-table -4 wan1 192.0.2.10
route_from -4 192.0.2.10 203.0.113.9 "via 192.0.2.1 dev wan1 table wan1"

# A rule the kernel refuses (a gateway on no network of the link) is not stored to fail the table.
expect_eq "$(status "$TOOL" --add-policy-route-rule -4 vpn wan1 198.51.100.0 255.255.255.0 203.0.113.1)" 255 "gateway off the link"
converges --enable-route-table -4 wan1 192.0.2.10

# A rewrite that a kill cut short leaves a temporary file: the next call removes it once stale.
touch -d '1 hour ago' /etc/route-mgt/.policy-route.Ab12Cd /etc/route-mgt/.gateway_priority.Ab12Cd
ok "$TOOL" --enable-route-table -4 wan1 192.0.2.10
expect_eq "$(ls -A /etc/route-mgt | grep '^\.')" ".gateway_priority.Ab12Cd" "stale temporaries of the state"

# A table enabled in no family and without rules gives its number back, and its routes go.
ok "$TOOL" --del-policy-route-rule -4 vpn wan2 && ok "$TOOL" --del-policy-route-rule -6 vpn wan2
expect_eq "$(grep -h wan2 /etc/route-mgt/policy-route /etc/iproute2/rt_tables.d/tarn.conf; ip route show table 20001)" "" "freed table"

# Name files that cannot be written cost only the names: a link in the place of ours, then a
# read-only /etc/iproute2 without the protocols' names, which a static refresh would write.
ln -sf /dev/null /etc/iproute2/rt_tables.d/tarn.conf
ok "$TOOL" --add-policy-route-rule -4 vpn wan1 203.0.113.0 255.255.255.0 192.0.2.1
rm /etc/iproute2/rt_tables.d/tarn.conf /etc/iproute2/rt_protos.d/tarn.conf
mount -o bind,ro /etc/iproute2 /etc/iproute2
ok "$TOOL" --add-policy-route-rule -4 vpn wan2 203.0.113.0 255.255.255.0 NULL
ok "$TOOL" --refresh-static-route-rules
expect_eq "$(ip route show table all 203.0.113.0/24 | wc -l)" 2 "routes of rules despite the name files"
echo ok
