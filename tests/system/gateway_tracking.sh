#!/bin/bash
# tarnnetd moves the default route by itself: on carrier and address loss, when an upstream
# stops answering while the link stays up (nftables in the upstream's namespace), and back; not
# at 10 % random loss; never to no route at all. Its file is read again on SIGHUP, its scripts
# run and its signal goes out on every change, and it answers calls through a storm of link flaps.
set -eu
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
command -v nft >/dev/null || skip "no nft"
bus_start

# Two upstreams, each in a namespace of its own, both reaching the target 203.0.113.10.
for row in 1:192.0.2 2:198.51.100; do
    n=${row%:*} net=${row#*:}
    ip netns add "up$n"
    ip link add "wan$n" type veth peer name "wan${n}p" netns "up$n"
    ip link set "wan$n" up
    ip -n "up$n" link set "wan${n}p" up
    ip -n "up$n" link set lo up
    ip netns exec "up$n" sysctl -qw net.ipv6.conf.all.keep_addr_on_down=1
    ip -n "up$n" addr add 203.0.113.10/32 dev lo
    ip -n "up$n" addr add "$net.1/24" dev "wan${n}p"
    ip -n "up$n" addr add "2001:db8:$n::1/64" dev "wan${n}p" nodad
    ip addr add "$net.2/24" dev "wan$n"
    ip addr add "2001:db8:$n::2/64" dev "wan$n" nodad
done
ip -n up2 addr add 2001:db8:f::10/128 dev lo
trap 'ip netns del up1; ip netns del up2; bus_stop' EXIT

mkdir -p /etc/route-mgt/tracking.d
printf '#!/bin/sh\necho "$TARN_INTERFACE $TARN_FAMILY $TARN_PREVIOUS_STATE>$TARN_STATE"\n' >/etc/route-mgt/tracking.d/10-note
printf '#!/bin/sh\nsleep 30\n' >/etc/route-mgt/tracking.d/20-hang
chmod 755 /etc/route-mgt/tracking.d/10-note /etc/route-mgt/tracking.d/20-hang
# A file that names a bad value keeps the daemon from starting, with the place and the reason.
echo '{ "interfaces": { "wan1": { "targets": [ "192.0.2.300" ] } } }' >/etc/route-mgt/tracking
started=0
said=$("$DAEMON" 2>&1) || started=$?
expect_eq "$started|$said" "1|tarnnetd: /etc/route-mgt/tracking: interfaces.wan1.targets[0]: must be an IPv4 or IPv6 address" \
    "a bad file at start"
printf '{ "script_timeout": 0.5, "interfaces": { "wan1": { "targets": [ "203.0.113.10" ] }, "wan2": { "targets": [ "2001:db8:f::10" ] } } }\n' \
    >/etc/route-mgt/tracking
daemon_start
ok "$TOOL" --add-gateway-info -4 10 wan1 192.0.2.1 192.0.2.53
ok "$TOOL" --add-gateway-info -4 20 wan2 198.51.100.1 198.51.100.53
ok "$TOOL" --add-gateway-info -6 10 wan1 2001:db8:1::1 2001:db8:1::53
ok "$TOOL" --add-gateway-info -6 20 wan2 2001:db8:2::1 2001:db8:2::53

ours() { ip -4 route show default proto 201 | awk '{ print $5 }'; }
# moves_to DEV SECONDS: waits for our default route out of DEV; prints the milliseconds it took.
moves_to() {
    local start now
    start=$(date +%s%N)
    while [ "$(ours)" != "$1" ]; do
        now=$(date +%s%N)
        [ $(((now - start) / 1000000)) -lt $(($2 * 1000)) ] || fail "no default via $1 within $2 s: $(ours) $(tail -5 "$DAEMON_LOG")"
        sleep 0.01
    done
    echo $((($(date +%s%N) - start) / 1000000))
}
drop() { ip netns exec "up$1" nft add table inet fault "{ chain in { type filter hook input priority 0; $2 ; } ; }"; }
heal() { ip netns exec "up$1" nft delete table inet fault; }
state() { busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 GetUplinkState s '{}' | sed 's/\\"/"/g'; }

# All four online: wan2's IPv6 target lies beyond its gateway while wan1 holds the IPv6 default,
# and answers through the probe table.
all_online() { [ "$(state | grep -o '"state":"online"' | wc -l)" = 4 ]; }
wait_for 20 all_online || fail "not online: $(state)"

timeout 60 gdbus monitor --system --dest net.tarn.Netd1 >/tmp/signals 2>&1 &
watcher=$!
# Each row: a fault or its end, the uplink the default route must then leave by, and the
# bound in seconds.
while IFS='|' read -r what action want bound; do
    eval "$action"
    took=$(moves_to "$want" "$bound") || exit 1
    echo "$what: $took ms"
done <<'ROWS'
carrier lost, link still up|ip -n up1 link set wan1p down|wan2|1
carrier back|ip -n up1 link set wan1p up|wan1|2
address lost|ip addr del 192.0.2.2/24 dev wan1|wan2|1
address back|ip addr add 192.0.2.2/24 dev wan1|wan1|2
upstream drops everything|drop 1 "ip saddr 192.0.2.2 drop"|wan2|5
ROWS
holds "$(cat "$DAEMON_LOG")" "wan1: offline (7 bad rounds, 0 of 1 target answered)" "the change's log line"
holds "$(state)" '"ifname":"wan1","link":"up","loss_percent"' "state after the fault"
holds "$(state)" '"state":"offline"' "wan1 offline"
signal='{"ifname":"wan1","previous":"online","reason":"7 bad rounds, 0 of 1 target answered","state":"offline","type":"GTYPE_V4"}'
wait_for 20 grep -qF "UplinkChanged ('$signal',)" /tmp/signals || fail "no signal: $(cat /tmp/signals)"
kill "$watcher"
wait_for 20 grep -q "10-note: wan1 GTYPE_V4 online>offline" "$DAEMON_LOG" || fail "the script's output not in the log"
wait_for 20 grep -q '20-hang: killed, past its time limit' "$DAEMON_LOG" || fail "a hung script not killed"

# Back only after 10 good rounds (4 s): not yet after 2 s.
heal 1
sleep 2
expect_eq "$(ours)" wan2 "2 s into the recovery"
echo "recovery: $(moves_to wan1 4) ms more"

# Every uplink offline: the most preferred one keeps the default route.
drop 1 "ip saddr 192.0.2.2 drop"
drop 2 "ip saddr 198.51.100.2 drop"
wait_for 60 grep -q 'wan2: offline' "$DAEMON_LOG" || fail "wan2 not offline"
expect_eq "$(ours)" wan1 "every uplink offline"
heal 1
heal 2
wait_for 60 all_online || fail "not back online: $(state)"

# SIGHUP: a broken file keeps the configuration and the state; a good one brings new targets
# with no change of state.
changes() { grep -c -E ': (online|offline|unknown) \(' "$DAEMON_LOG"; }
before=$(changes)
echo '{ "interfaces": { "wan1": { "down": 0 } } }' >/etc/route-mgt/tracking
kill -HUP "$DAEMON_PID"
wait_for 20 grep -q 'interfaces.wan1.down: must be a whole number from 1 to 1000; the previous configuration stays' "$DAEMON_LOG" ||
    fail "no line for the broken file"
printf '{ "interfaces": { "wan1": { "targets": [ "192.0.2.1", "203.0.113.10" ], "reliability": 2 }, "wan2": {} } }\n' \
    >/etc/route-mgt/tracking
kill -HUP "$DAEMON_PID"
sleep 1
holds "$(state)" '"targets":2' "new targets used"
holds "$(state)" '"answered":2' "both new targets answer"

# 10 % random loss on the preferred uplink for 60 s: no change of state at all.
drop 1 "numgen random mod 10 0 drop"
sleep 60
heal 1
expect_eq "$(changes)" "$before" "changes of state since the reloads: $(tail -3 "$DAEMON_LOG")"

# A storm of link flaps while a caller asks all along: it is answered every time, and the
# route ends right.
(for i in $(seq 40); do "$TOOL" --get-gateway-list-data -4 >/dev/null || echo "call $i failed"; done) >/tmp/calls 2>&1 &
caller=$!
for i in $(seq 100); do ip -n up1 link set wan1p down; ip -n up1 link set wan1p up; done
wait "$caller"
expect_eq "$(cat /tmp/calls)" "" "calls during the flaps"
moves_to wan1 2 >/dev/null

# A burst past the receive buffer while the daemon stands still, then carrier loss: it reads
# everything again, and goes on hearing the kernel after the overrun.
kill -STOP "$DAEMON_PID"
printf 'address add 198.51.100.200/32 dev lo\naddress del 198.51.100.200/32 dev lo\n%.0s' $(seq 4000) | ip -batch -
ip -n up1 link set wan1p down
kill -CONT "$DAEMON_PID"
moves_to wan2 2 >/dev/null
holds "$(cat "$DAEMON_LOG")" "notifications lost (" "the overrun's log line"
ip -n up1 link set wan1p up
moves_to wan1 2 >/dev/null
echo ok
