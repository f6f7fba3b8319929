#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a bounded number of inputs (default 20000).
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-20000}"
scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
for fuzzer in capability_fuzzer status_fuzzer; do
  echo "== $fuzzer ($runs inputs)"
  ANDROID_LOG_TAGS="*:s" build/fuzz/fuzz/$fuzzer -runs="$runs" -seed=1 -rss_limit_mb=8192 2>&1 | tail -n 2
  [ "${PIPESTATUS[0]}" -eq 0 ] || exit 1
done
