#!/usr/bin/env bash
# Times a delegated prefix end to end, 10 re-delegations: Kea upstream moves wan0's /56 between
# pools and dhcpcd renews at once; from the start of its hook, how long until lbr0 and gbr0 carry
# their new /64s (target 0.5 s), and until the LAN host holds a preferred SLAAC address in lbr0's
# new /64 (target 5 s). Prints each median and its target. Runs as root inside network and mount
# namespaces of its own, with private /etc, /run, /tmp, /usr and /var, so the host is untouched.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
RUNS=10

if [ -z "${TARN_BENCH_READY:-}" ]; then
    [ "$(id -u)" = 0 ] || { echo "needs root for its own namespaces" >&2; exit 1; }
    . "$ROOT/scripts/common.sh"
    bench_build
    exec unshare --net --mount --propagation private "$0" "$@"
fi

. "$ROOT/scripts/kea-pd.sh"
# Binaries, hook and advertisement settings are opened before the private /tmp may hide them.
exec 3<"$ROOT/build/tarnnetdtool" 4<"$ROOT/build/tarnprefix" 5<"$ROOT/tarnprefix/dhcpcd-hook" 6<"$ROOT/tarnprefix/dnsmasq-ra.conf"
mount -t tmpfs bench-tmp /tmp
W=/tmp/pd
mkdir -p $W/bin $W/hooks $W/kea
for dir in /etc /usr /var; do
    name=$(echo $dir | tr / _)
    mkdir "$W/upper$name" "$W/work$name"
    mount -t overlay "bench$name" -o "lowerdir=$dir,upperdir=$W/upper$name,workdir=$W/work$name" $dir
done
mount -t tmpfs bench-run /run
cp /proc/self/fd/3 $W/bin/tarnnetdtool && cp /proc/self/fd/4 $W/bin/tarnprefix && chmod 755 $W/bin/*
cp /proc/self/fd/5 $W/hooks/70-tarnprefix && cp /proc/self/fd/6 $W/ra.conf
exec 3<&- 4<&- 5<&- 6<&-
# The hook's start, stamped by one that runs before it.
echo 'date +%s%N >/tmp/pd/hook-start' >$W/hooks/10-stamp
mount --bind $W/hooks /usr/lib/dhcpcd/dhcpcd-hooks

PIDS=()
cleanup() {
    [ ! -s /run/dhcpcd/wan0-6.pid ] || kill "$(cat /run/dhcpcd/wan0-6.pid)" 2>/dev/null || true
    for pid in "${PIDS[@]}"; do kill "$pid" 2>/dev/null || true; done
}
trap cleanup EXIT
holder() {
    unshare --net setpriv --pdeathsig KILL sleep 3600 &
    HOLDER=$!
    PIDS+=("$!")
    until [ "$(readlink /proc/$HOLDER/ns/net)" != "$(readlink /proc/self/ns/net)" ]; do sleep 0.02; done
}
in_ns() { nsenter -t "$1" -n "${@:2}"; }
kea_pool() { kea_pd_config up0 2001:db8:0:1::/64 "$1" 300 480 600 900 >$W/kea.conf; }

# The upstream with Kea; the device with lbr0 (a LAN host behind it) and gbr0, dnsmasq and
# dhcpcd on wan0; the router document lists lbr0, gbr0 and the VPN server.
ip link set lo up
holder && UP=$HOLDER
holder && LAN=$HOLDER
ip link add wan0 type veth peer name up0 netns "$UP"
ip link set wan0 up
in_ns "$UP" ip link set up0 up
ip link add lbr0 type bridge
ip link add gbr0 type bridge
ip link add lan0 type veth peer name eth0 netns "$LAN"
ip link set lan0 master lbr0 up
ip link set lbr0 up
ip link set gbr0 up
in_ns "$LAN" ip link set eth0 up
vpn=/usr/tarn/etc/packages/Tunnelbay
mkdir -p $vpn/openvpn /var/packages/Tunnelbay/target/scripts /etc/route-mgt/ipv6-router /run/tarn
echo ovpn_enable_ipv6=no >$vpn/tarnvpn.conf
$W/bin/tarnnetdtool --init-ipv6-router wan0 native
echo '{"type": "native", "prefix": "", "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}' \
    >/etc/route-mgt/ipv6-router/wan0
kea_pool 2001:db8:1000::
KEA_PIDFILE_DIR=$W/kea KEA_LOCKFILE_DIR=$W/kea nsenter -t "$UP" -n kea-dhcp6 -c $W/kea.conf >$W/kea.log 2>&1 &
KEA=$!
PIDS+=("$KEA")
dnsmasq -k --conf-file=$W/ra.conf --pid-file=$W/dnsmasq.pid --dhcp-leasefile=$W/leases --log-facility=$W/dnsmasq.log &
PIDS+=("$!")
printf '%s\n' ipv6only noipv6rs nodelay duid "allowinterfaces wan0" "interface wan0" "    ia_pd 1/::/56" >$W/dhcpcd.conf
PATH=$W/bin:$PATH dhcpcd -6 -B -f $W/dhcpcd.conf wan0 >$W/dhcpcd.log 2>&1 &
PIDS+=("$!")

has6() { ip -6 addr show dev "$1" to "$2" | grep -q inet6; }
both6() { has6 lbr0 "$1::1/64" && has6 gbr0 "$1:1::1/64"; }
preferred_on_host() { in_ns "$LAN" ip -6 -o addr show dev eth0 scope global | grep "inet6 $1" | grep -v -e tentative -e deprecated | grep -q .; }
# until_ns SECONDS COMMAND...: polls COMMAND every 10 ms; prints the time it held.
until_ns() {
    local end=$(($(date +%s) + $1))
    shift
    until "$@"; do
        [ "$(date +%s)" -lt $end ] || { echo "timed out: $*" >&2; exit 1; }
        sleep 0.01
    done
    date +%s%N
}
# One delegation before timing: the first one also starts the LAN host's autoconfiguration.
until_ns 30 both6 2001:db8:1000 >/dev/null
until_ns 30 preferred_on_host 2001:db8:1000: >/dev/null

# Each run moves the /56 to the next of three pools, so an address the host still holds from two
# moves ago is deprecated when its prefix comes back.
: >$W/addresses.ms
: >$W/host.ms
for run in $(seq $RUNS); do
    p=2001:db8:$((1000 + run % 3 * 100))
    rm -f $W/hook-start
    kea_pool "$p::"
    kill -HUP $KEA
    sleep 0.3
    dhcpcd -6 -N wan0 >/dev/null 2>&1
    addresses=$(until_ns 10 both6 "$p")
    host=$(until_ns 10 preferred_on_host "$p:")
    start=$(cat $W/hook-start)
    echo $(((addresses - start) / 1000000)) >>$W/addresses.ms
    echo $(((host - start) / 1000000)) >>$W/host.ms
done

median() { sort -n "$1" | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
range() { sort -n "$1" | sed -n '1p;$p' | paste -sd- ; }
printf 'hook start -> /64s on lbr0 and gbr0:     median %6s ms (%s ms over %d runs), target 500 ms\n' \
    "$(median $W/addresses.ms)" "$(range $W/addresses.ms)" $RUNS
printf 'hook start -> LAN host SLAAC preferred:  median %6s ms (%s ms over %d runs), target 5000 ms\n' \
    "$(median $W/host.ms)" "$(range $W/host.ms)" $RUNS
