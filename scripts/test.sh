#!/usr/bin/env bash
# Builds everything and runs all tests. With a preset name (asan, tsan) it runs the suite in that
# sanitizer build instead of the default one.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
