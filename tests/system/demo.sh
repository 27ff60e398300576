#!/bin/sh
# demo.sh BUILD_DIR: the README's first command; every step of the story holds, and the host is
# left as it was (its links, addresses, rules, routes, mounts, namespaces and /etc).
set -u
ROOT=$(cd "$(dirname "$0")/../.." && pwd)
[ "$(id -u)" = 0 ] || { echo "skipped: needs root"; exit 77; }
unshare --net --mount true 2>/dev/null || { echo "skipped: namespaces not permitted here"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }

# What the demo must not change; statistics and timers left out.
snapshot() {
    ip -o link show | sed 's/ *$//'
    ip -o addr show | sed 's/valid_lft.*//'
    ip rule show; ip -6 rule show
    ip route show table all; ip -6 route show table all
    ls /run/netns 2>/dev/null
    cut -d' ' -f5,9 /proc/self/mountinfo
    find /etc -newer "$stamp" 2>/dev/null
}
stamp=$(mktemp)
trap 'rm -f "$stamp" "$stamp.before" "$stamp.after" "$stamp.out"' EXIT
snapshot >"$stamp.before"
TARN_BIN=$1 "$ROOT/scripts/demo.sh" </dev/null >"$stamp.out" 2>&1
status=$?
cat "$stamp.out"
snapshot >"$stamp.after"
diff -u "$stamp.before" "$stamp.after" || fail "the demo changed the host (above)"
[ "$status" = 0 ] || fail "the demo exited with $status"
! grep -q "$(printf '\033')" "$stamp.out" || fail "colours on a file"
echo ok
