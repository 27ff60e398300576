#!/bin/sh
# Program arguments with shell metacharacters reach the program as single words, through both
# the output stream and the plain run.
set -eu
. "$(dirname "$0")/lib.sh"
printf '#!/bin/sh\nprintf "[%%s]" "$@"\n' >/tmp/argdump
printf '#!/bin/sh\nprintf "[%%s]" "$@" >/tmp/saved\n' >/tmp/argsave
chmod +x /tmp/argdump /tmp/argsave
expected='[eth0; touch /tmp/ran][$(touch /tmp/ran)][`touch /tmp/ran`][*][a  b][]'
out=$(ok "$PROBE" popen /tmp/argdump 'eth0; touch /tmp/ran' '$(touch /tmp/ran)' '`touch /tmp/ran`' '*' 'a  b' '')
expect_eq "$out" "$expected" "words through the stream"
out=$(ok "$PROBE" exec /tmp/argsave 'eth0; touch /tmp/ran' '$(touch /tmp/ran)' '`touch /tmp/ran`' '*' 'a  b' '')
expect_eq "$out|$(cat /tmp/saved)" "|$expected" "words of the plain run"
[ ! -e /tmp/ran ] || fail "a shell ran part of an argument"
echo ok
