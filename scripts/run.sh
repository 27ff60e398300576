#!/usr/bin/env bash
# Builds the tool and runs it with the given arguments: scripts/run.sh --get-internal-network
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/common.sh"
"$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}"
build "$ROOT/build" -DBUILD_TESTING=OFF
exec "$ROOT/build/tarnnetdtool" "$@"
