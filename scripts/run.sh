#!/usr/bin/env bash
# Builds the service and tunerctl, starts the service process on the simulated box if none is
# running, and runs tunerctl against it as a separate client process. Without arguments tunerctl
# lists the frontends and LNBs the service discovered; any arguments go to tunerctl. The service
# keeps running afterwards (scripts/service.sh stop ends it).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tunerctl android.hardware.tv.tuner-service >/dev/null
scripts/service.sh start >&2
exec build/default/tools/tunerctl/tunerctl "$@"
