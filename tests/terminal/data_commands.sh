#!/bin/sh
# tunerctl after a lock, on the built-in box and an example installation, checked with
# independent tools: libdvbv5's dvb-format-convert reads the channel file a scan wrote, ffprobe
# opens a recording, and the tables of a recording played back are the tables of the air.
# Usage: data_commands.sh TUNERCTL EXAMPLES_DIR SERVICE_SCRIPT SERVICE_BINARY
set -eu
tunerctl="$1"
examples="$2"
service_script="$3"
export MOX_SERVICE_BINARY="$4"
work=$(mktemp -d)
trap 'MOX_HIDL_SERVICE_DIR="$work/dir" "$service_script" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
run() { "$tunerctl" "$@" 2>"$work/stderr"; }

# A scan names every service, also those of the multiplexes only the NIT announces.
run scan 0 --dvbt 482MHz -o "$work/channels.conf" >"$work/scan" || fail "scan: $(cat "$work/stderr")"
for name in "Vale Sport" "Vale Jazz" "Vale One" "Vale News 24" "Vale Weather" "Vale Local"; do
  grep -q "\"$name\"" "$work/scan" || fail "the scan does not list $name: $(cat "$work/scan")"
done
grep -q "multiplex DVB-T 650.000 MHz (from the NIT)" "$work/scan" || fail "650 MHz came not from the NIT"
grep -q "Vale News 24.*scrambled" "$work/scan" || fail "the scrambled service is not marked"
grep -q "^found 25 services" "$work/scan" || fail "not 25 services: $(tail -3 "$work/scan")"
# Staying on the given multiplex lists its five services only.
run scan 0 --dvbt 482MHz -F >"$work/given" || fail "scan -F"
grep -q "^found 5 services$" "$work/given" || fail "-F followed the NIT: $(tail -3 "$work/given")"

# The channel file is one entry per service, which libdvbv5's converter reads and tunerctl tunes.
grep -q "^\[Vale Weather\]" "$work/channels.conf" || fail "no entry for Vale Weather"
dvb-format-convert -I DVBV5 -O VDR "$work/channels.conf" "$work/channels.vdr" >/dev/null 2>&1 ||
  fail "dvb-format-convert refused the channel file"
# VDR's fields: name, kHz, parameters, source, symbol rate, video, audio, teletext, CA, service id.
grep -q "^Vale Weather:650000:.*:T:0:257:258:0:0:65:" "$work/channels.vdr" ||
  fail "the converted file lacks Vale Weather: $(cat "$work/channels.vdr")"
run tune 0 --channel "Vale Weather" -c "$work/channels.conf" | grep -q "^LOCKED$" ||
  fail "tune by name: $(cat "$work/stderr")"

# Every example installation's services by name, from scans that start on one multiplex of each
# network and reach the others through its NIT.
example_scan() {
  example="$1"
  shift
  MOX_SIMULATOR_ENVIRONMENT="$examples/$example.json" "$tunerctl" scan 0 "$@" >>"$work/$example" \
    2>"$work/stderr" || fail "$example scan $*: $(cat "$work/stderr")"
}
# all_listed EXAMPLE [MHz...]: every service of the example (of the multiplexes at those MHz only).
all_listed() {
  python3 - "$examples/$1.json" "$work/$1" "$@" <<'EOF' || fail "$1 services"
import json, sys
world = json.load(open(sys.argv[1]))
listed = open(sys.argv[2]).read()
muxes = world.get("transmitters", []) + [t for s in world.get("satellites", []) for t in s["transponders"]]
only = [int(mhz) for mhz in sys.argv[4:]]
muxes = [t for t in muxes if not only or t["frequencyMHz"] in only]
names = [s["name"] for t in muxes for s in t.get("multiplex", {}).get("services", [])]
missing = [n for n in names if '"%s"' % n not in listed]
sys.exit("%s: not listed: %s" % (sys.argv[1], missing) if missing else 0)
EOF
}
example_scan cable-network --dvbc 306MHz --symbol-rate 6.9M
all_listed cable-network
from_the_nit() { grep -q "(from the NIT)" "$work/$1" || fail "$1: no multiplex came from the NIT"; }
from_the_nit cable-network
example_scan terrestrial-region --dvbt 177MHz --bandwidth 7MHz
example_scan terrestrial-region --dvbt 538MHz
all_listed terrestrial-region
from_the_nit terrestrial-region
example_scan dish-two-satellites --dvbs 10744MHz --polarisation H --lnb EXTENDED --sat 0 \
  --symbol-rate 22M
example_scan dish-two-satellites --dvbs 11362MHz --polarisation V --lnb UNIVERSAL --sat 1 \
  --symbol-rate 27.5M
all_listed dish-two-satellites
from_the_nit dish-two-satellites
# The misbehaving board, by design: its first tune fails, its terrestrial tuner never locks, and
# its 306 MHz multiplex flaps with every packet damaged. On a service of the test's own, which
# keeps the box between commands, a second scan of its clean 314 MHz multiplex lists that one's
# services and says the tables of 306 MHz, which its NIT announces, did not come.
board() { env -u TUNERCTL_IN_PROCESS MOX_HIDL_SERVICE_DIR="$work/dir" "$tunerctl" "$@"; }
MOX_HIDL_SERVICE_DIR="$work/dir" MOX_SIMULATOR_ENVIRONMENT="$examples/misbehaving-board.json" \
  "$service_script" start >/dev/null || fail "the misbehaving board's service did not start"
board scan 0 --dvbc 314MHz --symbol-rate 6.9M >/dev/null 2>&1 || true
board scan 0 --dvbc 314MHz --symbol-rate 6.9M >"$work/misbehaving-board" 2>"$work/stderr" ||
  fail "misbehaving board: $(cat "$work/stderr")"
all_listed misbehaving-board 314
grep -A1 "^multiplex DVB-C 306.000 MHz (from the NIT)" "$work/misbehaving-board" |
  grep -q "not whole in time: PAT" || fail "306 MHz: $(cat "$work/misbehaving-board")"

# A recording of one service: ffprobe finds it by name with its streams, as long as asked.
run record 0 --channel "Vale Sport" -c "$work/channels.conf" -t 4s -o "$work/sport.ts" \
  >"$work/record" || fail "record: $(cat "$work/stderr")"
grep -q "^recorded 4.0 s .* continuity errors 0, transport errors 0$" "$work/record" ||
  fail "record summary: $(cat "$work/record")"
ffprobe -v error -show_programs -show_entries format=duration -of json "$work/sport.ts" \
  >"$work/probe" || fail "ffprobe could not read the recording"
python3 - "$work/probe" <<'EOF' || fail "ffprobe: $(cat "$work/probe")"
import json, sys
probe = json.load(open(sys.argv[1]))
duration = float(probe["format"]["duration"])
assert abs(duration - 4.0) <= 0.08, "duration %.3f s" % duration
sport = [p for p in probe["programs"] if p["program_id"] == 0x21]
assert sport and sport[0]["tags"]["service_name"] == "Vale Sport", probe["programs"]
kinds = sorted(s["codec_type"] for s in sport[0]["streams"])
assert kinds == ["audio", "video"], kinds
EOF

# record -> play -> sections: the played file's tables are the air's (the clock's aside).
run record 0 --dvbt 482MHz -t 3s -o "$work/mux.ts" >/dev/null || fail "record the multiplex"
run sections 0 --dvbt 482MHz | grep -v -e "^LOCKED$" -e "^TDT" -e "^TOT" >"$work/air" || fail "sections of the air"
run sections --play "$work/mux.ts" | grep -v -e "^TDT" -e "^TOT" >"$work/played" || fail "sections --play"
grep -q "^SDT actual: transport stream 0x1002" "$work/air" || fail "no SDT from the air: $(cat "$work/air")"
diff "$work/air" "$work/played" >"$work/diff" || fail "played tables differ: $(cat "$work/diff")"

# Bad input: one line on stderr (after a tune's own line on stdout, where there is one), exit 2.
expect_usage() {
  set +e
  "$tunerctl" "$@" 2>"$work/out" >/dev/null
  code=$?
  set -e
  [ "$code" -eq 2 ] || fail "exit $code, not 2, for: $* ($(cat "$work/out"))"
  [ "$(grep -cv ' [VDIWE] ' "$work/out")" -eq 1 ] || fail "not one line for: $*: $(cat "$work/out")"
}
expect_usage tune 0 --channel "No Such Service" -c "$work/channels.conf"
head -c 1000 /dev/urandom >"$work/noise.ts"
expect_usage sections --play "$work/noise.ts"
expect_usage play "$work/noise.ts"
expect_usage sections 0 --dvbt 482MHz --pid 0x2000 --table 0x42
expect_usage record 0 --channel "Vale Sport" -c "$work/channels.conf" --service 0x99 -t 1s -o "$work/x.ts"
echo "scan, channel file, record, play and sections as the DVB tools see them"
