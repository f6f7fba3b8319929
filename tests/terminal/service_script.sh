#!/bin/sh
# scripts/service.sh trusts nothing it did not check: a directory of another kind or open to
# others is refused, a planted pid file names no process it signals, and a symbolic link is never
# written through. Then a start, a status and a stop that leaves no socket behind.
set -eu
script="$1"
export MOX_SERVICE_BINARY="$2"
work=$(mktemp -d)
trap 'kill "$bystander" 2>/dev/null || true; MOX_HIDL_SERVICE_DIR="$work/dir" "$script" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
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
echo "service.sh checks what it trusts"
