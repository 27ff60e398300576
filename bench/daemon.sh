# shellcheck shell=bash
# Sourced by the benchmarks that run against tarnnetd: their packages and build once, then the
# system tests' private bus and namespaces over the binaries built here.
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ -z "${TARN_BENCH_READY:-}" ]; then
    . "$ROOT/scripts/common.sh"
    bench_build -DBUILD_TESTING=ON
fi
set -- "$ROOT/build/tarnnetdtool" "$ROOT/build/tests/platform_probe" "$ROOT/build/tarnnetd/tarnnetd"
. "$ROOT/tests/system/bus.sh"
. "$ROOT/tests/system/lib.sh"
