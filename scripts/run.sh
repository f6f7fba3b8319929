#!/usr/bin/env bash
# Builds the service and runs tunerctl against it on the simulated box. Without arguments it
# lists the frontends and LNBs the service discovered; any arguments go to tunerctl.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tunerctl >/dev/null
exec build/default/tools/tunerctl/tunerctl "$@"
