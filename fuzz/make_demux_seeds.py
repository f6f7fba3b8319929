#!/usr/bin/env python3
"""Writes the demux engine fuzzer's seeds (fuzz/corpus/demux_engine_fuzzer/): packets on the four
PIDs its filters take (a PAT and a PMT in sections, audio PES with a PTS, H.264 video PES with a
PCR), clear and scrambled. The first byte is the fuzzer's choice byte."""
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


def section(table, extension, body, version=1):
    length = 5 + len(body) + 4
    s = bytes([table, 0xB0 | (length >> 8), length & 0xFF, extension >> 8, extension & 0xFF,
               0xC1 | (version << 1), 0, 0]) + body
    return s + crc32(s)


def packet(pid, cc, payload, unit_start=False, scrambling=0, pcr=None):
    header = bytes([0x47, (0x40 if unit_start else 0) | (pid >> 8), pid & 0xFF])
    fields = b""
    if pcr is not None:
        base, ext = pcr // 300, pcr % 300
        fields = bytes([0x10, base >> 25 & 0xFF, base >> 17 & 0xFF, base >> 9 & 0xFF,
                        base >> 1 & 0xFF, (base & 1) << 7 | 0x7E | ext >> 8, ext & 0xFF])
    if pcr is None and len(payload) >= 184:
        return header + bytes([scrambling << 6 | 0x10 | cc]) + payload[:184]
    # An adaptation field: the PCR, or stuffing where the payload is short.
    room = 184 - 1 - len(fields)
    payload = payload[:room]
    stuffing = room - len(payload)
    if not fields and stuffing > 0:
        fields = b"\x00"
        stuffing -= 1
    body = fields + b"\xff" * stuffing
    return header + bytes([scrambling << 6 | 0x30 | cc, len(body)]) + body + payload


def pes(stream_id, pts, data):
    timestamp = bytes([0x21 | (pts >> 29 & 0x0E), pts >> 22 & 0xFF, 0x01 | (pts >> 14 & 0xFE),
                       pts >> 7 & 0xFF, 0x01 | (pts << 1 & 0xFE)])
    header = bytes([0x80, 0x80, len(timestamp)]) + timestamp
    length = len(header) + len(data)
    return bytes([0, 0, 1, stream_id, length >> 8, length & 0xFF]) + header + data


def stream(scrambling):
    pat = section(0x00, 1, bytes([0, 1, 0xE0, 0x01]))
    pmt = section(0x02, 1, bytes([0xE0, 0x03, 0xF0, 0x00, 0x1B, 0xE0, 0x03, 0xF0, 0x00,
                                  0x03, 0xE0, 0x02, 0xF0, 0x00]))
    audio = pes(0xC0, 90000, bytes([0xFF, 0xFD, 0x94, 0x00]) + bytes(range(40)))
    video = pes(0xE0, 93600, bytes([0, 0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x67, 0x64, 0, 0x28,
                                    0, 0, 1, 0x65, 0x88, 0x84]) + bytes(200))
    out = packet(0, 0, bytes([0]) + pat, True) + packet(1, 0, bytes([0]) + pmt, True)
    out += packet(2, 0, audio, True, scrambling)
    out += packet(3, 0, video[:176], True, scrambling, pcr=27000000)
    out += packet(3, 1, video[176:], False, scrambling)
    return out


def main():
    directory = os.path.join(HERE, "corpus", "demux_engine_fuzzer")
    os.makedirs(directory, exist_ok=True)
    for name, choice, scrambling in (("clear", 0x00, 0), ("scrambled-cleared", 0x04, 2),
                                     ("scrambled-kept", 0x00, 3)):
        with open(os.path.join(directory, name), "wb") as f:
            f.write(bytes([choice]) + stream(scrambling))


if __name__ == "__main__":
    main()
