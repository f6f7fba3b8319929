#!/bin/sh
# scripts/service.sh start --speed N: the service's simulated clock runs N times faster than real
# time, status and `tunerctl world` say so, and a blind cable sweep (about six minutes of the
# box's time) ends in seconds. A speed that is none is one line and exit code 2, and nothing
# runs; without --speed the clock is real time.
set -eu
script="$1"
export MOX_SERVICE_BINARY="$2"
tunerctl="$3"
work=$(mktemp -d)
export MOX_HIDL_SERVICE_DIR="$work/dir"
trap '"$script" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }
# tunerctl against the service in the test's directory, never a private one in its own process.
client() { env -u TUNERCTL_IN_PROCESS MOX_HIDL_SERVICE_DIR="$work/dir" "$tunerctl" "$@"; }
simulated_s() { client world --json | python3 -c 'import json, sys; print(json.load(sys.stdin)["clockMs"] // 1000)'; }

for bad in 0 1001 fast -5 2.5 ""; do
  status=0
  "$script" start --speed "$bad" >"$work/out" 2>&1 || status=$?
  [ "$status" = 2 ] || fail "--speed '$bad': exit $status: $(cat "$work/out")"
  [ "$(wc -l <"$work/out")" = 1 ] || fail "--speed '$bad' says more than one line: $(cat "$work/out")"
  if "$script" status >/dev/null; then fail "--speed '$bad' left a service running"; fi
done
"$script" start --speed 0 2>&1 |
  grep -qF "did not start: MOX_CLOCK_SPEED=0: the clock speed is a whole number from 1 to 1000" ||
  fail "a speed of 0 is not said as such: $("$script" start --speed 0 2>&1)"

"$script" start | grep -qF "clock real time" || fail "the default start is not real time"
client world | grep -q "^simulated clock [0-9.]* s (real time); " || fail "world at real time: $(client world)"
"$script" stop >/dev/null

"$script" start --speed 50 | grep -qF "clock 50x real time" || fail "start --speed 50"
"$script" status | grep -qF "clock 50x real time" || fail "status: $("$script" status)"
client world | grep -q "^simulated clock [0-9.]* s (50x real time); " || fail "world: $(client world)"
client world --json | grep -q '"clockSpeed":50' || fail "world --json: $(client world --json)"

before=$(simulated_s)
started=$(date +%s)
timeout 60 env -u TUNERCTL_IN_PROCESS MOX_HIDL_SERVICE_DIR="$work/dir" \
  "$tunerctl" scan 2 --dvbc 474MHz --blind >"$work/scan" 2>&1 || fail "the sweep: $(cat "$work/scan")"
real=$(($(date +%s) - started))
simulated=$(($(simulated_s) - before))
grep -q "^scan finished" "$work/scan" || fail "the sweep did not finish: $(cat "$work/scan")"
grep -q "^found 1 multiplex" "$work/scan" || fail "the sweep found: $(cat "$work/scan")"
# Six minutes of the box's time: at speed 50 about 7 s of real time; a loaded machine may take
# longer, never minutes.
[ "$simulated" -ge 300 ] || fail "the sweep took $simulated s of simulated time"
[ "$real" -le 40 ] || fail "the sweep took $real s of real time for $simulated s simulated"
echo "speed 50: a $simulated s sweep in $real s"
