# Sourced by every system test (<test>.sh TOOL PROBE), after any other helper: its private /tmp
# hides a checkout under /tmp. Re-runs the test as root in network and mount namespaces of its
# own with a private /tmp, /run and /etc, so that nothing reaches the host; else exits 77 (skipped).
TOOL=$1
PROBE=$2
. "$(dirname "${BASH_SOURCE:-$0}")/assert.sh"
if [ -z "${TARN_IN_NAMESPACES:-}" ]; then
    [ "$(id -u)" = 0 ] || skip "needs root"
    command -v unshare >/dev/null && command -v ip >/dev/null || skip "no unshare or ip"
    unshare --net --mount true 2>/dev/null || skip "namespaces not permitted here"
    TARN_IN_NAMESPACES=1 exec unshare --net --mount --propagation private "$0" "$@"
fi
# The binaries are copied through descriptors opened before the private /tmp hides them.
exec 8<"$TOOL" 9<"$PROBE"
mount -t tmpfs tarn-test /tmp
mkdir /tmp/bin
TOOL=/tmp/bin/tarnnetdtool
PROBE=/tmp/bin/platform_probe
cp /proc/self/fd/8 $TOOL
cp /proc/self/fd/9 $PROBE
chmod 755 $TOOL $PROBE
exec 8<&- 9<&-
# private_dir DIR: DIR reads as the host's but takes writes into an overlay that ends with us.
private_dir() {
    local name
    name=$(echo "$1" | tr / _)
    [ ! -d "/tmp/.upper$name" ] || return 0
    mkdir "/tmp/.upper$name" "/tmp/.work$name"
    mount -t overlay "tarn$name" -o "lowerdir=$1,upperdir=/tmp/.upper$name,workdir=/tmp/.work$name" "$1"
}
private_dir /etc
# Our files start empty whatever the host keeps there, so that a test sees only what it made.
mkdir -p /etc/route-mgt
mount -t tmpfs -o mode=0755 tarn-route-mgt /etc/route-mgt
mount -t tmpfs tarn-run /run
ip link set lo up

# veth NAME...: each NAME with its peer NAMEp, both up (the kernel here has no dummy interfaces).
veth() { local n; for n; do ip link add "$n" type veth peer name "${n}p" && ip link set "$n" up && ip link set "${n}p" up; done; }

# device_ifconfig: /sbin/ifconfig becomes busybox's, which prints the device's "inet addr:" form.
device_ifconfig() {
    local busybox
    busybox=$(command -v busybox) || skip "no busybox"
    [ ! -e /sbin/ifconfig ] || { mount --bind "$busybox" /sbin/ifconfig; return; }
    private_dir "$(readlink -f /sbin)"
    ln -s "$busybox" /sbin/ifconfig
}

# routing_state: rules and routes of both families but the kernel's own, which come and go with
# IPv6 link-local addresses; what a rerun of an action must leave as it was.
routing_state() { ip rule; ip -6 rule; { ip route show table all; ip -6 route show table all; } | grep -v ' proto kernel' || true; }

# system_log: the system log in /tmp/syslog, through a private /dev whose programs need only
# these two.
system_log() {
    command -v busybox >/dev/null || skip "no busybox for a system log"
    mount -t tmpfs tarn-dev /dev && mknod -m 666 /dev/null c 1 3 && mknod -m 444 /dev/urandom c 1 9
    busybox syslogd -n -O /tmp/syslog &
    trap "kill $! 2>/dev/null || true" EXIT
    for _ in $(seq 50); do [ -S /dev/log ] && return; sleep 0.1; done
    fail "no log socket"
}
