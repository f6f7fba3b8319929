#include "simulator/stream/Reception.h"

#include <bitstream/mpeg/ts.h>

#include <cmath>

#include "simulator/stream/TransportStreamSource.h"

namespace mox::air {

double packetErrorRate(double ber) {
    if (!(ber > 0)) return 0;  // NaN too
    if (ber >= 1) return 1;
    return 1.0 - std::pow(1.0 - ber, 188.0 * 8.0);
}

void Reception::setContinuityErrors(double perSecond, uint64_t bitRate) {
    mLossInterval = perSecond > 0 ? slotsBetween(bitRate, perSecond) : 0;
    mUntilLoss = mLossInterval;
}

uint32_t Reception::nextRandom() {
    // xorshift32: cheap, and the same damage on every run.
    mRandom ^= mRandom << 13;
    mRandom ^= mRandom >> 17;
    mRandom ^= mRandom << 5;
    return mRandom;
}

void Reception::apply(uint8_t* packets, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint8_t* p = packets + i * TS_SIZE;
        if (mLossInterval != 0 && mUntilLoss > 0) --mUntilLoss;
        // A loss takes the first packet with payload of an elementary stream once it is due;
        // a null packet stands in its place, so the rate stays.
        const uint16_t pid = ts_get_pid(p);
        if (mLossInterval != 0 && mUntilLoss == 0 && pid >= 0x20 && pid < 0x1FFF &&
            ts_has_payload(p)) {
            ts_pad(p);
            ++mLost;
            mUntilLoss = mLossInterval;
        }
        if (mPacketErrorRate > 0 && double(nextRandom()) / 4294967296.0 < mPacketErrorRate) {
            ts_set_transporterror(p);
            for (int b = 0; b < 4; ++b) p[4 + nextRandom() % (TS_SIZE - 4)] ^= 0xA5;
            ++mDamaged;
        }
    }
}

}  // namespace mox::air
