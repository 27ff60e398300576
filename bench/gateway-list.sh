#!/usr/bin/env bash
# Times `tarnnetdtool --get-gateway-list-data -4` against the same bus method called with
# busctl, in one hyperfine run, and prints the ratio of their medians (tool / busctl). Runs as
# root inside the system tests' namespaces, against tarnnetd on a private bus with four records.
set -euo pipefail
. "$(dirname "$0")/daemon.sh"
bus_start
daemon_start
for i in 1 2 3 4; do
    "$TOOL" --add-gateway-info -4 "$i" "wan$i" "192.0.2.$i" 192.0.2.53 wan
done

csv=/tmp/bench.csv
hyperfine --shell=none --warmup 20 --runs 300 --export-csv "$csv" \
    "$TOOL --get-gateway-list-data -4" \
    "busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 GetGatewayList s '{\"type\":\"GTYPE_V4\"}'"
# Columns: command,mean,stddev,median,...; the tool is the first row after the header.
awk -F, 'NR == 2 { tool = $4 } NR == 3 { busctl = $4 }
    END { printf "median tarnnetdtool %.3f ms, busctl %.3f ms, ratio %.2f\n", tool * 1000, busctl * 1000, tool / busctl }' "$csv"
