// The fixed header and adaptation field of one 188-byte transport stream packet, every length
// checked against the packet.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::streamcheck {

constexpr size_t kPacketSize = 188;
constexpr uint8_t kSyncByte = 0x47;
constexpr uint16_t kNullPid = 0x1FFF;
// The program clock counts 27 MHz as a 33-bit base times 300 plus a 9-bit extension, and wraps.
constexpr uint64_t kPcrHz = 27000000;
constexpr uint64_t kPcrWrap = (uint64_t{1} << 33) * 300;

struct PacketHeader {
    bool transportError = false;
    bool unitStart = false;
    uint16_t pid = 0;
    uint8_t scrambling = 0;
    uint8_t adaptationControl = 0;
    uint8_t continuityCounter = 0;
    bool discontinuity = false;
    bool hasPcr = false;
    uint64_t pcr = 0;  // 27 MHz ticks
    const uint8_t* payload = nullptr;
    size_t payloadSize = 0;

    bool hasPayload() const { return (adaptationControl & 1) != 0; }
};

// Reads the packet at `bytes` (kPacketSize bytes, sync byte already checked). False when the
// adaptation field's length runs past the packet (more than 183 bytes, or more than 182 when a
// payload follows): the header fields are then set, the payload and PCR are not.
bool parsePacket(const uint8_t* bytes, PacketHeader& header);

}  // namespace mox::streamcheck
