#!/usr/bin/env bash
# Times `tarnnetdtool --get-internal-network` against `ip -br addr show` in one hyperfine run
# and prints the ratio of their medians (tool / ip). As root it measures inside a network
# namespace of its own where lbr0 and gbr0 carry addresses; otherwise on the host as it is.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)

if [ -z "${TARN_BENCH_READY:-}" ]; then
    . "$ROOT/scripts/common.sh"
    bench_build
    if [ "$(id -u)" = 0 ] && unshare --net true 2>/dev/null; then
        exec unshare --net "$0" "$@"
    fi
    echo "not root or no network namespaces: measuring on the host's interfaces" >&2
elif [ "$(id -u)" = 0 ]; then
    ip link set lo up
    for link in lbr0 gbr0; do
        ip link add "$link" type veth peer name "${link}p"
        ip link set "$link" up
    done
    ip addr add 192.0.2.1/24 dev lbr0
    ip addr add 2001:db8:1::1/64 dev lbr0 nodad
    ip addr add 198.51.100.1/24 dev gbr0
    ip addr add 2001:db8:2::1/64 dev gbr0 nodad
fi

csv=$(mktemp)
trap 'rm -f "$csv"' EXIT
hyperfine --shell=none --warmup 20 --runs 300 --export-csv "$csv" \
    "$ROOT/build/tarnnetdtool --get-internal-network" "ip -br addr show"
# Columns: command,mean,stddev,median,...; the tool is the first row after the header.
awk -F, 'NR == 2 { tool = $4 } NR == 3 { ip = $4 }
    END { printf "median tarnnetdtool %.3f ms, ip %.3f ms, ratio %.2f\n", tool * 1000, ip * 1000, tool / ip }' "$csv"
