#!/usr/bin/env bash
# Times `tarnnetdtool --apply-new-prefix` of an unchanged prefix (a renewal: every consumer
# already holds its /64) with 16 consumers on a /48 against `ip -j route show` in one hyperfine
# run per VPN setting (its IPv6 off, then on) and prints the ratio of their medians (tool / ip,
# target at most 3); then times EnumPrefix64 over a /0 and its peak heap. Runs as root inside network and mount namespaces of
# its own, with private /etc, /run, /tmp, /usr and /var, so the host is untouched.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
CONSUMERS=16

if [ -z "${TARN_BENCH_READY:-}" ]; then
    [ "$(id -u)" = 0 ] || { echo "needs root for its own namespaces" >&2; exit 1; }
    . "$ROOT/scripts/common.sh"
    bench_build
    # shellcheck disable=SC2046
    g++ -std=c++17 -O2 -Wall -Wextra -Werror -I "$ROOT/platform/api" -I "$ROOT/platform/linux" $(pkg-config --cflags jsoncpp) \
        -o "$ROOT/build/enum64" "$ROOT/bench/enum64.cpp" "$ROOT/platform/linux/router6/prefix.cpp" \
        "$ROOT/platform/linux/hostkit/inet.cpp"
    exec unshare --net --mount --propagation private "$0" "$@"
fi

# The store's writes land in ${TARN_BENCH_STORE:-a tmpfs} (give a directory on disk to count
# the cost of its fsyncs there); either way the overlay ends with the namespace.
base=${TARN_BENCH_STORE:-/tmp}
[ -n "${TARN_BENCH_STORE:-}" ] || mount -t tmpfs bench-tmp /tmp
work=$(mktemp -d "$base/ipv6-router.XXXXXX")
trap 'umount /etc /usr /var 2>/dev/null || true; rm -rf "$work"' EXIT
for dir in /etc /usr /var; do
    name=$(echo $dir | tr / _)
    mkdir "$work/upper$name" "$work/work$name"
    mount -t overlay "bench$name" -o "lowerdir=$dir,upperdir=$work/upper$name,workdir=$work/work$name" $dir
done
mount -t tmpfs bench-run /run
ip link set lo up

# 15 interfaces and the VPN server, whose restart script does nothing.
owners=
for i in $(seq 0 $((CONSUMERS - 2))); do
    ip link add "c$i" type veth peer name "c${i}p"
    ip link set "c$i" up
    owners="$owners{\"owner\": \"c$i\"}, "
done
vpn=/usr/tarn/etc/packages/Tunnelbay
mkdir -p $vpn/openvpn /var/packages/Tunnelbay/target/scripts /etc/route-mgt/ipv6-router
echo ovpn_enable_ipv6=yes >$vpn/tarnvpn.conf
echo "server-ipv6 2001:db8:ffff::/64" >$vpn/openvpn/openvpn.conf
printf '#!/bin/sh\nexit 0\n' >/var/packages/Tunnelbay/target/scripts/openvpn.sh
chmod 755 /var/packages/Tunnelbay/target/scripts/openvpn.sh
echo "{\"type\": \"native\", \"prefix\": \"\", \"consumers\": [$owners{\"owner\": \"ovpn\"}]}" \
    >/etc/route-mgt/ipv6-router/wan0
"$ROOT/build/tarnprefix" set wan0 2001:db8:1200::/48 3600 7200 >/dev/null
# Routes for ip to list: each consumer's /64 once the first run has handed them out.
"$ROOT/build/tarnnetdtool" --apply-new-prefix wan0

# measure VPN_IPV6: with the VPN server's IPv6 off only its record moves; on, every run also
# rewrites its configuration and runs its restart script.
measure() {
    echo "ovpn_enable_ipv6=$1" >$vpn/tarnvpn.conf
    csv="$work/times-$1.csv"
    hyperfine --shell=none --warmup 10 --runs 100 --export-csv "$csv" \
        "$ROOT/build/tarnnetdtool --apply-new-prefix wan0" "ip -j route show" >&2
    # Columns: command,mean,stddev,median,user,system,...; the tool is the first row after the
    # header. CPU time (mean user + system) moves less than wall time on a shared machine.
    awk -F, -v vpn="$1" 'NR == 2 { tool = $4; toolCpu = $5 + $6 } NR == 3 { ip = $4; ipCpu = $5 + $6 }
        END { printf "median --apply-new-prefix of an unchanged prefix (16 consumers, /48, VPN IPv6 %s) %.3f ms, " \
              "ip -j route show %.3f ms, ratio %.2f (target at most 3); CPU %.3f ms against %.3f ms, ratio %.2f\n",
              vpn, tool * 1000, ip * 1000, tool / ip, toolCpu * 1000, ipCpu * 1000, toolCpu / ipCpu }' "$csv"
}
measure no
measure yes
/usr/bin/time -f "enum64 peak RSS %M KiB" "$ROOT/build/enum64" 1000
