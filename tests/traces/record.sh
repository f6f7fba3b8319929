#!/bin/bash
# Records the sessions kept here as regression traces, each with a service of its own on the
# simulated box: run it after a deliberate change of what the service does, and review the diff.
#   tests/traces/record.sh [BUILD_DIR]      (default build/default)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/default}
service=$build/tests/tuner-service-fastpoll
tunerctl=$build/tools/tunerctl/tunerctl
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# record NAME INSTALLATION_FILE COMMAND...: one service process, the commands as its clients.
record() {
    local name=$1 world=$2
    shift 2
    local dir=$work/$name
    mkdir -m 700 "$dir"
    rm -f "$root/tests/traces/$name.jsonl"
    MOX_HIDL_SERVICE_DIR=$dir MOX_SIMULATOR_ENVIRONMENT=$world \
        MOX_TUNER_TRACE=$root/tests/traces/$name.jsonl "$service" 2>"$dir/log" &
    local pid=$!
    while [ ! -S "$dir/android.hardware.tv.tuner@1.0::ITuner@default" ] && kill -0 $pid; do
        sleep 0.05
    done
    for command in "$@"; do
        eval "MOX_HIDL_SERVICE_DIR=\$dir \"\$tunerctl\" -q $command" >/dev/null || true
    done
    kill -TERM $pid
    wait $pid || true
    echo "$name: $(wc -l <"$root/tests/traces/$name.jsonl") lines"
}

examples=$root/examples
record cable-blind-sweep "$examples/cable-network.json" \
    "frontends" "scan 0 --dvbc 306MHz --blind"
record terrestrial-tune-status "$examples/terrestrial-region.json" \
    "tune 0 --dvbt 538MHz" "status 0" "tune 1 --dvbt 490MHz --standard T2" "status 1" \
    "tune 0 --dvbt 700MHz"
record satellite-diseqc "$examples/dish-two-satellites.json" \
    "lnbs" "lnb 0 --voltage 18V --tone on --position B" "lnb 0 --diseqc 'E0 10 38 F3'" \
    "tune 0 --dvbs 11362MHz --lnb UNIVERSAL --polarisation V --sat 1" "status 0" \
    "tune 1 --dvbs 12188MHz --lnb UNIVERSAL --polarisation H --sat 0"
record misbehaving-board "$examples/misbehaving-board.json" \
    "frontends" "tune 0 --dvbc 306MHz --symbol-rate 6900k" "status 0" \
    "tune 0 --dvbc 306MHz --symbol-rate 6900k" "status 0" "scan 1 --dvbt 482MHz" \
    "tune 1 --dvbt 482MHz" "status 1"
