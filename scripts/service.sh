#!/usr/bin/env bash
# Starts, stops and shows the tuner service process on the simulated box.
#   scripts/service.sh start    start it in the background unless one is running
#   scripts/service.sh stop     SIGTERM: the service leaves its thread pool and exits with 0
#   scripts/service.sh status   whether it runs, its pid, its socket and log
# The service registers in $MOX_HIDL_SERVICE_DIR (default /tmp/mox-hidl-<uid>); its log goes to
# <that directory>/service.log. MOX_SIMULATOR_ENVIRONMENT names the installation it simulates.
# The directory is trusted only when it is a real directory of this user that no one else may
# write to (the service itself refuses any other); a pid is signalled only when it is this user's
# service binary, and nothing is written through a symbolic link.
set -euo pipefail
cd "$(dirname "$0")/.."
binary="${MOX_SERVICE_BINARY:-$PWD/build/default/android.hardware.tv.tuner@1.0-service}"
# The service's default: $XDG_RUNTIME_DIR/mox-hidl when that is a real directory of this user closed to others, else /tmp/mox-hidl-<uid>.
dir="${MOX_HIDL_SERVICE_DIR:-$(x="${XDG_RUNTIME_DIR:-}"; case "$x" in /*) [ -n "$(find "$x" -maxdepth 0 -type d -user "$(id -u)" ! -perm /022 2>/dev/null)" ] && echo "$x/mox-hidl" && exit;; esac; echo "/tmp/mox-hidl-$(id -u)")}"
socket="$dir/android.hardware.tv.tuner@1.0::ITuner@default"
pidfile="$dir/service.pid"
log="$dir/service.log"

refuse() {
  echo "scripts/service.sh: $*" >&2
  exit 4
}

# The directory: made 0700 when missing, else a real directory of ours, closed to others.
check_directory() {
  [ -e "$dir" ] || [ -L "$dir" ] || mkdir -m 0700 "$dir"
  [ -d "$dir" ] && [ ! -L "$dir" ] || refuse "$dir is not a directory (a symbolic link or a file)"
  [ "$(stat -c %u "$dir")" = "$(id -u)" ] || refuse "$dir belongs to uid $(stat -c %u "$dir"), not to $(id -u)"
  case "$(stat -c %A "$dir")" in
    ?????w????|????????w?) refuse "$dir may be written by group or others" ;;
  esac
}

# A file of the directory that is written: absent, or a regular file of ours (no symlink).
check_own_file() {
  if [ -L "$1" ] || { [ -e "$1" ] && { [ ! -f "$1" ] || [ "$(stat -c %u "$1")" != "$(id -u)" ]; }; }; then
    refuse "$1 is not a regular file of this user: not writing through it"
  fi
}

# Whether process $1 runs the binary: natively, or (a box's architecture on this machine) as the
# program qemu-user was started on by the kernel.
running_binary() {
  local exe
  exe=$(readlink "/proc/$1/exe" 2>/dev/null) || return 1
  [ "$exe" = "$binary" ] && return 0
  case "$exe" in /usr/bin/qemu-*-static) ;; *) return 1 ;; esac
  [ "$(tr '\0' '\n' < "/proc/$1/cmdline" | sed -n 2p)" = "$binary" ]
}

# The service's pid, when the pid file names a live process of this user running the binary.
service_pid() {
  [ -f "$pidfile" ] && [ ! -L "$pidfile" ] || return 1
  local pid
  pid=$(head -c 32 "$pidfile")
  case "$pid" in ''|*[!0-9]*) return 1 ;; esac
  [ "$(stat -c %u "/proc/$pid" 2>/dev/null)" = "$(id -u)" ] || return 1
  running_binary "$pid" || return 1
  echo "$pid"
}

check_directory
case "${1:-status}" in
  start)
    if pid=$(service_pid); then
      echo "tuner service already running (pid $pid)"
      exit 0
    fi
    [ -x "$binary" ] || { cmake --preset default >/dev/null; cmake --build --preset default >/dev/null; }
    check_own_file "$log"
    check_own_file "$pidfile"
    rm -f "$pidfile"
    nohup "$binary" >"$log" 2>&1 &
    pid=$!
    (set -o noclobber; echo "$pid" >"$pidfile")
    for _ in $(seq 50); do
      [ -S "$socket" ] && { echo "tuner service started (pid $pid)"; exit 0; }
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    echo "tuner service did not start; see $log" >&2
    exit 1
    ;;
  stop)
    if pid=$(service_pid); then
      kill -TERM "$pid"
      for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
      rm -f "$pidfile"
      echo "tuner service stopped"
    else
      echo "tuner service not running"
    fi
    ;;
  status)
    if pid=$(service_pid); then
      echo "tuner service running: pid $pid, socket $socket, log $log"
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
