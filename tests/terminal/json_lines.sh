#!/bin/sh
# Every line tunerctl prints with --json is a JSON document, errors included.
set -eu
tunerctl="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
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
check status 0 --dvbt 482MHz --stream --json
check scan 0 --dvbt 482MHz -F --json
check record 0 --dvbt 482MHz -t 1s -o "$work/mux.ts" --json
check record 0 --dvbt 482MHz -t 1s --service 0x21 -o "$work/one.ts" --json
check play "$work/mux.ts" --fast --json
check sections --play "$work/mux.ts" --json
check sections 0 --dvbt 482MHz --pid 0 --table 0 --json
check epg 0 --dvbt 482MHz --service 0x21 --json
check record 0 --dvbt 482MHz --service 0x99 -t 1s -o "$work/none.ts" --json
check play /dev/null --json
echo "every --json line is JSON"
