#!/usr/bin/env bash
# Starts, stops and shows the tuner service process on the simulated box.
#   scripts/service.sh start [--speed N]   start it in the background unless one is running;
#                               with --speed N the simulated clock runs N times real time
#   scripts/service.sh stop     SIGTERM: the service leaves its thread pool and exits with 0
#   scripts/service.sh status   what answers on the socket (pid, binary, clock), socket and log
# The service registers in $MOX_HIDL_SERVICE_DIR (default below); its log goes to
# <that directory>/service.log. MOX_SIMULATOR_ENVIRONMENT names the installation it simulates.
# The directory is trusted only when it is a real directory of this user that no one else may
# write to (the service itself refuses any other); a pid is signalled only when it is this user's
# service binary, and nothing is written through a symbolic link. What answers on the socket is
# read from the kernel's socket table: another build's service there is named, never signalled,
# and its pid file and log are left alone.
set -euo pipefail
cd "$(dirname "$0")/.."
binary="${MOX_SERVICE_BINARY:-$PWD/build/default/android.hardware.tv.tuner@1.0-service}"
# The service's default directory: $XDG_RUNTIME_DIR/mox-hidl when XDG_RUNTIME_DIR is a real
# directory of this user closed to others (no other user can make the name there first), else
# /tmp/mox-hidl-<uid>.
default_directory() {
  local runtime="${XDG_RUNTIME_DIR:-}"
  case "$runtime" in
    /*) if [ -n "$(find "$runtime" -maxdepth 0 -type d -user "$(id -u)" ! -perm /022 2>/dev/null)" ]; then
          echo "$runtime/mox-hidl"
          return
        fi ;;
  esac
  echo "/tmp/mox-hidl-$(id -u)"
}
dir="${MOX_HIDL_SERVICE_DIR:-$(default_directory)}"
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

# The program process $1 runs: its executable or, for a box's architecture on this machine, the
# program qemu-user was started on by the kernel. A binary rebuilt since keeps its path.
program_of() {
  local exe
  exe=$(readlink "/proc/$1/exe" 2>/dev/null) || return 1
  case "$exe" in
    /usr/bin/qemu-*-static) exe=$(tr '\0' '\n' < "/proc/$1/cmdline" | sed -n 2p) ;;
  esac
  echo "${exe% (deleted)}"
}

# Whether process $1 is this user's and runs the binary.
runs_binary() {
  [ "$(stat -c %u "/proc/$1" 2>/dev/null)" = "$(id -u)" ] && [ "$(program_of "$1")" = "$binary" ]
}

# The pids of the processes listening on the socket, from the kernel's table: the service binds
# it under a private name (<socket>.building.<pid>) and renames it into place, and the table keeps
# the name it was bound to. "?" stands for a listener whose process this user cannot see.
listener_pids() {
  local inodes inode pids
  inodes=$(awk -v s="$socket" 'NR > 1 && $4 == "00010000" {
      i = index($0, " " s); if (i == 0) next
      rest = substr($0, i + 1); tail = substr(rest, length(s) + 11)
      if (rest == s || (substr(rest, 1, length(s) + 10) == s ".building." && tail ~ /^[0-9]+$/))
        print $7
    }' /proc/net/unix)
  [ -n "$inodes" ] || return 0
  local names=()
  for inode in $inodes; do names+=(-o -lname "socket:\\[$inode\\]"); done
  pids=$(find /proc/[0-9]*/fd -maxdepth 1 \( "${names[@]:1}" \) 2>/dev/null | cut -d/ -f3 | sort -un || true)
  echo "${pids:-?}"
}

# The process that answers on the socket, when one does: a listener whose private name is gone
# (renamed into place), not one still registering (which loses when another answers).
answering_pid() {
  local pid
  for pid in $(listener_pids); do
    if [ "$pid" = "?" ] || [ ! -e "$socket.building.$pid" ]; then echo "$pid"; return 0; fi
  done
  return 1
}

# "real time" or "50x real time": the clock at speed $1.
clock_text() {
  case "$1" in ''|1) echo "real time" ;; *) echo "${1}x real time" ;; esac
}

# How fast the clock of service $1 runs, as its environment set it.
clock_of() {
  clock_text "$(tr '\0' '\n' < "/proc/$1/environ" 2>/dev/null | sed -n 's/^MOX_CLOCK_SPEED=//p' || true)"
}

# "pid N (BINARY)" of a process this script may not touch.
describe() {
  if [ "$1" = "?" ]; then
    echo "a process of another user"
  else
    echo "pid $1 ($(program_of "$1" || echo "binary unknown"))"
  fi
}

# The service this script runs, from the pid file: a live process of this user running the binary.
service_pid() {
  [ -f "$pidfile" ] && [ ! -L "$pidfile" ] || return 1
  local pid
  pid=$(head -c 32 "$pidfile")
  case "$pid" in ''|*[!0-9]*) return 1 ;; esac
  runs_binary "$pid" || return 1
  echo "$pid"
}

# Says that another build's service answers on the socket, what was not done, and how to stop
# that service (the binary it runs, named to this script).
another_build() {  # another_build PID WHAT-WAS-NOT-DONE
  local program
  program=$(program_of "$1" 2>/dev/null || echo BINARY)
  echo "tuner service $2: $(describe "$1") answers on $socket, not $binary;" \
       "stop it (MOX_SERVICE_BINARY=$program $0 stop) or use another MOX_HIDL_SERVICE_DIR" >&2
}

start() {
  local speed="" pid rc last
  case "${1:-}" in
    "") ;;
    --speed) [ $# -eq 2 ] && [ -n "$2" ] || { echo "usage: $0 start [--speed N]" >&2; exit 2; }
      speed="$2" ;;
    *) echo "usage: $0 start [--speed N]" >&2; exit 2 ;;
  esac
  if pid=$(answering_pid); then
    if ! runs_binary "$pid"; then another_build "$pid" "not started"; exit 1; fi
    if [ -n "$speed" ] && [ "$(clock_of "$pid")" != "$(clock_text "$speed")" ]; then
      echo "tuner service already running (pid $pid, clock $(clock_of "$pid")): stop it to start it with --speed $speed" >&2
      exit 1
    fi
    echo "tuner service already running (pid $pid, clock $(clock_of "$pid"))"
    exit 0
  fi
  [ -x "$binary" ] || { cmake --preset default >/dev/null; cmake --build --preset default >/dev/null; }
  check_own_file "$log"
  check_own_file "$pidfile"
  # Until the new instance answers, its log is its own file: one that loses to an instance
  # starting meanwhile leaves that instance's log alone.
  local starting
  starting=$(mktemp "$dir/service.log.starting.XXXXXX")
  if [ -n "$speed" ]; then export MOX_CLOCK_SPEED="$speed"; else unset MOX_CLOCK_SPEED; fi
  nohup "$binary" >"$starting" 2>&1 &
  pid=$!
  for _ in $(seq 50); do
    # Answering: the socket renamed into place, and no one else listening.
    if [ -S "$socket" ] && [ ! -e "$socket.building.$pid" ] && [ "$(listener_pids)" = "$pid" ]; then
      mv -f "$starting" "$log"
      local written
      written=$(mktemp "$dir/service.pid.XXXXXX")
      echo "$pid" >"$written"
      mv -f "$written" "$pidfile"
      echo "tuner service started (pid $pid, clock $(clock_of "$pid"))"
      exit 0
    fi
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid"
    rc=1
    last="it did not answer on $socket within 5 s and was stopped"
  else
    rc=0
    wait "$pid" || rc=$?
    last=$(tail -n 1 "$starting")
  fi
  if other=$(answering_pid) && [ "$other" != "$pid" ]; then
    rm -f "$starting"
    another_build "$other" "not started"
    exit 1
  fi
  mv -f "$starting" "$log"
  echo "tuner service did not start: ${last:-it ended with exit code $rc} (log: $log)" >&2
  [ "$rc" = 2 ] && exit 2
  exit 1
}

stop() {
  local pid
  if pid=$(answering_pid) || pid=$(service_pid); then
    if ! runs_binary "$pid"; then
      another_build "$pid" "not stopped"
      exit 1
    fi
    kill -TERM "$pid"
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    if kill -0 "$pid" 2>/dev/null; then
      echo "tuner service (pid $pid) still runs 5 s after SIGTERM" >&2
      exit 1
    fi
    if [ "$(head -c 32 "$pidfile" 2>/dev/null || true)" = "$pid" ]; then rm -f "$pidfile"; fi
    echo "tuner service stopped (pid $pid)"
  else
    echo "tuner service not running"
  fi
}

status() {
  local pid
  if pid=$(answering_pid); then
    if runs_binary "$pid"; then
      echo "tuner service running: pid $pid, binary $binary, clock $(clock_of "$pid"), socket $socket, log $log"
    else
      echo "tuner service of another build running: $(describe "$pid"), clock $(clock_of "$pid"), socket $socket (this checkout's binary is $binary)"
    fi
  elif pid=$(service_pid); then
    echo "tuner service not answering: pid $pid runs $binary but does not listen on $socket; log $log"
    exit 1
  else
    echo "tuner service not running"
    exit 3
  fi
}

check_directory
case "${1:-status}" in
  start) shift; start "$@" ;;
  stop) stop ;;
  status) status ;;
  *)
    echo "usage: $0 start [--speed N]|stop|status" >&2
    exit 2
    ;;
esac
