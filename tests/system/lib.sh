# Sourced by every system test, called as: <test>.sh TOOL PROBE; source other helpers before it,
# since its private /tmp hides a checkout under /tmp.
# Re-runs the test as root inside network and mount namespaces of its own, with a private
# /tmp, /run and /etc, so that nothing it creates reaches the host; exits 77 (skipped) where that is not
# possible.
SKIP=77
TOOL=$1
PROBE=$2

skip() {
    echo "skipped: $*"
    exit $SKIP
}

if [ -z "${TARN_IN_NAMESPACES:-}" ]; then
    [ "$(id -u)" = 0 ] || skip "needs root"
    command -v unshare >/dev/null || skip "no unshare"
    command -v ip >/dev/null || skip "no ip"
    unshare --net --mount true 2>/dev/null || skip "namespaces not permitted here"
    TARN_IN_NAMESPACES=1 exec unshare --net --mount --propagation private "$0" "$@"
fi
# The private /tmp may hide the binaries (a build under /tmp), so they are copied into it
# through descriptors opened before the mount.
exec 8<"$TOOL" 9<"$PROBE"
mount -t tmpfs tarn-test /tmp
mkdir /tmp/bin
cp /proc/self/fd/8 /tmp/bin/tarnnetdtool
cp /proc/self/fd/9 /tmp/bin/platform_probe
chmod 755 /tmp/bin/tarnnetdtool /tmp/bin/platform_probe
exec 8<&- 9<&-
# private_dir DIR: DIR (which must exist) reads as the host's but takes writes into an overlay
# that ends with the namespace; once is enough.
private_dir() {
    local name
    name=$(echo "$1" | tr / _)
    [ ! -d "/tmp/.upper$name" ] || return 0
    mkdir "/tmp/.upper$name" "/tmp/.work$name"
    mount -t overlay "tarn$name" -o "lowerdir=$1,upperdir=/tmp/.upper$name,workdir=/tmp/.work$name" "$1"
}
private_dir /etc
mount -t tmpfs tarn-run /run
TOOL=/tmp/bin/tarnnetdtool
PROBE=/tmp/bin/platform_probe
ip link set lo up

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# expect_eq ACTUAL EXPECTED WHAT
expect_eq() {
    [ "$1" = "$2" ] || fail "$3: expected [$2], got [$1]"
}

# veth NAME: NAME and its peer NAMEp, both up (the kernel here has no dummy interfaces).
veth() {
    ip link add "$1" type veth peer name "$1p"
    ip link set "$1" up
    ip link set "$1p" up
}

# device_ifconfig: /sbin/ifconfig becomes busybox's, which prints the device's "inet addr:" form
# (on a host without net-tools the file is made in an overlay).
device_ifconfig() {
    local busybox
    busybox=$(command -v busybox) || skip "no busybox"
    if [ -e /sbin/ifconfig ]; then
        mount --bind "$busybox" /sbin/ifconfig
    else
        private_dir "$(readlink -f /sbin)"
        ln -s "$busybox" /sbin/ifconfig
    fi
}

# routing_state: the rules and routes of both families but the kernel's own, which come and go
# with IPv6 link-local addresses; what a rerun of an action must leave as it was.
routing_state() {
    ip rule
    ip -6 rule
    ip route show table all | grep -v ' proto kernel' || true
    ip -6 route show table all | grep -v ' proto kernel' || true
}
