#!/bin/bash
# tarnnetd killed with SIGKILL in the middle of a stream of changes, again and again: every
# change answered as done is in the record file after the restart, which is never found half
# written (it would be moved aside).
set -eu
. "$(dirname "$0")/bus.sh"
. "$(dirname "$0")/lib.sh"
bus_start
ROUNDS=15
: >/tmp/done
for round in $(seq "$ROUNDS"); do
    daemon_start
    # The writer leads a process group of its own, so that its tool call in flight ends with it.
    setsid bash -c 'for ((i = 1; ; i++)); do
        "$0" --add-gateway-info -4 $i r$1x$i 192.0.2.1 192.0.2.53 2>/dev/null && echo r$1x$i >>/tmp/done; done' \
        "$TOOL" "$round" &
    writer=$!
    sleep "0.$((RANDOM % 5 + 1))"
    daemon_stop KILL
    kill -- -"$writer"
    wait "$writer" 2>/dev/null || true
done
daemon_start
expect_eq "$(ls /etc/route-mgt)" gateway_priority "files beside the records after the restart"
list=$("$TOOL" --get-gateway-list-data -4)
[ "$(wc -l </tmp/done)" -gt "$ROUNDS" ] || fail "too few changes answered to mean anything: $(wc -l </tmp/done)"
while read -r name; do
    holds "$list" "\"ifname\" : \"$name\"" "$name, answered as added"
done </tmp/done
echo ok
