#!/bin/bash
# The multi-gateway actions end to end: WANs from tarnnetd, addresses from the device's ifconfig
# (an IP alias on wan1 included). Traffic from each WAN address leaves by its own WAN, a rerun
# changes nothing, disabling leaves the source rules.
set -eu
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
bus_start
daemon_start
device_ifconfig
# via FAMILY SOURCE DESTINATION: "gateway dev" of the kernel's choice for that traffic.
via() { ip "$1" route get "$3" from "$2" | sed -n 's/.* via \([^ ]*\) dev \([^ ]*\).*/\1 \2/p'; }
enable() { ok "$TOOL" --enable-multi-gateway; ok "$TOOL" --enable-multi-gateway-v6; }

veth wan1 wan2 lan0
ip addr add 192.0.2.50/24 dev wan1 label wan1:1
for a in 198.51.100.2/25:wan1 203.0.113.2/25:wan2 2001:db8:1::2/64:wan1 2001:db8:2::2/64:wan2 198.51.100.200/25:lan0; do
    ip addr add "${a%:*}" dev "${a##*:}" nodad
done
for g in "-4 1 wan1 198.51.100.1 wan" "-4 2 wan2 203.0.113.1 wan" "-4 3 lan0 198.51.100.129 lan" \
    "-6 1 wan1 2001:db8:1::1 wan" "-6 2 wan2 2001:db8:2::1 wan"; do
    set -- $g && ok "$TOOL" --add-gateway-info "$1" "$2" "$3" "$4" "$4" "$5"
done
ok "$TOOL" --refresh-gateway all

enable
first=$(routing_state)
enable
expect_eq "$(routing_state)" "$first" "kernel state after enabling again"
far=203.0.113.200 far6=2001:db8:ff::1
for row in "-4 192.0.2.50 $far 198.51.100.1 wan1" "-4 203.0.113.2 $far 203.0.113.1 wan2" \
    "-6 2001:db8:1::2 $far6 2001:db8:1::1 wan1" "-6 2001:db8:2::2 $far6 2001:db8:2::1 wan2"; do
    set -- $row
    expect_eq "$(via "$1" "$2" "$3")" "$4 $5" "route to $3 from $2"
done

ok "$TOOL" --disable-multi-gateway
ok "$TOOL" --disable-multi-gateway-v6
ip rule | grep -q 'from 192.0.2.50 lookup wan1' || fail "the alias's source rule went with the disable"
echo ok
