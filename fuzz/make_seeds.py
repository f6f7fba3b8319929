#!/usr/bin/env python3
"""Writes the fuzzers' seed corpora (fuzz/corpus/<fuzzer>/). Run again after a record changes.

The driver's records are little-endian; the offsets are those the driver header pins with its
static_asserts. A fuzz input's integers (results, choices) are read from its end, its records
from its start."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
ENTRY = 352
RECORD = 4 + 5 * ENTRY


def put(buf, offset, fmt, *values):
    struct.pack_into("<" + fmt, buf, offset, *values)


def code_list(buf, offset, codes):
    put(buf, offset, "B", len(codes))
    for i, code in enumerate(codes):
        put(buf, offset + 4 + 4 * i, "I", code)


def entry(buf, index, type_code, channels, fill):
    base = 4 + index * ENTRY
    put(buf, base, "B", channels)
    put(buf, base + 0x04, "I", 0x3FFFFF)
    code_list(buf, base + 0x08, [type_code])
    put(buf, base + 0x30, "II", 47, 862)
    put(buf, base + 0x38, "II", 1000, 7200)
    code_list(buf, base + 0x40, [1, 2, 3])
    fill(buf, base)


def dvbc(buf, base):
    code_list(buf, base + 0x64, [1, 2, 3, 4, 5])
    code_list(buf, base + 0x90, [1, 2, 3])


def dvbs(buf, base):
    put(buf, base + 0x64, "B", 2)
    put(buf, base + 0x68, "IIII", 13, 18, 14, 19)
    code_list(buf, base + 0x78, [1, 2])
    code_list(buf, base + 0xB0, [3, 4, 5])
    code_list(buf, base + 0xE8, [1, 2, 3])
    code_list(buf, base + 0x124, [4, 5, 6, 7])


def dvbt(buf, base):
    put(buf, base + 0x64, "BB", 1, 1)
    code_list(buf, base + 0x68, [0, 1, 2])
    code_list(buf, base + 0x7C, [0, 1, 2, 3])
    code_list(buf, base + 0x94, [0, 1, 2])
    code_list(buf, base + 0xB0, [0, 1, 2, 3, 4])
    code_list(buf, base + 0xD8, [0, 1, 2])
    code_list(buf, base + 0xF0, [0, 1, 2, 3])
    code_list(buf, base + 0x114, [0, 1, 2])
    code_list(buf, base + 0x128, [0, 1])
    code_list(buf, base + 0x13C, [0, 1, 2, 3])


def box(counts=None):
    buf = bytearray(RECORD)
    put(buf, 0, "B", 5)
    entry(buf, 0, 1, 1, dvbc)
    entry(buf, 1, 4, 2, dvbt)
    entry(buf, 2, 6, 1, dvbs)
    entry(buf, 3, 7, 1, dvbt)
    entry(buf, 4, 8, 1, dvbc)
    if counts is not None:
        put(buf, 0, "B", counts)
        for index in range(5):
            base = 4 + index * ENTRY
            for offset in (0x08, 0x40, 0x64, 0x68, 0x90, 0xB0, 0x114, 0x13C):
                put(buf, base + offset, "B", counts)
    return bytes(buf)


def write(fuzzer, name, data):
    folder = os.path.join(HERE, "corpus", fuzzer)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


write("capability_fuzzer", "five-entries", box() + b"\x00")
write("capability_fuzzer", "failed-read", box() + b"\x01")
write("capability_fuzzer", "counts-beyond-room", box(255) + b"\x00")

signal = struct.pack("<IIIIffIiffff", 0, 1, 80, 70, 24.5, 1e-6, 40, 523, 0.0, 23.7, 2e-7, 0)
param = struct.pack("<I8sI8sB", 7, bytes(8), 1, bytes(8), 3) + bytes(259)
nan = struct.pack("<f", float("nan"))
write("status_fuzzer", "all-types", signal + param + bytes(range(22)) + b"\x00\x16")
write("status_fuzzer", "nan-figures", nan * 12 + param + bytes(range(22)) + b"\x01\x16")

for name, data in {
    "zeros": bytes(64),
    "counting": bytes(range(256)),
    "high": bytes(range(255, -1, -1)),
    "dvb-choices": bytes([3, 4, 5] * 40),
}.items():
    for fuzzer in ("tune_scan_fuzzer", "lnb_fuzzer", "sequence_fuzzer"):
        write(fuzzer, name, data)
write("lnb_fuzzer", "diseqc", bytes([0xE0, 0x10, 0x38, 0xF3, 0, 0, 0, 9, 3, 0]))


# The transport: the first byte says whether the session's hello comes first (bit 0); the rest
# goes to the service's side of a connection as it stands. A frame is a 24-byte header (body
# bytes, kind, descriptor count, method, call id, padding, object) and a Cap'n Proto message.
def frame(kind, method=0, object_id=0, call_id=1, body=b""):
    return struct.pack("<IBBHIIQ", len(body), kind, 0, method, call_id, 0, object_id) + body


def message(*words):
    # One segment: the root pointer (a struct of the given data words, no pointers), the data.
    root = (len(words) << 32)
    return struct.pack("<II", 0, 1 + len(words)) + struct.pack("<Q", root) + b"".join(
        struct.pack("<Q", w) for w in words)


CALL, ONEWAY, RELEASE, HELLO = 1, 2, 5, 6
write("transport_fuzzer", "get-frontend-ids", b"\x01" + frame(CALL, method=0, object_id=1))
write("transport_fuzzer", "get-frontend-info",
      b"\x01" + frame(CALL, method=0, object_id=1) + frame(CALL, 5, 1, 2, message(0)))
write("transport_fuzzer", "open-frontend-and-release",
      b"\x01" + frame(CALL, 0, 1) + frame(CALL, 1, 1, 2, message(2)) + frame(RELEASE, 0, 2, 1))
write("transport_fuzzer", "ping-chain-descriptor",
      b"\x01" + frame(CALL, 0xF000, 1) + frame(CALL, 0xF001, 1, 2) + frame(CALL, 0xF002, 1, 3))
write("transport_fuzzer", "oneway-to-the-root", b"\x01" + frame(ONEWAY, 0, 1, 0))
write("transport_fuzzer", "hello-twice", b"\x00" + frame(HELLO, 1) + frame(HELLO, 1))
write("transport_fuzzer", "unknown-object", b"\x01" + frame(CALL, 0, 99))
# Before a hello: a hello that announces a body, a call that announces a megabyte.
write("transport_fuzzer", "pre-hello-hello-with-a-body",
      b"\x00" + struct.pack("<IBBHIIQ", 1 << 19, HELLO, 0, 1, 0, 0, 0) + bytes(64))
write("transport_fuzzer", "pre-hello-call-of-a-megabyte",
      b"\x00" + struct.pack("<IBBHIIQ", (1 << 20) - 24, CALL, 0, 5, 1, 0, 1) + bytes(64))
# Bodies of a call (bit 1): honest, a segment count that wraps to none, more segments than a
# frame may have, sizes that do not add up to the body.
info = message(0)
write("transport_fuzzer", "body-honest", b"\x03" + info)
write("transport_fuzzer", "body-segment-count-wraps", b"\x03" + struct.pack("<I", 0xFFFFFFFF) + info[4:])
write("transport_fuzzer", "body-too-many-segments", b"\x03" + struct.pack("<I", 64) + info[4:])
write("transport_fuzzer", "body-sizes-beyond", b"\x03" + info[:4] + struct.pack("<I", 9) + info[8:])
write("transport_fuzzer", "body-before-hello", b"\x02" + info)
# Descriptors with the first bytes (bit 2; bits 3-7 how many): a call that claims them, more than
# a message may carry, a frame that claims none, and before a hello.
write("transport_fuzzer", "fds-with-a-call", bytes([0x07 | 3 << 3]) + info)
write("transport_fuzzer", "fds-beyond-the-bound", bytes([0x07 | 20 << 3]) + info)
write("transport_fuzzer", "fds-a-frame-does-not-claim", bytes([0x05 | 5 << 3]) + frame(CALL, 0, 1))
write("transport_fuzzer", "fds-before-hello", bytes([0x04 | 2 << 3]) + frame(CALL, 5, 1))


# The trace reader: a header without the capability record and, per seed, the first records of
# each kind a committed trace holds (records past a few hundred bytes are left out: max_len).
def trace_seed(name, kinds):
    path = os.path.join(HERE, "..", "tests", "traces", name + ".jsonl")
    lines = ['{"trace":"mox-tuner","version":1,"capabilities":null}']
    with open(path) as f:
        for line in f.read().splitlines()[1:]:
            for kind in list(kinds):
                if '"%s":' % kind in line and len(line) < 400:
                    lines.append(line)
                    kinds.remove(kind)
    write("trace_reader_fuzzer", name, ("\n".join(lines) + "\n").encode())


trace_seed("terrestrial-tune-status", ["driver", "call", "return", "callback", "end"])
trace_seed("satellite-diseqc", ["driver", "call", "return", "end"])
trace_seed("cable-blind-sweep", ["callback", "driver", "end"])
