#include "demux/TsPacket.h"

namespace mox::demux {

PacketError parseTsPacket(const uint8_t* b, TsPacket& p) {
    p = TsPacket{};
    p.bytes = b;
    if (b[0] != kTsSyncByte) return PacketError::kSyncByte;
    p.transportError = (b[1] & 0x80) != 0;
    p.unitStart = (b[1] & 0x40) != 0;
    p.priority = (b[1] & 0x20) != 0;
    p.pid = static_cast<uint16_t>(((b[1] & 0x1F) << 8) | b[2]);
    p.scrambling = static_cast<uint8_t>(b[3] >> 6);
    p.adaptationControl = static_cast<uint8_t>((b[3] >> 4) & 3);
    p.continuityCounter = static_cast<uint8_t>(b[3] & 0xF);
    size_t payloadStart = 4;
    if (p.adaptationControl & 2) {
        const size_t length = b[4];
        // With a payload behind it the field leaves at least one byte of payload.
        const size_t maxLength = (p.adaptationControl & 1) ? 182 : 183;
        if (length > maxLength) return PacketError::kAdaptationLength;
        if (length > 0) {
            const uint8_t flags = b[5];
            p.discontinuity = flags & 0x80;
            p.randomAccess = flags & 0x40;
            p.esPriority = flags & 0x20;
            p.hasPcr = flags & 0x10;
            p.hasOpcr = flags & 0x08;
            p.splicingPoint = flags & 0x04;
            p.privateData = flags & 0x02;
            p.adaptationExtension = flags & 0x01;
            // A PCR needs 6 bytes after the flags; a field too short for it carries none.
            if (p.hasPcr && length >= 7) {
                const uint8_t* c = b + 6;
                p.pcrBase = (uint64_t{c[0]} << 25) | (uint64_t{c[1]} << 17) |
                            (uint64_t{c[2]} << 9) | (uint64_t{c[3]} << 1) | (c[4] >> 7);
                p.pcrExtension = static_cast<uint16_t>(((c[4] & 1) << 8) | c[5]);
            } else {
                p.hasPcr = false;
            }
        }
        payloadStart = 5 + length;
    }
    if (p.adaptationControl & 1) {
        p.payload = b + payloadStart;
        p.payloadSize = kTsPacketSize - payloadStart;
    }
    return PacketError::kNone;
}

Continuity::Verdict Continuity::check(const TsPacket& packet) {
    // Only packets with payload advance the counter.
    if ((packet.adaptationControl & 1) == 0) return Verdict::kNext;
    const uint8_t cc = packet.continuityCounter;
    Verdict verdict = Verdict::kNext;
    if (mKnown && !packet.discontinuity) {
        if (cc == mLast) {
            // One repeat of a packet is allowed; a second one is a loss.
            verdict = mLastWasDuplicate ? Verdict::kLost : Verdict::kDuplicate;
        } else if (cc != ((mLast + 1) & 0xF)) {
            verdict = Verdict::kLost;
        }
    }
    mLastWasDuplicate = verdict == Verdict::kDuplicate;
    mKnown = true;
    mLast = cc;
    return verdict;
}

}  // namespace mox::demux
