# shellcheck shell=sh
# The system tests' checks; each failure ends the test with its reason.
skip() { echo "skipped: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }
expect_eq() { [ "$1" = "$2" ] || fail "$3: expected [$2], got [$1]"; }
# holds TEXT PART WHAT: TEXT contains PART.
holds() { case "$1" in *"$2"*) ;; *) fail "$3: expected [$2] in [$1]" ;; esac; }
# status COMMAND...: prints COMMAND's exit status, its output dropped.
status() { local s=0; "$@" >/dev/null 2>&1 || s=$?; echo $s; }
ok() { "$@" || fail "$*: exit status $?"; }
refused() { ! "$@" 2>/dev/null || fail "$* succeeded"; }
# wait_for TRIES COMMAND...: runs COMMAND every 0.1 s until it succeeds; false after TRIES.
wait_for() {
    local tries=$1 i
    shift
    for i in $(seq "$tries"); do "$@" >/dev/null 2>&1 && return; sleep 0.1; done
    return 1
}
