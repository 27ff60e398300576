#!/bin/sh
# 6in4 and 6to4 routers: the tunnel, its address and default route, one router after two
# Creates, and the 6to4 prefix handed out. Where the kernel has no sit type, Create must fail, and
# the tunnel rows run in a virtual machine whose kernel has it.
set -eu
. "$(dirname "$0")/vm.sh"
# With a remote: sit0 of every namespace already is the tunnel without endpoints.
SIT_PROBE="ip link add tarnprobe type sit remote 198.51.100.254"
if [ -z "${TARN_IN_NAMESPACES:-}" ] && [ "$(id -u)" = 0 ] && ! unshare --net $SIT_PROBE 2>/dev/null && vm_ready; then
    TARN_VM_STATUS=0
    vm_run "$0" "$@" || TARN_VM_STATUS=$?
    export TARN_VM_STATUS
fi
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"
veth wan0 lbr0
ip addr add 192.0.2.1/24 dev wan0
write_document wan0 '{"type": "6in4", "prefix": "2001:db8:1200::/56", "remote": "198.51.100.1",
  "tunnel_address": "2001:db8:ff::2/64", "consumers": [{"owner": "lbr0"}]}'

if ! $SIT_PROBE 2>/dev/null; then
    system_log
    cp $STORE/wan0 /tmp/wan0.before
    refused "$TOOL" --init-ipv6-router wan0 6in4 && refused "$TOOL" --init-ipv6-router wan0 6to4
    sleep 0.2
    expect_eq "$(grep -c 'tunnel 6in4-wan0 not made: the kernel lacks the sit tunnel type' /tmp/syslog)" 2 "log lines"
    cmp -s $STORE/wan0 /tmp/wan0.before || fail "a failed Create changed the document"
    [ -n "${TARN_VM_STATUS:-}" ] || skip "the kernel has no sit tunnel type"
    echo "the tunnel rows in a virtual machine: exit status $TARN_VM_STATUS"
    exit "$TARN_VM_STATUS"
fi
ip link del tarnprobe

# check TYPE ADDRESS: after two Creates, one tunnel, up, with ADDRESS and the default route.
check() {
    ok "$TOOL" --init-ipv6-router wan0 "$1" && ok "$TOOL" --init-ipv6-router wan0 "$1"
    expect_eq "$(ip -o link show type sit | grep -c '6in4-wan0')" 1 "$1 tunnels"
    holds "$(ip link show 6in4-wan0)" ',UP' "$1 tunnel up"
    # Besides ours, the kernel's IPv4-compatible address of a tunnel with a local end.
    expect_eq "$(global6 6in4-wan0 | sed 's|::192.0.2.1/96 ||')" "$2 " "$1 tunnel address"
    holds "$(ip -6 route show default)" 'dev 6in4-wan0' "$1 default route"
    expect_eq "$("$TOOL" --get-ipv6-router-interface wan0)" "6in4-wan0" "$1 router interface"
}
check 6in4 2001:db8:ff::2/64
expect_eq "$(global6 lbr0)" "2001:db8:1200::1/64 " "lbr0 address from the 6in4 prefix"
check 6to4 2002:c000:201::1/16
holds "$(cat $STORE/wan0)" '"prefix" : "2002:c000:201::/48"' "6to4 prefix stored"
expect_eq "$(global6 lbr0)" "2002:c000:201::1/64 " "lbr0 address from the 6to4 prefix"
# A native router takes the tunnel of an earlier one away, and its default route with it.
ok "$TOOL" --init-ipv6-router wan0 native
expect_eq "$(ip -o link show type sit | grep -c 6in4-wan0)|$(ip -6 route show default | grep -c 6in4-wan0)" "0|0" "native after 6to4"
echo ok
