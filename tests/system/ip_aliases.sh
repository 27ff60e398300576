#!/bin/sh
# TARNNetIpAliasList: every IPv4 address of the interface except the one the device's ifconfig
# shows, in the kernel's order.
set -eu
. "$(dirname "$0")/lib.sh"
veth wan0
ip addr add 203.0.113.10/24 dev wan0 label wan0:1
for a in 192.0.2.10/24 192.0.2.11/24 198.51.100.20/25 192.0.2.12/28; do ip addr add $a dev wan0; done
out=$(ok "$PROBE" aliases wan0)
expect_eq "$(echo $out)" "203.0.113.10/24 198.51.100.20/25 192.0.2.12/28 192.0.2.11/24" "aliases of wan0"
out=$(ok "$PROBE" aliases wan0p)
expect_eq "$out" "" "aliases of an interface without IPv4"
expect_eq "$(status "$PROBE" aliases nosuch0)" 255 "unknown interface"
echo ok
