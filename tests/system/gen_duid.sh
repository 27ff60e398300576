#!/bin/sh
# --gen-DUID: a DUID-LL from the lowest-index interface with a real MAC address.
set -eu
. "$(dirname "$0")/lib.sh"
expect_eq "$(status "$TOOL" --gen-DUID):$("$TOOL" --gen-DUID 2>&1 || true)" "255:Failed to generate DUID" "only the loopback"
veth duid0
# The lower index gets the address that counts, the higher a lower address.
first=duid0 second=duid0p
[ "$(ip -o link show duid0p | cut -d: -f1)" -gt "$(ip -o link show duid0 | cut -d: -f1)" ] || first=duid0p second=duid0
ip link set "$second" address 02:00:00:00:00:99
ip link set "$first" address 02:42:C0:A8:00:02
out=$(ok "$TOOL" --gen-DUID)
expect_eq "$out" "00:03:00:01:02:42:c0:a8:00:02" "DUID of $first"
echo ok
