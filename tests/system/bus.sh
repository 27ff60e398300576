# Sourced BEFORE lib.sh by system tests that need the daemon (<test>.sh TOOL PROBE TARNNETD):
# bus_start runs a private system bus with our policy in the test's namespaces, daemon_start /
# daemon_stop start and stop tarnnetd; both end by process id when the test exits. The daemon and
# the policy are opened now, before lib.sh hides them under a private /tmp.
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/private-bus.sh"
exec 6<"$3" 7<"$(dirname "${BASH_SOURCE[0]}")/../../tarnnetd/net.tarn.Netd1.conf"
BUS_DIR=/run/tarn-test-bus
BUS_PID=
DAEMON_PID=
DAEMON=/tmp/bin/tarnnetd
DAEMON_LOG=/tmp/tarnnetd.log
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$BUS_DIR/socket

bus_start() {
    command -v dbus-daemon >/dev/null && command -v busctl >/dev/null || skip "no dbus-daemon or busctl"
    mkdir -p "$BUS_DIR/system.d"
    cp /proc/self/fd/7 "$BUS_DIR/system.d/net.tarn.Netd1.conf"
    cp /proc/self/fd/6 "$DAEMON"
    chmod 755 "$DAEMON" "$BUS_DIR"
    exec 6<&- 7<&-
    private_bus_config "$BUS_DIR/socket" "$BUS_DIR/system.d" >"$BUS_DIR/bus.conf"
    dbus-daemon --nofork --nopidfile --config-file="$BUS_DIR/bus.conf" 2>>/tmp/bus.log &
    BUS_PID=$!
    trap bus_stop EXIT
    wait_for 50 test -S "$BUS_DIR/socket" || fail "no private bus"
}

# daemon_start [ARG...]: starts tarnnetd and waits until it answers.
daemon_start() {
    "$DAEMON" --log-stderr "$@" 2>>"$DAEMON_LOG" &
    DAEMON_PID=$!
    wait_for 50 busctl --system call net.tarn.Netd1 /net/tarn/Netd1 org.freedesktop.DBus.Peer Ping ||
        fail "tarnnetd not ready: $(cat "$DAEMON_LOG")"
}

# daemon_stop [SIGNAL]: stops tarnnetd (SIGTERM unless given); its exit status is in STOPPED.
daemon_stop() {
    STOPPED=0
    [ -n "$DAEMON_PID" ] || return 0
    kill -"${1:-TERM}" "$DAEMON_PID" 2>/dev/null || true
    wait "$DAEMON_PID" 2>/dev/null || STOPPED=$?
    DAEMON_PID=
}

bus_stop() {
    daemon_stop
    [ -z "$BUS_PID" ] || { kill "$BUS_PID" 2>/dev/null && wait "$BUS_PID" 2>/dev/null; } || true
}
