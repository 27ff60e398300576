#!/usr/bin/env bash
# Builds and runs every test: once plainly, once under AddressSanitizer and UBSan.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/common.sh"
"$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}" ${TEST_PACKAGES[@]+"${TEST_PACKAGES[@]}"}
"$ROOT/scripts/vm-kernel.sh" "$ROOT/build-vm" || echo "no kernel for a virtual machine: tests that need one skip" >&2
build "$ROOT/build" -DBUILD_TESTING=ON
build "$ROOT/build-asan" -DBUILD_TESTING=ON -DTARN_SANITIZE=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
for dir in build build-asan; do
    echo "== tests in $dir"
    (cd "$ROOT/$dir" && ctest -j "$(nproc)" --output-on-failure --timeout 300) || status=1
done
exit $status
