# Sourced by system tests that need the network daemon, BEFORE lib.sh, with the daemon binary
# as the third argument: <test>.sh TOOL PROBE TARNNETD
#   . "$(dirname "$0")/bus.sh"; . "$(dirname "$0")/lib.sh"; bus_start; daemon_start
# bus_start runs a private system bus (dbus-daemon with our policy) inside the test's
# namespaces and exports DBUS_SYSTEM_BUS_ADDRESS; daemon_start / daemon_stop start and stop
# tarnnetd; both are stopped by process id when the test exits.
# The binary and the policy are opened now, before lib.sh may hide them under a private /tmp.
exec 6<"$3" 7<"$(dirname "${BASH_SOURCE[0]}")/../../tarnnetd/net.tarn.Netd1.conf"
BUS_DIR=/run/tarn-test-bus
BUS_PID=
DAEMON_PID=
DAEMON=/tmp/bin/tarnnetd
DAEMON_LOG=/tmp/tarnnetd.log
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$BUS_DIR/socket

# wait_for TRIES COMMAND...: runs COMMAND every 0.1 s until it succeeds; false after TRIES.
wait_for() {
    local tries=$1
    shift
    while ! "$@" >/dev/null 2>&1; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || return 1
        sleep 0.1
    done
}

bus_start() {
    local program
    for program in dbus-daemon busctl; do
        command -v "$program" >/dev/null || skip "no $program"
    done
    mkdir -p "$BUS_DIR/system.d"
    cp /proc/self/fd/7 "$BUS_DIR/system.d/net.tarn.Netd1.conf"
    cp /proc/self/fd/6 "$DAEMON"
    chmod 755 "$DAEMON"
    exec 6<&- 7<&-
    cat >"$BUS_DIR/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$BUS_DIR/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Properties"/>
  </policy>
  <includedir>$BUS_DIR/system.d</includedir>
</busconfig>
CONF
    dbus-daemon --nofork --nopidfile --config-file="$BUS_DIR/bus.conf" 2>>/tmp/bus.log &
    BUS_PID=$!
    trap bus_stop EXIT
    wait_for 50 test -S "$BUS_DIR/socket" || fail "no private bus"
    chmod 755 "$BUS_DIR"
}

# daemon_start [ARG...]: starts tarnnetd and waits until it answers.
daemon_start() {
    "$DAEMON" --log-stderr "$@" 2>>"$DAEMON_LOG" &
    DAEMON_PID=$!
    wait_for 50 busctl --system call net.tarn.Netd1 /net/tarn/Netd1 org.freedesktop.DBus.Peer Ping ||
        fail "tarnnetd not ready: $(cat "$DAEMON_LOG")"
}

# daemon_stop [SIGNAL]: stops tarnnetd (SIGTERM unless given) and waits for its end.
daemon_stop() {
    [ -n "$DAEMON_PID" ] || return 0
    kill -"${1:-TERM}" "$DAEMON_PID" 2>/dev/null || true
    wait "$DAEMON_PID" 2>/dev/null || true
    DAEMON_PID=
}

bus_stop() {
    daemon_stop
    [ -n "$BUS_PID" ] && kill "$BUS_PID" 2>/dev/null && wait "$BUS_PID" 2>/dev/null
    BUS_PID=
}
