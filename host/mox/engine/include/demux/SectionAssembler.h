// Sections from the payloads of one PID's packets: the pointer_field of a packet where a
// section starts, sections spanning packets, several sections in one packet, 0xFF stuffing
// after the last. Nothing past kMaxSectionSize is ever held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "demux/TsPacket.h"

namespace mox::demux {

class SectionAssembler {
  public:
    class Handler {
      public:
        virtual void section(const uint8_t* data, size_t size) = 0;

      protected:
        ~Handler() = default;
    };

    SectionAssembler();
    // The payload of the PID's next packet (continuity already checked). Returns the number of
    // malformed sections it gave up.
    uint64_t push(const TsPacket& packet, Handler& handler);
    // The section under way cannot complete. True when there was one.
    bool lose();

  private:
    // Takes bytes of the section under way and, when `mayStart`, of sections that follow it.
    void take(const uint8_t* data, size_t size, bool mayStart, Handler& handler);

    std::vector<uint8_t> mBuffer;
    size_t mExpected = 0;  // the whole section's size, once its first 3 bytes are in
    bool mActive = false;
    uint64_t mMalformed = 0;
};

}  // namespace mox::demux
