#!/bin/sh
# scripts/service.sh trusts nothing it did not check: a directory of another kind or open to
# others is refused, a planted pid file names no process it signals, and a symbolic link is never
# written through. Then a start, a status and a stop that leaves no socket behind. Then two builds
# in one directory: another build's service is named and left alone, its pid file and log too.
set -eu
script="$1"
export MOX_SERVICE_BINARY="$2"
work=$(mktemp -d)
# Another build: the same service binary at another path.
other="$work/other/android.hardware.tv.tuner@1.0-service"
cleanup() {
  kill "$bystander" 2>/dev/null || true
  for binary in "$MOX_SERVICE_BINARY" "$other"; do
    MOX_SERVICE_BINARY="$binary" MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop >/dev/null 2>&1 || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAILED: $*"; exit 1; }

refused() {  # refused DIR WHAT
  if MOX_HIDL_SERVICE_DIR="$1" "$script" start >"$work/out" 2>&1; then fail "$2: started"; fi
  grep -q "scripts/service.sh: " "$work/out" || fail "$2: $(cat "$work/out")"
}

mkdir -m 0770 "$work/shared"
refused "$work/shared" "a group-writable directory"
mkdir -m 0700 "$work/real"
ln -s "$work/real" "$work/link"
refused "$work/link" "a symlinked directory"
if [ "$(id -u)" = 0 ]; then
  mkdir -m 0700 "$work/foreign" && chown 12345 "$work/foreign"
  refused "$work/foreign" "a directory of another user"
fi

mkdir -m 0700 "$work/dir"
ln -s "$work/target" "$work/dir/service.log"
refused "$work/dir" "a symlinked log"
[ ! -e "$work/target" ] || fail "the log was written through a symbolic link"
rm "$work/dir/service.log"

sleep 60 &
bystander=$!
echo "$bystander" >"$work/dir/service.pid"
MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop | grep -q "not running" || fail "a planted pid"
kill -0 "$bystander" || fail "the planted pid was signalled"

MOX_HIDL_SERVICE_DIR="$work/dir" "$script" start | grep -q "started" || fail "start"
MOX_HIDL_SERVICE_DIR="$work/dir" "$script" status | grep -q "running: pid" || fail "status"
MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop | grep -q "stopped" || fail "stop"
[ ! -e "$work/dir/android.hardware.tv.tuner@1.0::ITuner@default" ] || fail "the socket stayed"

# Two builds: the other build's service runs in the directory.
mkdir "$work/other"
cp "$MOX_SERVICE_BINARY" "$other"
MOX_SERVICE_BINARY="$other" MOX_HIDL_SERVICE_DIR="$work/dir" "$script" start | grep -q "started" ||
  fail "the other build's start"
first=$(cat "$work/dir/service.pid")
files() { for f in service.pid service.log; do stat -c "$f %s %y" "$work/dir/$f"; md5sum <"$work/dir/$f"; done; }
before=$(files)

status=0
MOX_HIDL_SERVICE_DIR="$work/dir" "$script" start >"$work/out" 2>&1 || status=$?
[ "$status" != 0 ] || fail "a second build's start succeeded: $(cat "$work/out")"
[ "$(wc -l <"$work/out")" = 1 ] || fail "the refused start says more than one line: $(cat "$work/out")"
for words in "tuner service not started: pid $first ($other) answers on $work/dir/" \
             "stop it (MOX_SERVICE_BINARY=$other " "or use another MOX_HIDL_SERVICE_DIR"; do
  grep -qF "$words" "$work/out" || fail "the refused start does not say '$words': $(cat "$work/out")"
done
[ "$(files)" = "$before" ] || fail "the first instance's pid file or log changed: $before / $(files)"

MOX_HIDL_SERVICE_DIR="$work/dir" "$script" status >"$work/out" || fail "status: $(cat "$work/out")"
grep -qF "another build running: pid $first ($other)" "$work/out" || fail "status: $(cat "$work/out")"

status=0
MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop >"$work/out" 2>&1 || status=$?
[ "$status" != 0 ] || fail "stop claimed: $(cat "$work/out")"
grep -qF "not stopped: pid $first ($other)" "$work/out" || fail "stop: $(cat "$work/out")"
kill -0 "$first" || fail "this build's stop ended the other build's service"
[ "$(files)" = "$before" ] || fail "the first instance's pid file or log changed after stop"

MOX_SERVICE_BINARY="$other" MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop | grep -q "stopped" ||
  fail "the other build's stop"
echo "service.sh checks what it trusts, and names another build's service without touching it"
