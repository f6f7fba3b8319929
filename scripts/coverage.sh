#!/usr/bin/env bash
# Builds the suite with coverage, runs it, and reports line and branch coverage of the service's
# own sources. Fails when their line coverage is below the floor (default 90 %).
set -euo pipefail
cd "$(dirname "$0")/.."
floor="${1:-90}"
scripts/install-deps.sh
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage
gcovr --root . --object-directory build/coverage \
  --filter 'service/' --filter 'tuner/' --filter 'frontend/' --filter 'lnb/' \
  --exclude-unreachable-branches --exclude-throw-branches \
  --print-summary --fail-under-line "$floor" \
  --txt build/coverage/coverage.txt
