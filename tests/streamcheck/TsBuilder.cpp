#include "TsBuilder.h"

#include <stdexcept>

namespace tsbuild {

uint32_t crc32(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= uint32_t{data[i]} << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000) ? (crc << 1) ^ 0x04C11DB7 : crc << 1;
        }
    }
    return crc;
}

Bytes withCrc(Bytes section) {
    const uint32_t crc = crc32(section.data(), section.size());
    for (int shift = 24; shift >= 0; shift -= 8) section.push_back(uint8_t(crc >> shift));
    return section;
}

void fixCrc(Bytes& section) {
    section.resize(section.size() - 4);
    section = withCrc(section);
}

Bytes longSection(uint8_t table, uint16_t extension, uint8_t version, uint8_t number, uint8_t last,
                  const Bytes& body) {
    const size_t length = 5 + body.size() + 4;
    Bytes s{table,
            uint8_t(0xB0 | (length >> 8)),
            uint8_t(length & 0xFF),
            uint8_t(extension >> 8),
            uint8_t(extension & 0xFF),
            uint8_t(0xC1 | (version << 1)),
            number,
            last};
    s.insert(s.end(), body.begin(), body.end());
    return withCrc(s);
}

Bytes tdt(uint16_t mjd, uint8_t h, uint8_t m, uint8_t s) {
    return {0x70, 0x70, 0x05, uint8_t(mjd >> 8), uint8_t(mjd & 0xFF), h, m, s};
}

Bytes tot(uint16_t mjd, uint8_t h, uint8_t m, uint8_t s) {
    return withCrc({0x73, 0x70, 11, uint8_t(mjd >> 8), uint8_t(mjd & 0xFF), h, m, s, 0xF0, 0x00});
}

Bytes packet(const Header& h, const Bytes& payload) {
    if (payload.size() > 184) throw std::logic_error("payload over 184 bytes");
    Bytes p{0x47, uint8_t((h.transportError ? 0x80 : 0) | (h.unitStart ? 0x40 : 0) | (h.pid >> 8)),
            uint8_t(h.pid & 0xFF), uint8_t((h.scrambling << 6) | 0x10 | (h.counter & 0xF))};
    p.insert(p.end(), payload.begin(), payload.end());
    p.resize(188, 0xFF);
    return p;
}

void setPcr(Bytes& p, uint64_t ticks) {
    const uint64_t base = ticks / 300;
    const uint64_t extension = ticks % 300;
    p[6] = uint8_t(base >> 25);
    p[7] = uint8_t(base >> 17);
    p[8] = uint8_t(base >> 9);
    p[9] = uint8_t(base >> 1);
    p[10] = uint8_t(((base & 1) << 7) | 0x7E | (extension >> 8));
    p[11] = uint8_t(extension & 0xFF);
}

Bytes pcrPacket(uint16_t pid, uint8_t counter, uint64_t pcr, bool discontinuity) {
    Bytes p{0x47,
            uint8_t(pid >> 8),
            uint8_t(pid & 0xFF),
            uint8_t(0x20 | (counter & 0xF)),
            183,
            uint8_t(0x10 | (discontinuity ? 0x80 : 0))};
    p.resize(188, 0xFF);
    setPcr(p, pcr);
    return p;
}

Bytes nullPacket() {
    return packet(Header{0x1FFF}, {});
}

std::vector<Bytes> sectionPayloads(const Bytes& section) {
    std::vector<Bytes> payloads;
    Bytes first{0x00};
    size_t at = 0;
    const size_t n = std::min<size_t>(183, section.size());
    first.insert(first.end(), section.begin(), section.begin() + n);
    payloads.push_back(first);
    at = n;
    while (at < section.size()) {
        const size_t m = std::min<size_t>(184, section.size() - at);
        payloads.emplace_back(section.begin() + at, section.begin() + at + m);
        at += m;
    }
    return payloads;
}

Bytes pesWithPts(uint8_t streamId, uint64_t pts) {
    return {0x00,
            0x00,
            0x01,
            streamId,
            0x00,
            0x00,
            0x80,
            0x80,
            0x05,
            uint8_t(0x21 | ((pts >> 29) & 0x0E)),
            uint8_t(pts >> 22),
            uint8_t(0x01 | ((pts >> 14) & 0xFE)),
            uint8_t(pts >> 7),
            uint8_t(0x01 | ((pts << 1) & 0xFE)),
            0xAA,
            0xBB};
}

void Timeline::put(size_t ms, const std::string& tag, uint16_t pid, const Bytes& payload,
                   bool unitStart) {
    while (ms < mSlots.size() && mSlots[ms]) ++ms;
    if (ms >= mSlots.size()) return;
    mSlots[ms] = Item{tag, packet(Header{pid, unitStart}, payload), false};
}

void Timeline::putSection(size_t ms, const std::string& tag, uint16_t pid, const Bytes& section) {
    bool first = true;
    for (const Bytes& payload : sectionPayloads(section)) {
        put(ms, tag, pid, payload, first);
        first = false;
    }
}

void Timeline::putPcr(size_t ms, uint16_t pid) {
    while (ms < mSlots.size() && mSlots[ms]) ++ms;
    if (ms >= mSlots.size()) return;
    mSlots[ms] = Item{"pcr", pcrPacket(pid, 0, 0), true};
}

std::vector<Slot> Timeline::finish(const std::function<bool(size_t ms, const std::string& tag)>& keep,
                                   uint64_t pcrBase) const {
    std::vector<Slot> out;
    uint8_t counters[8192] = {};
    for (size_t ms = 0; ms < mSlots.size(); ++ms) {
        const auto& item = mSlots[ms];
        if (!item || (keep && !keep(ms, item->tag))) {
            out.push_back(Slot{"null", nullPacket()});
            continue;
        }
        Bytes bytes = item->bytes;
        const uint16_t pid = uint16_t(((bytes[1] & 0x1F) << 8) | bytes[2]);
        bytes[3] = uint8_t((bytes[3] & 0xF0) | (counters[pid] & 0xF));
        // Only packets with a payload advance their PID's counter.
        if (bytes[3] & 0x10) ++counters[pid];
        if (item->pcr) setPcr(bytes, pcrBase + ms * kTicksPerPacket);
        out.push_back(Slot{item->tag, bytes});
    }
    return out;
}

size_t nth(const std::vector<Slot>& slots, const std::string& tag, size_t n) {
    for (size_t i = 0; i < slots.size(); ++i) {
        if (slots[i].tag == tag && n-- == 0) return i;
    }
    throw std::logic_error("no slot " + tag);
}

}  // namespace tsbuild
