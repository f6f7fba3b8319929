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

// Slots between two events that come perSecond times a second: at least one, and at most what
// no stream lasts (2^60), so that adding it to a slot cannot overflow whatever rate is given.
inline uint64_t slotsBetween(uint64_t bitRate, double perSecond) {
    constexpr double kNever = double(uint64_t{1} << 60);
    const double slots = double(bitRate) / 1504.0 / perSecond;
    if (!(slots < kNever)) return uint64_t{1} << 60;  // NaN and infinity too
    return slots < 1 ? 1 : static_cast<uint64_t>(slots);
}

// Slot n's start on a clock counting hz ticks a second (27 MHz PCR, 90 kHz PTS, 1 Hz), exact and
// without overflow for any slot of a day at any rate.
inline uint64_t slotTicks(uint64_t slot, uint64_t bitRate, uint64_t hz) {
    return slot / bitRate * 1504 * hz + slot % bitRate * 1504 * hz / bitRate;
}

}  // namespace mox::air
