// A transmitter's transport stream as a receiver takes it: packets produced as its clock runs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::air {

class TransportStreamSource {
  public:
    virtual ~TransportStreamSource() = default;
    // Writes the packets due from where the last call ended until untilUs (microseconds since
    // the stream started), at most maxPackets of 188 bytes; returns how many.
    virtual size_t produce(uint64_t untilUs, uint8_t* out, size_t maxPackets) = 0;
    // Goes on from this time without producing what lies before it (no one was listening).
    virtual void skipTo(uint64_t us) = 0;
    // Bits per second on the air.
    virtual uint64_t bitRate() const = 0;
};

// The packet slot of the multiplex at a time, for a rate in bits/s: slot n starts at n * 1504 / R
// seconds.
inline uint64_t slotAt(uint64_t us, uint64_t bitRate) {
    const uint64_t bits = us / 1000000 * bitRate + (us % 1000000) * bitRate / 1000000;
    return bits / 1504;
}

}  // namespace mox::air
