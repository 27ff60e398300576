#!/bin/sh
# --get-internal-network over the kernel's addresses of lbr0 and gbr0: both families, sorted,
# each network once, link-local and other interfaces left out.
set -eu
. "$(dirname "$0")/lib.sh"

out=$("$TOOL" --get-internal-network 2>/tmp/err) || fail "exit status $? without the interfaces"
expect_eq "$out" "" "output without the interfaces"

veth lbr0
veth gbr0
ip addr add 192.0.2.1/24 dev lbr0
ip addr add 198.51.100.7/25 dev lbr0
ip addr add 2001:db8:1::1/64 dev lbr0 nodad
ip addr add 203.0.113.9/24 dev gbr0
ip addr add 192.0.2.77/24 dev gbr0
ip addr add 169.254.3.3/16 dev gbr0
ip addr add 2001:db8:2::5/48 dev gbr0 nodad
ip addr add 203.0.113.200/25 dev lbr0p
ip addr add 2001:db8:9::1/64 dev gbr0p nodad

out=$("$TOOL" --get-internal-network extra words 2>/tmp/err) || fail "exit status $?"
expect_eq "$out" "192.0.2.0/24
198.51.100.0/25
2001:db8:1::/64
2001:db8:2::/48
203.0.113.0/24" "internal networks"
expect_eq "$(cat /tmp/err)" "" "standard error"
echo ok
