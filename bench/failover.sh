#!/usr/bin/env bash
# Failover with tarnnetd's own tracking, at its default settings, in the system tests'
# namespaces: the median of 20 link losses (the uplink's peer goes down) and of 20 path losses
# (its upstream drops everything, nftables, while the link stays up), each from the fault to the
# changed default route; and tarnnetd's CPU over 60 s while it tracks 16 uplinks with 3 targets
# each. Prints each figure with its target. Runs as root; takes about 4 minutes.
set -euo pipefail
. "$(dirname "$0")/daemon.sh"
RUNS=20
UPLINKS=16

# Uplink i: 198.51.100.16i/28, the device .16i+2, its upstream .16i+1 in namespace up<i>, where
# the targets 203.0.113.10-12 live too.
targets='[ "203.0.113.10", "203.0.113.11", "203.0.113.12" ]'
tracked=
for i in $(seq "$UPLINKS"); do
    net=$((16 * (i - 1)))
    ip netns add "up$i"
    ip link add "wan$i" type veth peer name "wan${i}p" netns "up$i"
    ip link set "wan$i" up
    ip -n "up$i" link set "wan${i}p" up
    ip -n "up$i" link set lo up
    ip -n "up$i" addr add "198.51.100.$((net + 1))/28" dev "wan${i}p"
    for t in 10 11 12; do ip -n "up$i" addr add "203.0.113.$t/32" dev lo; done
    ip addr add "198.51.100.$((net + 2))/28" dev "wan$i"
    tracked+="${tracked:+, }\"wan$i\": { \"targets\": $targets }"
done
trap 'for i in $(seq "$UPLINKS"); do ip netns del "up$i"; done; bus_stop' EXIT
mkdir -p /etc/route-mgt
echo "{ \"interfaces\": { $tracked } }" >/etc/route-mgt/tracking
bus_start
daemon_start
for i in $(seq "$UPLINKS"); do
    "$TOOL" --add-gateway-info -4 "$i" "wan$i" "198.51.100.$((16 * (i - 1) + 1))" 192.0.2.53 >/dev/null
done

ours() { ip -4 route show default proto 201 | awk '{ print $5 }'; }
now_ms() { echo $(($(date +%s%N) / 1000000)); }
# until_via DEV: waits for our default route out of DEV; prints the milliseconds it took.
until_via() {
    local start
    start=$(now_ms)
    while [ "$(ours)" != "$1" ]; do
        [ $(($(now_ms) - start)) -lt 30000 ] || fail "no default via $1 within 30 s"
    done
    echo $(($(now_ms) - start))
}
all_online() {
    [ "$(busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 GetUplinkState s '{}' |
        grep -o 'state\\":\\"online' | wc -l)" = "$UPLINKS" ]
}
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
settle() {
    until_via wan1 >/dev/null
    wait_for 200 all_online || fail "uplinks not online"
}

settle
: >/tmp/link
for run in $(seq "$RUNS"); do
    ip -n up1 link set wan1p down
    until_via wan2 >>/tmp/link
    ip -n up1 link set wan1p up
    settle
done
: >/tmp/path
for run in $(seq "$RUNS"); do
    ip netns exec up1 nft add table inet fault '{ chain in { type filter hook input priority 0; ip saddr 198.51.100.2 drop; }; }'
    until_via wan2 >>/tmp/path
    ip netns exec up1 nft delete table inet fault
    settle
done

ticks() { awk '{ print $14 + $15 }' "/proc/$DAEMON_PID/stat"; }
before=$(ticks)
sleep 60
after=$(ticks)
awk -v link="$(median </tmp/link)" -v path="$(median </tmp/path)" -v used=$((after - before)) -v hz="$(getconf CLK_TCK)" 'BEGIN {
    printf "link loss: median %.3f s of 20 (target <= 0.2 s)\n", link / 1000
    printf "path loss: median %.3f s of 20 (target <= 3.5 s)\n", path / 1000
    printf "CPU, 16 uplinks x 3 targets, 60 s: %.2f %% of a core (target < 1 %%)\n", 100 * used / hz / 60
}'
