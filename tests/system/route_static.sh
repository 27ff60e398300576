#!/bin/bash
# Static routes refreshed from /etc/route-mgt/static-routes through the product, and the route
# tables printed as JSON.
set -eu
. "$(dirname "$0")/lib.sh"
FILE=/etc/route-mgt/static-routes
mkdir -p /etc/route-mgt
ours() { ip route show proto tarn-static; ip -6 route show proto tarn-static; }
# refresh STATUS [FAMILY]: --refresh-static-route-rules ends with STATUS; two more runs change nothing.
refresh() {
    local want=$1 first; shift
    expect_eq "$(status "$TOOL" --refresh-static-route-rules "$@")" "$want" "refresh $*"
    first=$(routing_state)
    expect_eq "$(status "$TOOL" --refresh-static-route-rules "$@")$(status "$TOOL" --refresh-static-route-rules "$@")" \
        "$want$want" "refresh $* rerun"
    expect_eq "$(routing_state)" "$first" "kernel after rerunning refresh $*"
}

# No link-local addresses: their late arrival would change the tables between runs.
echo 1 >/proc/sys/net/ipv6/conf/default/addr_gen_mode
veth lan0
ip addr add 198.51.100.1/24 dev lan0
ip addr add 2001:db8:3::1/64 dev lan0 nodad
ip route add 192.0.2.128/25 dev lan0 metric 5

cat >"$FILE" <<'EOF'
# destination     gateway          interface  metric  family
203.0.113.0/25    198.51.100.254   lan0       10      ipv4
203.0.113.128/25  198.51.100.253   -          0       ipv4
192.0.2.10        -                lan0       0       ipv4   # a host on the link
2001:db8:ff::/48  2001:db8:3::fe   lan0       0       ipv6
EOF
refresh 0
expect_eq "$(ours | tr '\n' ,)" "192.0.2.10 dev lan0 scope link ,203.0.113.0/25 via 198.51.100.254 dev lan0 metric 10 ,\
203.0.113.128/25 via 198.51.100.253 dev lan0 ,2001:db8:ff::/48 via 2001:db8:3::fe dev lan0 metric 1024 pref medium," "static routes made"

# Changed, removed, one per family, one that cannot be made (no such interface) and one whose
# place a route of another protocol holds: the others are still applied.
cat >"$FILE" <<'EOF'
203.0.113.0/25    198.51.100.99    lan0       10      ipv4
192.0.2.128/25    198.51.100.9     lan0       5       ipv4
198.51.100.128/25 198.51.100.9     nosuch0    0       ipv4
2001:db8:ff::/48  2001:db8:3::fe   lan0       0       ipv6
EOF
refresh 255 -4
expect_eq "$(ours | tr '\n' ,)" "203.0.113.0/25 via 198.51.100.99 dev lan0 metric 10 ,\
2001:db8:ff::/48 via 2001:db8:3::fe dev lan0 metric 1024 pref medium," "static routes changed"
expect_eq "$(ip route show 192.0.2.128/25)" "192.0.2.128/25 dev lan0 scope link metric 5 " "route of another protocol"

# A file that cannot be parsed changes nothing; without a file there are no static routes of ours.
before=$(ours)
for bad in "203.0.113.0/25 198.51.100.99 lan0 10" "203.0.113.0/25 - lan0 4294967296 ipv4"; do
    echo "$bad" >"$FILE"
    refresh 255
    expect_eq "$(ours)" "$before" "routes after a file with [$bad]"
done
# Refreshes at once all succeed: the second finds what the first added.
for i in $(seq 0 255); do echo "203.0.113.$i 198.51.100.254 lan0 0 ipv4"; done >"$FILE"
for i in 1 2 3 4; do "$TOOL" --refresh-static-route-rules -4 & done
for pid in $(jobs -p); do wait "$pid" || fail "concurrent refresh: exit status $?"; done
expect_eq "$(ip route show proto tarn-static | wc -l)" 256 "routes after concurrent refreshes"
rm "$FILE"
refresh 0
expect_eq "$(ours)" "" "static routes without a file"

# The tables as JSON: main and an interface's table by name, the local table left out.
"$TOOL" --add-policy-route-rule -4 vpn lan0 203.0.113.0 255.255.255.0 198.51.100.254
expect_eq "$("$TOOL" --get-route-tables -4 | tr -d ' \t\n')" '{"lan0":[{"dev":"lan0","dst":"198.51.100.0/24","metric":0,"protocol":"tarn-policy","scope":"link"},'\
'{"dev":"lan0","dst":"203.0.113.0/24","gateway":"198.51.100.254","metric":0,"protocol":"tarn-policy","scope":"global"}],'\
'"main":[{"dev":"lan0","dst":"192.0.2.128/25","metric":5,"protocol":"boot","scope":"link"},'\
'{"dev":"lan0","dst":"198.51.100.0/24","metric":0,"protocol":"kernel","scope":"link"}]}' "route tables -4"
holds "$("$TOOL" --get-route-tables -6)" '"dst" : "2001:db8:3::/64"' "IPv6 connected network in the -6 tables"

# A file or lock in the way fails the refresh, and the log says why.
system_log
while read -r -u 3 path line; do
    rm -f "$path" && mkdir "$path"
    refresh 255
    rmdir "$path"
    holds "$(cat /tmp/syslog)" "$line" "log line"
done 3<<'ROWS'
/etc/route-mgt/static-routes static-route: cannot read /etc/route-mgt/static-routes: Invalid argument
/run/tarn/static-route.lock static-route: cannot take the lock /run/tarn/static-route.lock: cannot open it: Is a directory
ROWS
echo ok
