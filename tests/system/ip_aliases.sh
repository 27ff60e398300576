#!/bin/sh
# TARNNetIpAliasList: every IPv4 address of the interface except the one ifconfig shows (the
# device's busybox ifconfig, bind-mounted over /sbin/ifconfig), in the kernel's order.
set -eu
. "$(dirname "$0")/lib.sh"

device_ifconfig

veth wan0
ip addr add 203.0.113.10/24 dev wan0 label wan0:1
ip addr add 192.0.2.10/24 dev wan0
ip addr add 192.0.2.11/24 dev wan0
ip addr add 198.51.100.20/25 dev wan0
ip addr add 192.0.2.12/28 dev wan0

shown=$(/sbin/ifconfig wan0 | sed -n 's/.*inet addr:\([0-9.]*\).*/\1/p')
expect_eq "$shown" "192.0.2.10" "address that ifconfig shows"
out=$("$PROBE" aliases wan0) || fail "exit status $?"
expect_eq "$out" "203.0.113.10/24
198.51.100.20/25
192.0.2.12/28
192.0.2.11/24" "aliases of wan0"

out=$("$PROBE" aliases wan0p) || fail "interface without IPv4: exit status $?"
expect_eq "$out" "" "aliases of an interface without IPv4"
status=0
"$PROBE" aliases nosuch0 2>/dev/null || status=$?
expect_eq "$status" 255 "unknown interface"
echo ok
