#!/usr/bin/env bash
# Times, in one hyperfine run, `tarnnetdtool --enable-route-table` with a source of 8 addresses
# and `tarnnetdtool --get-route-tables -4` over a main table of about 1,000 routes, against
# `ip -j route show table all`, and prints the ratios of the medians (tool / ip). Runs as root
# only, inside network and mount namespaces of its own with a private /etc and /run, since the
# tool writes its state there.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)

if [ -z "${TARN_BENCH_READY:-}" ]; then
    . "$ROOT/scripts/common.sh"
    bench_build
    if [ "$(id -u)" != 0 ] || ! unshare --net --mount true 2>/dev/null; then
        echo "needs root and network and mount namespaces: the tool changes routing and /etc" >&2
        exit 77
    fi
    TARN_BENCH_READY=1 exec unshare --net --mount --propagation private "$0" "$@"
fi

scratch=$(mktemp -d)
trap 'umount /etc /run 2>/dev/null; rm -rf "$scratch"' EXIT
mkdir "$scratch/upper" "$scratch/work"
mount -t overlay tarn-bench-etc -o "lowerdir=/etc,upperdir=$scratch/upper,workdir=$scratch/work" /etc
mount -t tmpfs tarn-bench-run /run

ip link set lo up
ip link add wan0 type veth peer name wan0p
ip link set wan0 up
ip link set wan0p up
source=""
for i in $(seq 10 17); do
    ip addr add "192.0.2.$i/24" dev wan0
    source="$source${source:+,}192.0.2.$i"
done
# Every network from /25 to /32 of two documentation ranges: 1,020 routes in main.
for range in 198.51.100 203.0.113; do
    for length in 25 26 27 28 29 30 31 32; do
        step=$((1 << (32 - length)))
        for ((host = 0; host < 256; host += step)); do echo "route add $range.$host/$length via 192.0.2.1 dev wan0"; done
    done
done | ip -batch -

tool="$ROOT/build/tarnnetdtool"
"$tool" --add-policy-route-rule -4 multi-gateway wan0 NULL NULL 192.0.2.1
"$tool" --enable-route-table -4 wan0 "$source"

json="$scratch/times.json"
hyperfine --shell=none --warmup 20 --runs 300 --export-json "$json" \
    "$tool --enable-route-table -4 wan0 $source" "$tool --get-route-tables -4" "ip -j route show table all" >&2
# The commands hold commas, so the medians are taken from the JSON export, in the order given.
grep -o '"median": *[0-9.e+-]*' "$json" | awk -F': *' '{ m[NR] = $2 }
    END { printf "median enable-route-table %.3f ms, get-route-tables %.3f ms, ip %.3f ms; ratios %.2f and %.2f\n",
          m[1] * 1000, m[2] * 1000, m[3] * 1000, m[1] / m[3], m[2] / m[3] }'
