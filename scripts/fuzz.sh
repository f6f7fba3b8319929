#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each from its committed seed corpus for a bounded time
# (default 60 s a target). Findings are written to build/fuzz/findings/ and fail the run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/findings
for fuzzer in capability_fuzzer status_fuzzer tune_scan_fuzzer lnb_fuzzer sequence_fuzzer \
    transport_fuzzer trace_reader_fuzzer streamcheck_fuzzer demux_engine_fuzzer; do
  echo "== $fuzzer (${seconds} s)"
  # New inputs go to a scratch copy of the corpus, so the committed seeds stay as they are.
  work="build/fuzz/corpus/$fuzzer"
  mkdir -p "$work"
  cp -n "fuzz/corpus/$fuzzer/"* "$work/"
  log="build/fuzz/$fuzzer.log"
  status=0
  ANDROID_LOG_TAGS="*:s" build/fuzz/fuzz/$fuzzer "$work" -max_total_time="$seconds" -seed=1 \
    -max_len=4096 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="build/fuzz/findings/$fuzzer-" >"$log" 2>&1 || status=$?
  grep -E "^#[0-9]+[[:space:]]+(DONE|INITED)|^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)|ERROR|SUMMARY" "$log" | tail -n 6 || true
  if [ "$status" -ne 0 ]; then
    tail -n 40 "$log"
    exit 1
  fi
done
