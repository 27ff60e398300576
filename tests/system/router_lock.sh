#!/bin/sh
# The router lock: a second process waits while the first holds it, then gets it; the lock's
# directory and file are made for root alone to change, whatever the umask.
set -eu
. "$(dirname "$0")/lib.sh"
lock=/tmp/lock/lock_ipv6_router
umask 000
"$PROBE" lock "$lock" 1500 >/tmp/holder.out &
holder=$!
trap 'kill $holder 2>/dev/null || true' EXIT
for _ in $(seq 50); do grep -q '^locked' /tmp/holder.out && break; sleep 0.1; done
grep -q '^locked' /tmp/holder.out || fail "holder never took the lock"
expect_eq "$(stat -c '%a %u' /tmp/lock $lock | tr '\n' ' ')" "755 0 600 0 " "modes and owners of the lock"
out=$(ok "$PROBE" lock "$lock" 0)
waited=$(echo "$out" | sed -n 's/^locked after \([0-9]*\) ms$/\1/p')
[ "${waited:-0}" -ge 1000 ] || fail "waiter printed [$out] while the lock was held"
wait "$holder" || fail "holder: exit status $?"
echo ok
