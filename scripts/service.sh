#!/usr/bin/env bash
# Starts, stops and shows the tuner service process on the simulated box.
#   scripts/service.sh start    start it in the background unless one is running
#   scripts/service.sh stop     SIGTERM: the service leaves its thread pool and exits with 0
#   scripts/service.sh status   whether it runs, its pid, its socket and log
# The service registers in $MOX_HIDL_SERVICE_DIR (default /tmp/mox-hidl-<uid>); its log goes to
# <that directory>/service.log. MOX_SIMULATOR_ENVIRONMENT names the installation it simulates.
set -euo pipefail
cd "$(dirname "$0")/.."
binary=build/default/android.hardware.tv.tuner@1.0-service
dir="${MOX_HIDL_SERVICE_DIR:-/tmp/mox-hidl-$(id -u)}"
socket="$dir/android.hardware.tv.tuner@1.0::ITuner@default"
pidfile="$dir/service.pid"
log="$dir/service.log"

running() {
  [ -f "$pidfile" ] && kill -0 "$(cat "$pidfile")" 2>/dev/null
}

case "${1:-status}" in
  start)
    if running; then
      echo "tuner service already running (pid $(cat "$pidfile"))"
      exit 0
    fi
    [ -x "$binary" ] || { cmake --preset default >/dev/null; cmake --build --preset default >/dev/null; }
    mkdir -p "$dir"
    nohup "$binary" >"$log" 2>&1 &
    echo $! >"$pidfile"
    for _ in $(seq 50); do
      [ -S "$socket" ] && { echo "tuner service started (pid $(cat "$pidfile"))"; exit 0; }
      kill -0 "$(cat "$pidfile")" 2>/dev/null || break
      sleep 0.1
    done
    echo "tuner service did not start; see $log" >&2
    exit 1
    ;;
  stop)
    if running; then
      pid=$(cat "$pidfile")
      kill -TERM "$pid"
      for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
      rm -f "$pidfile"
      echo "tuner service stopped"
    else
      echo "tuner service not running"
    fi
    ;;
  status)
    if running; then
      echo "tuner service running: pid $(cat "$pidfile"), socket $socket, log $log"
    else
      echo "tuner service not running"
      exit 3
    fi
    ;;
  *)
    echo "usage: $0 start|stop|status" >&2
    exit 2
    ;;
esac
