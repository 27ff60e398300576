#!/bin/bash
# Who may do what on the bus, requests that are not ours to serve, how long a client waits: no
# daemon, a stopped daemon, a second daemon, 50 clients at once, non-root callers, malformed calls.
set -eu
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
command -v gdbus >/dev/null && command -v setpriv >/dev/null || skip "no gdbus or setpriv"
bus_start
AS_NOBODY=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
call() { busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 "$@"; }
unchanged() { cmp -s /etc/route-mgt/gateway_priority /tmp/records || fail "records changed by $1"; }
# within SECONDS COMMAND...: COMMAND's exit status, or a failure when it took longer.
within() {
    local start status=0
    start=$(date +%s%N)
    "${@:2}" >/tmp/out 2>/tmp/err || status=$?
    [ $(($(date +%s%N) - start)) -lt $(($1 * 1000000000)) ] || fail "${*:2} took more than $1 s"
    return $status
}

within 1 "$TOOL" --is-server-ready
expect_eq "$(cat /tmp/out)" 0 "ready without a daemon"
within 1 "$TOOL" --copy-gateway-info -4 eth0 eth1 && fail "copy without a daemon succeeded"
# The tool loads sd-bus when it first needs it; without it the calls fail the same way.
libsystemd=$(ldconfig -p | awk '$1 == "libsystemd.so.0" { print $NF; exit }')
mount --bind /dev/null "$libsystemd"
within 1 "$TOOL" --is-server-ready
expect_eq "$(cat /tmp/out)" 0 "ready without libsystemd"
within 1 "$TOOL" --copy-gateway-info -4 eth0 eth1 && fail "copy without libsystemd succeeded"
umount "$libsystemd"
# A daemon that comes up during the tool's wait for it gets the request.
"$TOOL" --add-gateway-info -4 30 late0 192.0.2.1 192.0.2.53 &
adder=$!
sleep 1.5
daemon_start
wait "$adder" || fail "add during the wait for the daemon"
# A second daemon started by hand neither serves nor touches the first one's write in flight.
: >/etc/route-mgt/gateway_priority.abc123
"$DAEMON" 2>/tmp/err && fail "a second daemon started"
grep -q "cannot own the bus name net.tarn.Netd1" /tmp/err || fail "second daemon: $(cat /tmp/err)"
[ -e /etc/route-mgt/gateway_priority.abc123 ] || fail "a second daemon removed a write in flight"
rm /etc/route-mgt/gateway_priority.abc123

# Readiness is a quick question; a change waits for a daemon that is slow to answer it.
kill -STOP "$DAEMON_PID"
within 3 "$TOOL" --is-server-ready
expect_eq "$(cat /tmp/out)" 0 "ready while the daemon does not answer"
(sleep 3 && kill -CONT "$DAEMON_PID") &
within 8 "$TOOL" --set-slave-data -4 slow0 yes || fail "a change behind a slow daemon was not waited for"

ok "$TOOL" --add-gateway-info -4 10 eth0 192.0.2.1 192.0.2.53 wan
cp /etc/route-mgt/gateway_priority /tmp/records
refused "${AS_NOBODY[@]}" "$TOOL" --add-gateway-info -4 1 eth1 192.0.2.1 192.0.2.53
refused "${AS_NOBODY[@]}" "$TOOL" --del-gateway-info -4 eth0
expect_eq "$("${AS_NOBODY[@]}" "$TOOL" --get-interface-by-class -4 wan)" eth0 "query as nobody"
expect_eq "$("${AS_NOBODY[@]}" "$TOOL" --is-server-ready)" 1 "ready as nobody"
# Past a bus that would let it through, the daemon refuses on its own.
echo '<busconfig><policy context="default"><allow send_destination="net.tarn.Netd1"/></policy></busconfig>' \
    >"$BUS_DIR/system.d/open.conf"
kill -HUP "$BUS_PID"
sleep 0.5
refused "${AS_NOBODY[@]}" busctl --system call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 DeleteGateway s \
    '{"type":"GTYPE_V4","ifname":"eth0"}'
grep -q "DeleteGateway refused: changes need root" "$DAEMON_LOG" || fail "no refusal by the daemon: $(cat "$DAEMON_LOG")"
unchanged "refused calls"

# Malformed calls: method|GVariant argument|error name|reason. Nothing changes, the daemon serves on.
while IFS='|' read -r method argument name reason; do
    gdbus call --system --dest net.tarn.Netd1 --object-path /net/tarn/Netd1 --method "net.tarn.Netd1.$method" "$argument" \
        >/dev/null 2>/tmp/err && fail "$method $argument was accepted"
    grep -q "$name" /tmp/err && grep -qF "$reason" /tmp/err || fail "$method $argument: $(cat /tmp/err)"
    unchanged "$method $argument"
done <<'ROWS'
AddGateway|'not json'|InvalidRequest|request is not JSON text
SetSlave|'{"type":"GTYPE_V4","ifname":"a/b","slave":true}'|InvalidRequest|not an interface name
GetGatewayByInterface|'{"type":"GTYPE_V4","ifname":"eth9"}'|NotFound|no GTYPE_V4 record of eth9
ROWS
# Calls of another shape never reach an operation.
refused call AddGateway i 5
junk=$(head -c 65536 /dev/zero | tr '\0' x)
refused call AddGateway as 16 $(yes "$junk" | head -n 16)
call AddGateway s "{\"x\":\"$junk\"}" 2>&1 | grep -q "longer than 64 KiB" || fail "request over 64 KiB"
unchanged "junk"

pids=()
for i in $(seq 50); do "$TOOL" --add-gateway-info -4 "$i" "many$i" 192.0.2.1 192.0.2.53 & pids+=($!); done
for pid in "${pids[@]}"; do wait "$pid" || fail "one of 50 concurrent adds failed"; done
expect_eq "$("$TOOL" --get-gateway-list-data -4 | grep -c '"ifname" : "many')" 50 "records of 50 concurrent clients"

# Queries from nobody that do not wait for their answers come faster than lists of 25,000 records
# could be written out anew for each; a change among them is still answered within its bound.
daemon_stop
awk 'BEGIN { printf "{\"version\":1,\"GTYPE_V4\":{\"slaves\":[],\"records\":["
    for (i = 0; i < 25000; i++)
        printf "%s{\"ifname\":\"q%d\",\"gateway\":\"192.0.2.1\",\"dns\":\"192.0.2.53\",\"priority\":%d,\"class\":\"\"}", i ? "," : "", i, i
    print "]}}" }' >/etc/route-mgt/gateway_priority
daemon_start
"${AS_NOBODY[@]}" sh -c 'while busctl --system --expect-reply=no call net.tarn.Netd1 /net/tarn/Netd1 net.tarn.Netd1 \
    GetGatewayList s "{\"type\":\"GTYPE_V4\"}"; do :; done' 2>/dev/null &
queries=$!
sleep 0.5
within 10 "$TOOL" --add-gateway-info -4 1 q0 192.0.2.2 192.0.2.53 || fail "a change among queries of 25,000 records"
kill "$queries"

daemon_stop
expect_eq "$STOPPED" 0 "exit status after SIGTERM"
expect_eq "$("$TOOL" --is-server-ready)" 0 "ready after SIGTERM"
# Without its bus the daemon ends with a failure, for its supervisor to restart it.
daemon_start
kill "$BUS_PID" && wait "$BUS_PID" 2>/dev/null || true
BUS_PID=
wait_for 20 sh -c "! kill -0 $DAEMON_PID" || fail "tarnnetd serves on without its bus"
daemon_stop
[ "$STOPPED" = 1 ] || fail "exit status after the bus went away: $STOPPED"
echo ok
