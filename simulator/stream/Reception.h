// What reception does to a stream on its way to the demux: packets the channel damages, which
// the demodulator marks with the transport error indicator, and packets lost on the way, which
// a receiver sees as a continuity counter that skips.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::air {

// The share of 188-byte packets with at least one wrong bit at this bit error rate.
double packetErrorRate(double bitErrorRate);

class Reception {
  public:
    explicit Reception(uint32_t seed) : mRandom(seed == 0 ? 1 : seed) {}

    void setPacketErrorRate(double rate) { mPacketErrorRate = rate; }
    // Lost packets per second of a stream of this many bits per second; 0: none.
    void setContinuityErrors(double perSecond, uint64_t bitRate);

    // Damages packets just received, in place.
    void apply(uint8_t* packets, size_t count);

    uint64_t damaged() const { return mDamaged; }
    uint64_t lost() const { return mLost; }

  private:
    uint32_t nextRandom();

    uint32_t mRandom;
    double mPacketErrorRate = 0;
    uint64_t mLossInterval = 0;  // packets between two losses; 0: none
    uint64_t mUntilLoss = 0;
    uint64_t mDamaged = 0;
    uint64_t mLost = 0;
};

}  // namespace mox::air
