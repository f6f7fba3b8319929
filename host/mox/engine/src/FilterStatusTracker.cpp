#include "demux/FilterStatusTracker.h"

#include <android/hardware/tv/tuner/1.0/types.h>

#include "demux/Limits.h"

namespace mox::demux {
namespace {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterStatus;

constexpr uint8_t bit(DemuxFilterStatus status) {
    return static_cast<uint8_t>(status);
}

}  // namespace

FilterStatusTracker::FilterStatusTracker(size_t lowThreshold, size_t highThreshold,
                                         uint8_t statusMask)
    : mLow(lowThreshold),
      mHigh(highThreshold > lowThreshold ? highThreshold : lowThreshold + 1),
      mMask(statusMask) {}

FilterStatusTracker FilterStatusTracker::forCapacity(size_t capacity) {
    return FilterStatusTracker(capacity / 100 * kDefaultLowWaterPercent +
                                       capacity % 100 * kDefaultLowWaterPercent / 100,
                               capacity / 100 * kDefaultHighWaterPercent +
                                       capacity % 100 * kDefaultHighWaterPercent / 100);
}

uint8_t FilterStatusTracker::filled(size_t fill) {
    uint8_t bits = 0;
    if (mFill == 0 && fill > 0) bits |= bit(DemuxFilterStatus::DATA_READY);
    if (fill >= mHigh && !mHighReported) {
        bits |= bit(DemuxFilterStatus::HIGH_WATER);
        mHighReported = true;
    }
    if (fill <= mLow && (mHighReported || mOverflowReported)) {
        bits |= bit(DemuxFilterStatus::LOW_WATER);
        mHighReported = false;
        mOverflowReported = false;
    }
    mFill = fill;
    return masked(bits);
}

uint8_t FilterStatusTracker::refused() {
    if (mOverflowReported) return 0;
    mOverflowReported = true;
    return masked(bit(DemuxFilterStatus::OVERFLOW));
}

}  // namespace mox::demux
