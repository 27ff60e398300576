#!/bin/sh
# --gen-DUID: a DUID-LL from the lowest-index interface with a real MAC address.
set -eu
. "$(dirname "$0")/lib.sh"

status=0
out=$("$TOOL" --gen-DUID 2>/tmp/err) || status=$?
expect_eq "$status:$out" "255:" "only the loopback interface"
expect_eq "$(cat /tmp/err)" "Failed to generate DUID" "standard error"

veth duid0
first=duid0
second=duid0p
ifindex() { ip -o link show dev "$1" | cut -d: -f1; }
if [ "$(ifindex duid0p)" -lt "$(ifindex duid0)" ]; then
    first=duid0p
    second=duid0
fi
ip link set "$second" address 02:00:00:00:00:99
ip link set "$first" address 02:42:C0:A8:00:02
out=$("$TOOL" --gen-DUID) || fail "exit status $?"
expect_eq "$out" "00:03:00:01:02:42:c0:a8:00:02" "DUID of $first"
echo ok
