#!/bin/sh
# Program arguments with shell metacharacters reach the program as single words, through
# both the output stream and the plain run.
set -eu
. "$(dirname "$0")/lib.sh"

cat >/tmp/argdump <<'SCRIPT'
#!/bin/sh
printf '[%s]\n' "$@"
SCRIPT
cat >/tmp/argsave <<'SCRIPT'
#!/bin/sh
printf '[%s]\n' "$@" >/tmp/saved
SCRIPT
chmod +x /tmp/argdump /tmp/argsave
expected='[eth0; touch /tmp/ran]
[$(touch /tmp/ran)]
[`touch /tmp/ran`]
[*]
[a  b]
[]'

out=$("$PROBE" popen /tmp/argdump 'eth0; touch /tmp/ran' '$(touch /tmp/ran)' '`touch /tmp/ran`' '*' 'a  b' '') ||
    fail "popen: exit status $?"
expect_eq "$out" "$expected" "words through the stream"

out=$("$PROBE" exec /tmp/argsave 'eth0; touch /tmp/ran' '$(touch /tmp/ran)' '`touch /tmp/ran`' '*' 'a  b' '') ||
    fail "exec: exit status $?"
expect_eq "$out" "" "standard output of a plain run"
expect_eq "$(cat /tmp/saved)" "$expected" "words of the plain run"
[ ! -e /tmp/ran ] || fail "a shell ran part of an argument"
echo ok
