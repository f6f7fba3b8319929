// PES packets from the payloads of one PID's packets: from a unit start to PES_packet_length,
// or to the next unit start when the length is 0 (video) . A packet that does not begin with the
// start code prefix, or that ends before its length, is given up; nothing past the bound is held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "demux/TsPacket.h"

namespace mox::demux {

struct FilterCounters;

// What the header of a whole PES packet says.
struct PesHeader {
    uint8_t streamId = 0;
    bool hasPts = false;
    uint64_t pts = 0;         // 90 kHz
    size_t payloadStart = 0;  // where the elementary stream's bytes begin
};

// Reads a PES packet's header; nothing when it lies about its own size.
std::optional<PesHeader> parsePesHeader(const uint8_t* data, size_t size);

class PesAssembler {
  public:
    class Handler {
      public:
        virtual void pes(const uint8_t* data, size_t size) = 0;

      protected:
        ~Handler() = default;
    };

    explicit PesAssembler(size_t maxSize) : mMaxSize(maxSize) {}
    // The PID's next packet with payload (continuity already checked); problems are counted.
    void push(const TsPacket& packet, Handler& handler, FilterCounters& counters);
    // The packet under way cannot complete. True when there was one.
    bool lose();

  private:
    void append(const uint8_t* data, size_t size, Handler& handler, FilterCounters& counters);

    const size_t mMaxSize;
    std::vector<uint8_t> mBuffer;
    bool mActive = false;
    size_t mExpected = 0;  // 6 + PES_packet_length; 0 while unknown or unbounded
};

}  // namespace mox::demux
