// Sections from the payloads of one PID's packets: a pointer_field where a section starts,
// sections spanning packets, several sections in one packet, 0xFF stuffing after the last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace mox::streamcheck {

// The largest section: private sections (SI) may be 4096 bytes, PSI ones 1024.
constexpr size_t kMaxSectionSize = 4096;

struct Section {
    std::vector<uint8_t> bytes;  // header to CRC, as sent
    uint64_t firstPacket = 0;    // the packet that carried its first byte (stream position)
    uint64_t lastPacket = 0;     // the packet that carried its last byte
};

class SectionAssembler {
  public:
    // The payload of the PID's next packet. Completed sections are appended to `out`.
    void push(const uint8_t* payload, size_t size, bool unitStart, uint64_t packet,
              std::vector<Section>& out);
    // A packet of the PID went missing or came corrupt: the section under way cannot complete,
    // and the next one is found at the next unit start.
    void lose() { mActive = false; }
    // Sections given up as malformed: a length past the largest section, a pointer_field past
    // the payload, or a section that had not ended where the next began.
    uint64_t malformed() const { return mMalformed; }

  private:
    // Takes bytes of the section under way and, when `mayStart`, of sections that follow it.
    void take(const uint8_t* data, size_t size, bool mayStart, uint64_t packet,
              std::vector<Section>& out);

    std::vector<uint8_t> mBuffer;
    size_t mExpected = 0;  // the whole section's size, once its first 3 bytes are in
    bool mActive = false;
    uint64_t mFirstPacket = 0;
    uint64_t mMalformed = 0;
};

}  // namespace mox::streamcheck
