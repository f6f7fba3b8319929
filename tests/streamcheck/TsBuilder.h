// Transport stream bytes written by hand for the checker's tests: sections with their CRC (an
// independent bitwise CRC-32/MPEG-2), packets, and a timeline of one packet per millisecond
// (at kBitRate) on which a test places its PIDs, leaves some out, and changes bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tsbuild {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kBitRate = 188 * 8 * 1000;  // one packet a millisecond
constexpr uint64_t kTicksPerPacket = 27000;    // 27 MHz ticks in 1 ms

uint32_t crc32(const uint8_t* data, size_t size);
// Appends the CRC over everything so far (and sets nothing else).
Bytes withCrc(Bytes section);
// Recomputes the CRC of a whole section (after a test changed it).
void fixCrc(Bytes& section);
// A section with the long header: table_id, length, extension, version, current, numbers, body,
// CRC.
Bytes longSection(uint8_t table, uint16_t extension, uint8_t version, uint8_t number, uint8_t last,
                  const Bytes& body);
// The TDT: table 0x70, no CRC. And the TOT: table 0x73 with an empty loop and a CRC.
Bytes tdt(uint16_t mjd, uint8_t hourBcd, uint8_t minuteBcd, uint8_t secondBcd);
Bytes tot(uint16_t mjd, uint8_t hourBcd, uint8_t minuteBcd, uint8_t secondBcd);

struct Header {
    uint16_t pid = 0;
    bool unitStart = false;
    uint8_t counter = 0;
    uint8_t scrambling = 0;
    bool transportError = false;
};
// A packet with payload (afc 01), padded with 0xFF.
Bytes packet(const Header& header, const Bytes& payload);
// A packet with only an adaptation field (afc 10) carrying a PCR.
Bytes pcrPacket(uint16_t pid, uint8_t counter, uint64_t pcr, bool discontinuity = false);
Bytes nullPacket();
// A section cut into packet payloads; the first starts with pointer_field 0.
std::vector<Bytes> sectionPayloads(const Bytes& section);
// A PES header carrying a PTS, then some bytes of data.
Bytes pesWithPts(uint8_t streamId, uint64_t pts);
// 40-bit PCR: base and extension, as 27 MHz ticks.
void setPcr(Bytes& packet, uint64_t ticks);

// One packet of the timeline: what it is ("pat", "pmt", "pcr", "video", "video-start", ...).
struct Slot {
    std::string tag;
    Bytes bytes;
};

class Timeline {
  public:
    explicit Timeline(size_t milliseconds) : mSlots(milliseconds) {}
    // At `ms` or the first free packet after it (dropped past the end).
    void put(size_t ms, const std::string& tag, uint16_t pid, const Bytes& payload, bool unitStart);
    void putSection(size_t ms, const std::string& tag, uint16_t pid, const Bytes& section);
    void putPcr(size_t ms, uint16_t pid);
    // Continuity counters in order per PID, PCRs from each packet's position (plus `pcrBase`),
    // null packets in the gaps. `keep` may leave packets out first (counters stay continuous).
    std::vector<Slot> finish(
            const std::function<bool(size_t ms, const std::string& tag)>& keep = nullptr,
            uint64_t pcrBase = 1000000) const;

  private:
    struct Item {
        std::string tag;
        Bytes bytes;  // counter 0 until finish()
        bool pcr = false;
    };
    std::vector<std::optional<Item>> mSlots;
};

// The index of the n-th slot with the tag (n from 0).
size_t nth(const std::vector<Slot>& slots, const std::string& tag, size_t n);

}  // namespace tsbuild
