#!/bin/sh
# The IPv6 router through the product: a native router, a prefix handed out to lbr0, gbr0 and
# the VPN server, renewals that change no address, a re-delegation that keeps every consumer's
# index, withdrawal, a smaller delegation, stray files, and the router queries.
set -eu
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"
echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad  # no address event of its own during a check
veth wan0 lbr0 gbr0
vpn_server yes

# A delegation from the first second of boot, before /run/tarn and /tmp/lock exist.
mkdir -p $STORE && echo '{"type": "native"}' >$STORE/wan0
expect_eq "$(set_prefix wan0 2001:db8:1200::/56)|$(stat -c %a /run/tarn /tmp/lock | tr '\n' ' ')" "changed|755 755 " "first delegation"
rm $STORE/wan0

# Rejected words and names make no router and leave no document.
for args in "wan0 bogus" "wan0 NATIVE" "nosuch0 native" "../x native"; do
    # shellcheck disable=SC2086
    refused "$TOOL" --init-ipv6-router $args
done
[ ! -e $STORE/wan0 ] || fail "a refused router left a document"

ok "$TOOL" --init-ipv6-router wan0 native
expect_eq "$(cat /proc/sys/net/ipv6/conf/wan0/accept_ra /proc/sys/net/ipv6/conf/all/forwarding)" "2
1" "accept_ra and forwarding"
holds "$(cat $STORE/wan0)" '"type" : "native"' "stored type"

write_document wan0 '{"type": "native", "prefix": "2001:db8:1200::/56",
  "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}'
# events COMMAND...: the address events that COMMAND causes, between two marks on wan0p.
events() {
    timeout 30 stdbuf -oL ip -o monitor address >/tmp/mon & mon=$!
    mark 1 && "$@" >/dev/null && mark 2
    kill $mon
    sed -n '/203\.0\.113\.1\//,/203\.0\.113\.2\//p' /tmp/mon | grep -v '203\.0\.113\.' || true
}
mark() {
    for _ in $(seq 50); do
        ip addr add 203.0.113.$1/32 dev wan0p && ip addr del 203.0.113.$1/32 dev wan0p
        ! grep -q "203.0.113.$1/" /tmp/mon || return 0
        sleep 0.1
    done
    fail "no address events seen"
}
# check BASE RESTARTS: each consumer holds its own index inside BASE (a /56 written as its
# first three groups) and carries only that address; the VPN server follows.
check() {
    ok "$TOOL" --apply-new-prefix wan0
    expect_eq "$(holdings wan0)" "lbr0 $1::,gbr0 $1:1::,ovpn $1:2::," "holdings"
    expect_eq "$(global6 lbr0)|$(global6 gbr0)" "$1::1/64 |$1:1::1/64 " "lbr0|gbr0 addresses"
    expect_eq "$(grep server-ipv6 $VPN_CONF)" "server-ipv6 $1:2::/64" "VPN server pool"
    expect_eq "$(tr '\n' ' ' <$VPN_CALLS)" "$2" "restart calls"
}
check 2001:db8:1200 "restart "
expect_eq "$(events "$TOOL" --apply-new-prefix wan0)" "" "address events of an unchanged prefix"
expect_eq "$(set_prefix wan0 2001:db8:1200::/56 1800 3600)" unchanged "renewal"
renewed=$(events set_prefix wan0 2001:db8:1200::/56 1800 3600)
expect_eq "$(echo "$renewed" | grep -cE 'valid_lft 3(599|600)sec preferred_lft 1(799|800)sec')|$(echo "$renewed" | grep -c Deleted)" "2|0" \
    "lifetimes renewed in place: [$renewed]"
expect_eq "$(set_prefix wan0 2001:db8:3400::/56)" changed "re-delegation"
check 2001:db8:3400 "restart restart restart "
set_prefix wan0 2001:db8:3400::/56 600 900 >/dev/null
ok $PREFIX_PROGRAM withdraw wan0
# What remains of the lifetimes, a second may have gone by.
ip -6 addr show dev gbr0 scope global | grep -qE 'valid_lft (899|900)sec preferred_lft 0sec' || fail "withdrawn address"
expect_eq "$(holdings wan0)" "lbr0 2001:db8:3400::,gbr0 2001:db8:3400:1::,ovpn 2001:db8:3400:2::," "holdings kept"
for args in "set wan0" "set wan0 2001:db8::1/56 1 2" "set wan0 2001:db8::/65 1 2" "set wan0 2001:db8::/56 3 2" \
    "set wan0 2001:db8::/56 1 4294967296" "set wan9 2001:db8::/56 1 2" "withdraw ../x"; do
    # shellcheck disable=SC2086
    expect_eq "$(status $PREFIX_PROGRAM $args)|$($PREFIX_PROGRAM $args 2>&1 | wc -l)" "255|1" "tarnprefix $args"
done

# lbr0 refusing addresses keeps its index, and gets its address once it takes them again; a
# smaller delegation takes the /64 away from the consumers past its size.
echo 1 >/proc/sys/net/ipv6/conf/lbr0/disable_ipv6
set_prefix wan0 2001:db8:5600::/56 >/dev/null
ok "$TOOL" --apply-new-prefix wan0
echo 0 >/proc/sys/net/ipv6/conf/lbr0/disable_ipv6
check 2001:db8:5600 "restart restart restart restart restart "
set_prefix wan0 2001:db8:7800::/64 >/dev/null
ok "$TOOL" --apply-new-prefix wan0
expect_eq "$(holdings wan0)|$(global6 lbr0)|$(global6 gbr0)" "lbr0 2001:db8:7800::,gbr0 ,ovpn ,|2001:db8:7800::1/64 |" \
    "smaller delegation"

# Backups and temporary files are no documents; ours left by a kill go once they are old.
printf '{ torn' >$STORE/wan0.bak
echo '{"type": "native", "prefix": "2001:db8:7800::/64", "consumers": [{"owner": "gbr9", "holds": "2001:db8:7800::"}]}' \
    >"$STORE/wan0~"
touch -d '-1 hour' $STORE/.wan0.AbC123
touch $STORE/.wan0.new
ok "$TOOL" --apply-new-prefix wan0
expect_eq "$(global6 lbr0)|$(ls -A $STORE | tr '\n' ' ')" "2001:db8:7800::1/64 |.wan0.new wan0 wan0.bak wan0~ " "store directory"

# Another interface's unreadable document is an error naming the file, logged once per run.
system_log
printf '{ torn' >$STORE/wan1
ok "$TOOL" --apply-new-prefix wan0
sleep 0.2
expect_eq "$(grep -c "err tarnnetdtool: ipv6-router: $STORE/wan1 is not a router document" /tmp/syslog)" 1 "log lines"

# A stored tunnel type names the tunnel interface.
for row in 6in4:6in4-eth1 6to4:6in4-eth1 native:eth1; do
    write_document eth1 "{\"type\": \"${row%:*}\", \"prefix\": \"\"}"
    expect_eq "$("$TOOL" --get-ipv6-router-interface eth1)" "${row#*:}" "router interface of type ${row%:*}"
done
echo ok
