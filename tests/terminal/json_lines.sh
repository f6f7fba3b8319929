#!/bin/sh
# Every line tunerctl prints with --json is a JSON document, errors included.
set -eu
tunerctl="$1"
check() {
  out=$("$tunerctl" "$@" 2>/dev/null || true)
  [ -n "$out" ] || { echo "no output from: $*"; exit 1; }
  echo "$out" | python3 -c '
import json, sys
for number, line in enumerate(sys.stdin, 1):
    try:
        json.loads(line)
    except ValueError as error:
        sys.exit("line %d is not JSON (%s): %s" % (number, error, line.rstrip()))
' || { echo "from: $*"; exit 1; }
}
check --json
check frontends --json
check info 2 --json
check lnbs --json
check lnb 0 --voltage 18V --json
check tune 0 --dvbt 482MHz --json
check scan 0 --dvbt 650MHz --json
check demux --frontend 0 --dvbt 482MHz --json
check tune 0 --dvbt 482 --json
check tune 9 --dvbt 482MHz --json
check tune 0 --bogus --json
echo "every --json line is JSON"
