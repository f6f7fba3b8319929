// Packets, sections and PES packets written for the demux engine's tests (headers with
// biTStream), and a filter sink that records what it is given.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DemuxSettings.h"
#include "demux/DemuxEngine.h"
#include "demux/FilterSink.h"

namespace demuxtest {

using Bytes = std::vector<uint8_t>;

struct PacketOptions {
    bool unitStart = false;
    uint8_t scrambling = 0;
    bool transportError = false;
    // An adaptation field (before the payload) when any of these is set.
    bool adaptation = false;
    std::optional<uint64_t> pcr27MHz;
    bool discontinuity = false;
    bool randomAccess = false;
    bool esPriority = false;
};

// A packet carrying up to 184 bytes of payload, the rest of the packet filled with an
// adaptation field of stuffing when the payload is short and `stuffWithAdaptation`, else 0xFF.
Bytes tsPacket(uint16_t pid, uint8_t cc, const Bytes& payload, const PacketOptions& options = {},
               bool stuffWithAdaptation = false);
// A section with the long header and its CRC (biTStream's).
Bytes longSection(uint8_t tableId, uint16_t extension, uint8_t version, uint8_t number,
                  const Bytes& body);
// Sections back to back in packets of a PID: a pointer_field where a section starts, 0xFF after
// the last. `cc` is the counter of the first packet and is advanced.
std::vector<Bytes> packSections(uint16_t pid, const std::vector<Bytes>& sections, uint8_t& cc);
// A PES packet: header (with a PTS when given), then `data`. `unbounded`: length field 0.
Bytes pesPacket(uint8_t streamId, std::optional<uint64_t> pts, const Bytes& data,
                bool unbounded = false);
// A PES packet in packets of a PID, the last one stuffed with an adaptation field.
std::vector<Bytes> packPes(uint16_t pid, const Bytes& pes, uint8_t& cc, uint8_t scrambling = 0);
Bytes join(const std::vector<Bytes>& packets);
Bytes counting(size_t size, uint8_t from = 0);  // from, from + 1, ... (mod 256)

class RecordingSink : public mox::demux::FilterSink {
  public:
    explicit RecordingSink(size_t capacity = 1 << 20) : mCapacity(capacity) {}

    bool write(const uint8_t* data, size_t size) override;
    size_t fill() const override { return mWritten - mRead; }
    void event(const mox::demux::FilterEvent& event) override { events.push_back(event); }
    void status(mox::demux::DemuxFilterStatus status) override { statuses.push_back(status); }

    // The client reads this many bytes.
    void read(size_t size) { mRead += size; }
    void readAll() { mRead = mWritten; }

    // What it was given, cut into 188-byte packets (a write may hold several).
    std::vector<Bytes> packets() const;

    std::vector<Bytes> units;  // each write
    std::vector<mox::demux::FilterEvent> events;
    std::vector<mox::demux::DemuxFilterStatus> statuses;
    size_t refusals = 0;

  private:
    size_t mCapacity;
    size_t mWritten = 0;
    size_t mRead = 0;
};

// Clears payloads scrambled with a fixed XOR key while `enabled`.
class XorDescrambler : public mox::demux::PacketDescrambler {
  public:
    static constexpr uint8_t kKey = 0x5A;
    bool descramble(uint16_t pid, uint8_t* packet) override;
    static Bytes scramble(Bytes packet, uint8_t scrambling = 2);
    bool enabled = true;
    uint16_t onlyPid = 0xFFFF;  // 0xFFFF: every PID
};

// The events of one kind a sink got.
std::vector<::android::hardware::tv::tuner::V1_0::DemuxFilterSectionEvent> sectionEvents(
        const RecordingSink& sink);
std::vector<::android::hardware::tv::tuner::V1_0::DemuxFilterMediaEvent> mediaEvents(
        const RecordingSink& sink);
std::vector<::android::hardware::tv::tuner::V1_0::DemuxFilterTsRecordEvent> recordEvents(
        const RecordingSink& sink);

}  // namespace demuxtest
