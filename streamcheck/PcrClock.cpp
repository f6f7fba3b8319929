#include "streamcheck/PcrClock.h"

#include <cmath>

#include "streamcheck/Packet.h"

namespace mox::streamcheck {

namespace {
// A PCR that moves on more than 100 ms from the previous one (or backwards) is a new time base,
// which the discontinuity_indicator must announce.
constexpr uint64_t kMaxStepTicks = kPcrHz / 10;
}  // namespace

void PcrClock::Fit::add(double x, double y) {
    n += 1;
    const double dx = x - meanX;
    meanX += dx / n;
    meanY += (y - meanY) / n;
    cxx += dx * (x - meanX);
    cxy += dx * (y - meanY);
}

void PcrClock::restart(uint64_t packet, uint64_t pcr) {
    if (mFit.ready()) mLastRate = measuredBitRate();
    mHave = true;
    mLastPcr = pcr;
    mLastPacket = packet;
    mBasePacket = packet;
    mTicks = 0;
    mFit = Fit{};
    mFit.add(0, 0);
}

PcrClock::Result PcrClock::add(uint64_t packet, uint64_t pcr, bool discontinuity, double bitRate) {
    if (!mHave || discontinuity || packet <= mLastPacket) {
        const bool first = !mHave;
        restart(packet, pcr);
        return first ? Result::First : Result::Ok;
    }
    const uint64_t step = (pcr + kPcrWrap - mLastPcr) % kPcrWrap;
    if (step > kMaxStepTicks) {
        restart(packet, pcr);
        return Result::Jump;
    }
    const double x = static_cast<double>(packet - mBasePacket) * kPacketSize;
    const double y = static_cast<double>(mTicks + step);
    // The expected value: the previous PCR plus the bytes between at the given rate, or the
    // line through this time base's earlier PCRs when the rate is measured.
    double error = 0;
    bool judged = false;
    if (bitRate > 0) {
        const double bytes = static_cast<double>(packet - mLastPacket) * kPacketSize;
        error = static_cast<double>(step) - bytes * 8 / bitRate * kPcrHz;
        judged = true;
    } else if (mFit.ready()) {
        error = y - mFit.at(x);
        judged = true;
    }
    mTicks += step;
    mLastPcr = pcr;
    mLastPacket = packet;
    mFit.add(x, y);
    return judged && std::fabs(error) > kAccuracyTicks ? Result::Inaccurate : Result::Ok;
}

double PcrClock::measuredBitRate() const {
    if (!mFit.ready() || mFit.slope() <= 0) return mLastRate;
    return 8.0 * kPcrHz / mFit.slope();
}

}  // namespace mox::streamcheck
