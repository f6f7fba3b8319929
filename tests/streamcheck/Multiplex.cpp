#include "Multiplex.h"

using tsbuild::Bytes;

namespace multiplex {

namespace {

void append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Bytes text(uint8_t tag, const std::string& s) {
    Bytes d{tag, uint8_t(s.size())};
    d.insert(d.end(), s.begin(), s.end());
    return d;
}

Bytes serviceDescriptor(uint8_t type, const std::string& provider, const std::string& name) {
    Bytes d{0x48, uint8_t(3 + provider.size() + name.size()), type, uint8_t(provider.size())};
    d.insert(d.end(), provider.begin(), provider.end());
    d.push_back(uint8_t(name.size()));
    d.insert(d.end(), name.begin(), name.end());
    return d;
}

Bytes loop(const Bytes& descriptors) {
    Bytes b{uint8_t(0xF0 | (descriptors.size() >> 8)), uint8_t(descriptors.size() & 0xFF)};
    append(b, descriptors);
    return b;
}

Bytes be32(uint32_t v) {
    return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
}

Bytes transportStream(uint16_t tsid, const Bytes& descriptors) {
    Bytes b{uint8_t(tsid >> 8), uint8_t(tsid & 0xFF), 0x20, 0x85};
    append(b, loop(descriptors));
    return b;
}

}  // namespace

Bytes pat(uint8_t version) {
    return tsbuild::longSection(0x00, 0x0421, version, 0, 0,
                                {0x00, 0x00, 0xE0, 0x10, 0x00, 0x01, 0xE1, 0x00});
}

Bytes pmt(uint8_t version) {
    Bytes body{0xE1, 0x01, 0xF0, 0x00};
    append(body, {0x1B, 0xE1, 0x02, 0xF0, 0x00});
    append(body, {0x03, 0xE1, 0x03, 0xF0, 0x06, 0x0A, 0x04, 'd', 'e', 'u', 0x00});
    append(body, {0x05, 0xE1, 0x04, 0xF0, 0x00});
    return tsbuild::longSection(0x02, 0x0001, version, 0, 0, body);
}

Bytes cat() {
    return tsbuild::longSection(0x01, 0xFFFF, 0, 0, 0, {});
}

Bytes nit() {
    Bytes streams;
    // 482 MHz in 10 Hz units; 8 MHz; 64QAM, non-hierarchical, HP 2/3; LP 1/2, 1/4, 8k.
    Bytes terrestrial{0x5A, 11};
    append(terrestrial, be32(48200000));
    append(terrestrial, {0x1F, 0x81, 0x1A, 0xFF, 0xFF, 0xFF, 0xFF});
    append(terrestrial, {0x41, 6, 0x00, 0x01, 0x01, 0x00, 0x02, 0x02});  // service list
    append(streams, transportStream(0x0421, terrestrial));
    // T2: plp 0, system 0x8001, SISO, 8 MHz, 19/256, 32k, one cell at 490 MHz.
    Bytes t2{0x7F, 13, 0x04, 0x00, 0x80, 0x01, 0x00, (6 << 5) | (5 << 2), 0x00, 0x07};
    append(t2, be32(49000000));
    t2.push_back(0x00);
    append(streams, transportStream(0x0422, t2));
    // Cable: 306 MHz (BCD 0306.0000), RS outer, 256QAM, 6.9 Msym/s (BCD 006.9000), inner none.
    append(streams, transportStream(0x0423, {0x44, 11, 0x03, 0x06, 0x00, 0x00, 0xFF, 0xF2, 0x05,
                                             0x00, 0x69, 0x00, 0x0F}));
    // Satellite: 11.76200 GHz, 19.2 E, V, DVB-S2, 8PSK, 0.35, 27.5 Msym/s, 3/4.
    append(streams, transportStream(0x0424, {0x43, 11, 0x01, 0x17, 0x62, 0x00, 0x01, 0x92, 0xA6,
                                             0x02, 0x75, 0x00, 0x03}));
    Bytes body = loop(text(0x40, "MOX Net"));
    append(body, loop(streams));
    return tsbuild::longSection(0x40, 0x3001, 0, 0, 0, body);
}

Bytes sdt() {
    Bytes body{0x20, 0x85, 0xFF};
    // Service 1: TV, EIT p/f, running, free to air.
    const Bytes one = serviceDescriptor(0x01, "MOX", "Eins");
    append(body, {0x00, 0x01, 0xFD, uint8_t(0x80 | (one.size() >> 8)), uint8_t(one.size())});
    append(body, one);
    // Service 2: radio, no EIT, running, scrambled (free_CA_mode 1).
    const Bytes two = serviceDescriptor(0x02, "MOX", "Zwei Radio");
    append(body, {0x00, 0x02, 0xFC, uint8_t(0x90 | (two.size() >> 8)), uint8_t(two.size())});
    append(body, two);
    return tsbuild::longSection(0x42, 0x0421, 0, 0, 0, body);
}

Bytes eit(uint8_t sectionNumber) {
    const bool present = sectionNumber == 0;
    Bytes body{0x04, 0x21, 0x20, 0x85, 0x01, 0x4E};
    Bytes shortEvent{0x4D, 0, 'd', 'e', 'u'};
    const std::string name = present ? "Nachrichten" : "Wetter";
    const std::string text = present ? "Aktuelles" : "";
    shortEvent.push_back(uint8_t(name.size()));
    shortEvent.insert(shortEvent.end(), name.begin(), name.end());
    shortEvent.push_back(uint8_t(text.size()));
    shortEvent.insert(shortEvent.end(), text.begin(), text.end());
    shortEvent[1] = uint8_t(shortEvent.size() - 2);
    const uint16_t id = present ? 0x1001 : 0x1002;
    append(body, {uint8_t(id >> 8), uint8_t(id), uint8_t(kMjd >> 8), uint8_t(kMjd & 0xFF)});
    append(body, present ? Bytes{0x12, 0x00, 0x00, 0x01, 0x30, 0x00}
                         : Bytes{0x13, 0x30, 0x00, 0x00, 0x45, 0x00});
    const uint8_t running = present ? 4 : 1;
    append(body,
           {uint8_t((running << 5) | 0x00 | (shortEvent.size() >> 8)), uint8_t(shortEvent.size())});
    append(body, shortEvent);
    return tsbuild::longSection(0x4E, 0x0001, 0, sectionNumber, 1, body);
}

tsbuild::Timeline timeline(size_t ms) {
    tsbuild::Timeline t(ms);
    for (size_t at = 0; at < ms; at += 100) {
        t.putSection(at, "pat", 0x0000, pat());
        t.putSection(at + 1, "pmt", kPmtPid, pmt());
        t.put(at + 7, "data", kDataPid, {0xAA, 0x55}, true);
    }
    for (size_t at = 0; at < ms; at += 20) {
        t.putPcr(at + 2, kPcrPid);
        t.put(at + 5, "audio", kAudioPid, tsbuild::pesWithPts(0xC0, at * 90), true);
    }
    for (size_t at = 0; at < ms; at += 10) {
        const bool start = at % 40 == 0;
        t.put(at + 3, start ? "video-start" : "video", kVideoPid,
              start ? tsbuild::pesWithPts(0xE0, at * 90) : tsbuild::Bytes{0x11, 0x22}, start);
    }
    for (size_t at = 0; at < ms; at += 500) t.putSection(at + 11, "sdt", 0x0011, sdt());
    for (size_t at = 0; at < ms; at += 1000) {
        t.putSection(at + 8, "cat", 0x0001, cat());
        t.putSection(at + 9, "nit", 0x0010, nit());
        t.putSection(at + 15, "eit0", 0x0012, eit(0));
        t.putSection(at + 65, "eit1", 0x0012, eit(1));
        t.putSection(at + 17, "tdt", 0x0014, tsbuild::tdt(kMjd, 0x12, 0x00, uint8_t(at / 1000)));
        t.putSection(at + 517, "tot", 0x0014, tsbuild::tot(kMjd, 0x12, 0x00, uint8_t(at / 1000)));
    }
    return t;
}

}  // namespace multiplex
