#!/bin/bash
# The package on a running system (package_boot.sh TOOL PROBE BUILD): in a virtual machine booted
# into systemd, whose root keeps its writes in memory, dpkg installs it and starts tarnnetd under
# its hardened unit. Within the unit's limits the daemon stores a change and sets the default
# route, probes its uplink and resets a link's IPv6; systemd starts it again after the system bus
# restarts; the boot path's unit succeeds; removing the package stops the daemon.
set -eu
. "$(dirname "$0")/vm.sh"
. "$(dirname "$0")/assert.sh"
if [ -z "${TARN_IN_VM:-}" ]; then
    [ "$(id -u)" = 0 ] || skip "needs root"
    vm_ready || skip "no virtual machine (scripts/vm-kernel.sh)"
    for program in cpack systemctl dbus-daemon busctl; do command -v $program >/dev/null || skip "no $program"; done
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cpack --config "$3/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }
    result=0
    vm_boot "$0" "$@" "$(echo "$work"/*.deb)" || result=$?
    exit "$result"
fi

# A host's ban on starting services (containers' images have one), and man-db's index, slow
# under emulation.
rm -f /usr/sbin/policy-rc.d /var/lib/man-db/auto-update
ok dpkg -i "$4" >/dev/null
expect_eq "$(systemctl is-active tarnnetd.service)" active "tarnnetd after the install"

ip link add wan1 type veth peer name wan1p
ip netns add up
ip link set wan1p netns up
ip addr add 198.51.100.2/24 dev wan1 && ip link set wan1 up
ip -n up addr add 198.51.100.1/24 dev wan1p && ip -n up link set wan1p up
echo '{"interfaces": {"wan1": {"targets": ["198.51.100.1"]}}}' >/etc/route-mgt/tracking
ok systemctl reload tarnnetd.service
ok tarnnetdtool --add-gateway-info -4 1 wan1 198.51.100.1 198.51.100.53 wan
wait_for 100 sh -c 'ip route show default | grep -q "via 198.51.100.1 dev wan1 proto tarn-gateway metric 50"' ||
    fail "no default route via wan1: $(ip route show default)"
online() { busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 GetUplinkState s '{}' | grep -q 'state\\":\\"online'; }
wait_for 100 online || fail "wan1 not online: $(journalctl -u tarnnetd.service --no-pager | tail -n 5)"
ok tarnnetdtool --reset-ipv6-module wan1

pid=$(systemctl show -p MainPID --value tarnnetd.service)
ok systemctl restart dbus.service
restarted() { [ "$(systemctl show -p MainPID --value tarnnetd.service)" != "$pid" ] && [ "$(tarnnetdtool --is-server-ready)" = 1 ]; }
wait_for 100 restarted || fail "tarnnetd not back after the bus restarted: $(systemctl status tarnnetd.service --no-pager)"
holds "$(tarnnetdtool --get-gateway-list-data -4)" '"ifname" : "wan1"' "the record after the restart"
expect_eq "$(journalctl -u tarnnetd.service --no-pager | grep -c 'the system bus went away')" 1 "log lines of the bus's end"

ok systemctl start tarn-restore.service
ok dpkg -r tarnnetdtool >/dev/null
expect_eq "$(systemctl is-active tarnnetd.service)" inactive "tarnnetd after remove"
echo ok
