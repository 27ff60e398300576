#!/bin/sh
# The README's first command, as a test: every step of the story holds, and the host is left as
# it was (its links, addresses, rules, routes, mounts, namespaces and /etc). Called as:
# demo.sh BUILD_DIR
set -u
BIN=$1
ROOT=$(cd "$(dirname "$0")/../.." && pwd)

[ "$(id -u)" = 0 ] || { echo "skipped: needs root"; exit 77; }
unshare --net --mount true 2>/dev/null || { echo "skipped: namespaces not permitted here"; exit 77; }

# What the demo must not change; statistics and timers left out.
snapshot() {
    ip -o link show | sed 's/ *$//'
    ip -o addr show | sed 's/valid_lft.*//'
    ip rule show
    ip -6 rule show
    ip route show table all
    ip -6 route show table all
    ls /run/netns 2>/dev/null
    cut -d' ' -f5,9 /proc/self/mountinfo
    find /etc -newer "$stamp" 2>/dev/null
}

stamp=$(mktemp)
trap 'rm -f "$stamp" "$stamp.before" "$stamp.after" "$stamp.out"' EXIT
snapshot >"$stamp.before"
TARN_BIN=$BIN "$ROOT/scripts/demo.sh" </dev/null >"$stamp.out" 2>&1
status=$?
cat "$stamp.out"
snapshot >"$stamp.after"
if ! diff -u "$stamp.before" "$stamp.after"; then
    echo "FAIL: the demo changed the host (above)" >&2
    exit 1
fi
[ "$status" = 0 ] || { echo "FAIL: the demo exited with $status" >&2; exit 1; }
! grep -q "$(printf '\033')" "$stamp.out" || { echo "FAIL: colours on a file" >&2; exit 1; }
echo ok
