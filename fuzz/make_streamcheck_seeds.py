#!/usr/bin/env python3
"""Writes the stream checker fuzzer's seeds (fuzz/corpus/streamcheck_fuzzer/): a few packets of
a small multiplex with every table the checker decodes. The first byte is the fuzzer's choice
byte (given bit rate, sync bytes as they are)."""
import os

HERE = os.path.dirname(os.path.abspath(__file__))


def crc32(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = ((crc << 1) ^ 0x04C11DB7) if crc & 0x80000000 else crc << 1
            crc &= 0xFFFFFFFF
    return crc.to_bytes(4, "big")


def section(table, extension, body, number=0, last=0):
    length = 5 + len(body) + 4
    s = bytes([table, 0xB0 | (length >> 8), length & 0xFF, extension >> 8, extension & 0xFF,
               0xC1, number, last]) + body
    return s + crc32(s)


def loop(descriptors):
    return bytes([0xF0 | (len(descriptors) >> 8), len(descriptors) & 0xFF]) + descriptors


counters = {}


def packets(pid, payload, start=True, pointer=True):
    """A section (after a pointer_field) or a PES packet (pointer=False) cut into packets."""
    out = b""
    data = (b"\x00" + payload) if start and pointer else payload
    first = start
    while data:
        chunk, data = data[:184], data[184:]
        cc = counters.get(pid, 0)
        counters[pid] = (cc + 1) & 0xF
        header = bytes([0x47, (0x40 if first else 0) | (pid >> 8), pid & 0xFF, 0x10 | cc])
        out += (header + chunk).ljust(188, b"\xff")
        first = False
    return out


def pcr_packet(pid, ticks):
    base, ext = ticks // 300, ticks % 300
    p = bytes([0x47, pid >> 8, pid & 0xFF, 0x20, 183, 0x10, (base >> 25) & 0xFF,
               (base >> 17) & 0xFF, (base >> 9) & 0xFF, (base >> 1) & 0xFF,
               ((base & 1) << 7) | 0x7E | (ext >> 8), ext & 0xFF])
    return p.ljust(188, b"\xff")


pat = section(0x00, 0x0421, bytes([0, 0, 0xE0, 0x10, 0, 1, 0xE1, 0x00]))
pmt = section(0x02, 1, bytes([0xE1, 0x01, 0xF0, 0x00, 0x1B, 0xE1, 0x02, 0xF0, 0x00,
                              0x03, 0xE1, 0x03, 0xF0, 0x06, 0x0A, 0x04]) + b"deu\x00")
cat = section(0x01, 0xFFFF, b"")
terrestrial = bytes([0x5A, 11]) + (48200000).to_bytes(4, "big") + bytes(
    [0x1F, 0x81, 0x1A, 0xFF, 0xFF, 0xFF, 0xFF]) + bytes([0x41, 3, 0, 1, 1])
t2 = bytes([0x7F, 13, 0x04, 0x00, 0x80, 0x01, 0x00, 0xD4, 0x00, 0x07]) + (
    49000000).to_bytes(4, "big") + b"\x00"
cable = bytes([0x44, 11, 0x03, 0x06, 0, 0, 0xFF, 0xF2, 0x05, 0x00, 0x69, 0x00, 0x0F])
sat = bytes([0x43, 11, 0x01, 0x17, 0x62, 0x00, 0x01, 0x92, 0xA6, 0x02, 0x75, 0x00, 0x03])
streams = b""
for tsid, d in ((0x0421, terrestrial), (0x0422, t2), (0x0423, cable), (0x0424, sat)):
    streams += bytes([tsid >> 8, tsid & 0xFF, 0x20, 0x85]) + loop(d)
nit = section(0x40, 0x3001, loop(bytes([0x40, 3]) + b"MOX") + loop(streams))
service = bytes([0x48, 9, 0x01, 3]) + b"MOX" + bytes([4]) + b"Eins"
sdt = section(0x42, 0x0421, bytes([0x20, 0x85, 0xFF, 0, 1, 0xFD, 0x80, len(service)]) + service)
short = bytes([0x4D, 11]) + b"deu" + bytes([5]) + b"Nacht" + bytes([1]) + b"x"
event = bytes([0x10, 0x01, 0xEB, 0x96, 0x12, 0, 0, 0x01, 0x30, 0, 0x80, len(short)]) + short
eit = section(0x4E, 1, bytes([0x04, 0x21, 0x20, 0x85, 0x01, 0x4E]) + event)
tdt = bytes([0x70, 0x70, 0x05, 0xEB, 0x96, 0x12, 0, 0])
tot_body = bytes([0x73, 0x70, 11, 0xEB, 0x96, 0x12, 0, 0, 0xF0, 0])
tot = tot_body + crc32(tot_body)
pes = bytes([0, 0, 1, 0xE0, 0, 0, 0x80, 0x80, 5, 0x21, 0, 1, 0, 1, 0xAA])

stream = (packets(0, pat) + packets(0x100, pmt) + pcr_packet(0x101, 1000000) +
          packets(1, cat) + packets(0x10, nit) + packets(0x11, sdt) + packets(0x12, eit) +
          packets(0x14, tdt) + packets(0x14, tot) + packets(0x102, pes, pointer=False) +
          pcr_packet(0x101, 1000000 + 27000 * 11) + packets(0, pat))
directory = os.path.join(HERE, "corpus", "streamcheck_fuzzer")
os.makedirs(directory, exist_ok=True)
with open(os.path.join(directory, "multiplex-given-rate"), "wb") as f:
    f.write(b"\x01" + stream)
with open(os.path.join(directory, "multiplex-measured-rate"), "wb") as f:
    f.write(b"\x00" + stream)
