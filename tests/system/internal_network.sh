#!/bin/sh
# --get-internal-network over the kernel's addresses of lbr0 and gbr0: both families, sorted,
# each network once, link-local and other interfaces left out.
set -eu
. "$(dirname "$0")/lib.sh"
out=$(ok "$TOOL" --get-internal-network)
expect_eq "$out" "" "output without the interfaces"
veth lbr0 gbr0
for a in 192.0.2.1/24:lbr0 198.51.100.7/25:lbr0 2001:db8:1::1/64:lbr0 203.0.113.9/24:gbr0 192.0.2.77/24:gbr0 \
    169.254.3.3/16:gbr0 2001:db8:2::5/48:gbr0 203.0.113.200/25:lbr0p 2001:db8:9::1/64:gbr0p; do
    ip addr add "${a%:*}" dev "${a##*:}" nodad
done
out=$(ok "$TOOL" --get-internal-network extra words 2>&1)
expect_eq "$(echo $out)" "192.0.2.0/24 198.51.100.0/25 2001:db8:1::/64 2001:db8:2::/48 203.0.113.0/24" "internal networks and standard error"
echo ok
