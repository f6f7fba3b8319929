// The header and adaptation field of one 188-byte transport stream packet, every length checked
// against the packet; and the continuity of a PID's packets.
#pragma once

#include <cstddef>
#include <cstdint>

#include "demux/Limits.h"

namespace mox::demux {

struct TsPacket {
    const uint8_t* bytes = nullptr;  // the whole packet
    bool transportError = false;
    bool unitStart = false;
    bool priority = false;
    uint16_t pid = 0;
    uint8_t scrambling = 0;  // transport_scrambling_control: 0 clear, 2 even, 3 odd
    uint8_t adaptationControl = 0;
    uint8_t continuityCounter = 0;
    // The adaptation field's flags (all false without one).
    bool discontinuity = false;
    bool randomAccess = false;
    bool esPriority = false;
    bool hasPcr = false;
    bool hasOpcr = false;
    bool splicingPoint = false;
    bool privateData = false;
    bool adaptationExtension = false;
    uint64_t pcrBase = 0;       // 90 kHz, 33 bits
    uint16_t pcrExtension = 0;  // 27 MHz remainder, 0..299
    const uint8_t* payload = nullptr;
    size_t payloadSize = 0;

    bool hasPayload() const { return (adaptationControl & 1) != 0 && payloadSize > 0; }
    bool isScrambled() const { return (scrambling & 2) != 0; }
    uint64_t pcr27MHz() const { return pcrBase * 300 + pcrExtension; }
};

enum class PacketError { kNone, kSyncByte, kAdaptationLength };

// Reads kTsPacketSize bytes. On kAdaptationLength the fixed header's fields are set, the
// adaptation flags and payload are not.
PacketError parseTsPacket(const uint8_t* bytes, TsPacket& packet);

// The continuity counter of one PID as an assembler sees it.
class Continuity {
  public:
    enum class Verdict { kNext, kDuplicate, kLost };
    Verdict check(const TsPacket& packet);
    void reset() { mKnown = false; }

  private:
    bool mKnown = false;
    uint8_t mLast = 0;
    bool mLastWasDuplicate = false;
};

}  // namespace mox::demux
