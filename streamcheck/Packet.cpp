#include "streamcheck/Packet.h"

namespace mox::streamcheck {

bool parsePacket(const uint8_t* bytes, PacketHeader& header) {
    header = PacketHeader{};
    header.transportError = (bytes[1] & 0x80) != 0;
    header.unitStart = (bytes[1] & 0x40) != 0;
    header.pid = static_cast<uint16_t>(((bytes[1] & 0x1F) << 8) | bytes[2]);
    header.scrambling = static_cast<uint8_t>(bytes[3] >> 6);
    header.adaptationControl = static_cast<uint8_t>((bytes[3] >> 4) & 0x3);
    header.continuityCounter = static_cast<uint8_t>(bytes[3] & 0xF);

    size_t offset = 4;
    if (header.adaptationControl & 2) {
        const size_t length = bytes[4];
        // With a payload at least one payload byte follows the field; without, it fills the packet.
        const size_t limit = header.hasPayload() ? kPacketSize - 6 : kPacketSize - 5;
        if (length > limit) return false;
        if (length > 0) {
            const uint8_t flags = bytes[5];
            header.discontinuity = (flags & 0x80) != 0;
            if ((flags & 0x10) && length >= 7) {
                const uint64_t base = (uint64_t{bytes[6]} << 25) | (uint64_t{bytes[7]} << 17) |
                                      (uint64_t{bytes[8]} << 9) | (uint64_t{bytes[9]} << 1) |
                                      (bytes[10] >> 7);
                const uint64_t extension = (static_cast<uint64_t>(bytes[10] & 0x1) << 8) | bytes[11];
                header.hasPcr = true;
                header.pcr = base * 300 + extension;
            }
        }
        offset = 5 + length;
    }
    if (header.hasPayload()) {
        header.payload = bytes + offset;
        header.payloadSize = kPacketSize - offset;
    }
    return true;
}

}  // namespace mox::streamcheck
