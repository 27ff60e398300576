#!/bin/bash
# The gateway actions against tarnnetd: records listed as scripts read them, each family's default
# route chosen and failed over, another protocol's left alone, records kept across a restart.
set -eu
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
bus_start
daemon_start

# defaults FAMILY: "gateway dev protocol metric" of each default route of the main table.
defaults() { ip "$1" route show default | awk '{ print $3, $5, $7, $9 }' | sort; }
tool() { "$TOOL" "$@" 2>>/tmp/tool.err; }

veth wan0 wan1 oth0
for a in 192.0.2.2/24:wan0 198.51.100.2/24:wan1 203.0.113.2/24:oth0; do ip addr add "${a%:*}" dev "${a#*:}"; done
ip route add default via 203.0.113.1 dev oth0 proto static metric 100

# A names file of an older release lacks protocols: the first route of ours completes it.
mkdir -p /etc/iproute2/rt_protos.d
printf '201\ttarn-gateway\n202\ttarn-policy\n203\ttarn-static\n' >/etc/iproute2/rt_protos.d/tarn.conf

ok tool --add-gateway-info -4 20 wan1 198.51.100.1 198.51.100.53
ok tool --add-gateway-info -4 10 wan0 192.0.2.1 192.0.2.53 wan
expect_eq "$(tool --get-gateway-list-data -4 | tr -d ' \t\n')" '[{"class":"wan","dns":"192.0.2.53","gateway":"192.0.2.1",'\
'"ifname":"wan0","priority":10,"slave":false},{"class":"","dns":"198.51.100.53","gateway":"198.51.100.1","ifname":"wan1",'\
'"priority":20,"slave":false}]' "list"
expect_eq "$(tool --get-gateway-data-by-interface -4 wan1 | tr '\n' ,)" "class=,dns=198.51.100.53,gateway=198.51.100.1,priority=20," "by interface"
expect_eq "$(defaults -4)" "192.0.2.1 wan0 tarn-gateway 50
203.0.113.1 oth0 static 100" "routes after two adds"
expect_eq "$(tr '\n' , </etc/iproute2/rt_protos.d/tarn.conf)" "201 tarn-gateway,202 tarn-policy,203 tarn-static,204 tarn-tunnel," "our protocols named"

# A move never leaves a moment without a default route: the kernel hears of the new one first.
# Monitors are bounded in time: a failure before their kill must not leave them behind.
timeout 10 ip -4 monitor route >/tmp/monitor 2>&1 &
monitor=$!
sleep 0.2
tool --set-slave-data -4 wan0 yes
sleep 0.2
kill "$monitor"
expect_eq "$(grep -m1 default /tmp/monitor | sed 's/ *$//')" "default via 198.51.100.1 dev wan1 proto tarn-gateway metric 50" \
    "the first route change of a move"
tool --set-slave-data -4 wan0 no

# Each row: what happens, then the one default route of ours it must leave (or none).
while IFS='|' read -r what action want; do
    eval "$action" || fail "$what: exit status $?"
    tool --refresh-gateway -4 || fail "$what: refresh"
    expect_eq "$(defaults -4 | grep tarn-gateway || true)" "$want" "$what"
    expect_eq "$(defaults -4 | grep static)" "203.0.113.1 oth0 static 100" "$what: others' route"
done <<'ROWS'
wan0 marked slave|tool --set-slave-data -4 wan0 yes|198.51.100.1 wan1 tarn-gateway 50
mark cleared|tool --set-slave-data -4 wan0 no|192.0.2.1 wan0 tarn-gateway 50
wan0 carrier lost, still up|ip link set wan0p down|198.51.100.1 wan1 tarn-gateway 50
carrier back|ip link set wan0p up|192.0.2.1 wan0 tarn-gateway 50
wan0 up without its address|ip addr del 192.0.2.2/24 dev wan0|198.51.100.1 wan1 tarn-gateway 50
address back|ip addr add 192.0.2.2/24 dev wan0|192.0.2.1 wan0 tarn-gateway 50
wan0 gateway off its link: the next tried|tool --add-gateway-info -4 10 wan0 198.51.100.9 192.0.2.53 wan|198.51.100.1 wan1 tarn-gateway 50
gateway back|tool --add-gateway-info -4 10 wan0 192.0.2.1 192.0.2.53 wan|192.0.2.1 wan0 tarn-gateway 50
wan0 record deleted|tool --del-gateway-info -4 wan0|198.51.100.1 wan1 tarn-gateway 50
deleted again|tool --del-gateway-info -4 wan0|198.51.100.1 wan1 tarn-gateway 50
wan1 copied to wan9, kept|tool --copy-gateway-info -4 wan1 wan9|198.51.100.1 wan1 tarn-gateway 50
both records down|ip link set wan0 down && ip link set wan1 down|
ROWS
ip link set wan0 up && ip link set wan1 up
# The links' IPv6 addresses went with them.
ip addr add 2001:db8:1::2/64 dev wan0 nodad
ip addr add 2001:db8:2::2/64 dev wan1 nodad
expect_eq "$(tool --get-gateway-data-by-interface -4 wan9 | tr '\n' ,)" "class=,dns=198.51.100.53,gateway=198.51.100.1,priority=20," "the copy"
refused tool --copy-gateway-info -4 nosuch0 wan9

ok tool --add-gateway-info -6 5 wan1 2001:db8:2::1 2001:db8:2::53 wan
ok tool --add-gateway-info -6 7 wan0 fe80::1 2001:db8:1::53
ok tool --refresh-gateway all
expect_eq "$(defaults -6)" "2001:db8:2::1 wan1 tarn-gateway 50" "IPv6 route"
ok tool --set-slave-data -6 wan1 yes
expect_eq "$(defaults -6)" "fe80::1 wan0 tarn-gateway 50" "IPv6 route after the slave mark"
expect_eq "$(tool --get-interface-by-class -6 wan)" wan1 "IPv6 by class"

ok tool --reset-ipv6-module wan0
expect_eq "$(cat /proc/sys/net/ipv6/conf/wan0/disable_ipv6)|$(ip -6 addr show dev wan0 scope global)" "0|" \
    "disable_ipv6 restored, global IPv6 address dropped by the reset"
refused tool --reset-ipv6-module nosuch0

before=$(cat /etc/route-mgt/gateway_priority)
daemon_stop
# As after a reboot: no default route of ours until the daemon chooses one from its records.
ip -4 route flush proto tarn-gateway && ip -6 route flush proto tarn-gateway
# A reset cut short by a kill left IPv6 off and its value written down: the next start restores it.
echo 1 >/proc/sys/net/ipv6/conf/wan0/disable_ipv6
mkdir -p /run/tarn/ipv6-reset && echo 0 >/run/tarn/ipv6-reset/wan0
daemon_start
expect_eq "$(cat /proc/sys/net/ipv6/conf/wan0/disable_ipv6)|$(ls /run/tarn/ipv6-reset)" "0|" "a cut-short reset finished at start"
expect_eq "$(cat /etc/route-mgt/gateway_priority)" "$before" "record file across a restart"
expect_eq "$(defaults -4 | grep tarn-gateway)|$(defaults -6)" \
    "198.51.100.1 wan1 tarn-gateway 50|fe80::1 wan0 tarn-gateway 50" "default routes chosen at start, with no call"
echo ok
