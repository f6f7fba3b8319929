#!/usr/bin/env bash
# Builds everything and runs all tests. With a preset name (asan, tsan, pattern) it runs the suite
# in that build instead of the default one; arm64 and armhf build it for a box's architecture and
# run it under qemu-user.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/install-deps.sh
case "$preset" in
  arm64|armhf) scripts/cross-sysroot.sh "$preset" ;;
esac
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
