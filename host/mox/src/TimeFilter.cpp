#include "TimeFilter.h"

#include <utility>

#include "Demux.h"

namespace android::hardware::tv::tuner::V1_0::implementation {
namespace {

constexpr uint64_t kTimestampWrap = uint64_t{1} << 33;  // 90 kHz, 33 bits

}  // namespace

TimeFilter::TimeFilter(sp<Demux> demux) : mDemux(std::move(demux)) {}

TimeFilter::~TimeFilter() = default;

Return<Result> TimeFilter::setTimeStamp(uint64_t timeStamp) {
    const std::optional<uint64_t> source = mDemux->sourceTime();
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    mStamp = timeStamp;
    mSourceAtStamp = source;
    return Result::SUCCESS;
}

Return<Result> TimeFilter::clearTimeStamp() {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    mStamp.reset();
    mSourceAtStamp.reset();
    return Result::SUCCESS;
}

// The stamp moves on by the stream time that passed since it was set.
Return<void> TimeFilter::getTimeStamp(getTimeStamp_cb _hidl_cb) {
    const std::optional<uint64_t> source = mDemux->sourceTime();
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed || !mStamp) {
        _hidl_cb(mClosed ? Result::INVALID_STATE : Result::NOT_INITIALIZED, 0);
        return Void();
    }
    uint64_t stamp = *mStamp;
    if (source && mSourceAtStamp) {
        stamp += (*source + kTimestampWrap - *mSourceAtStamp) % kTimestampWrap;
    } else if (source) {
        mSourceAtStamp = source;  // the stream's clock started after the stamp was set
    }
    _hidl_cb(Result::SUCCESS, stamp);
    return Void();
}

Return<void> TimeFilter::getSourceTime(getSourceTime_cb _hidl_cb) {
    const std::optional<uint64_t> source = mDemux->sourceTime();
    ::android::Mutex::Autolock guard(mLock);
    _hidl_cb(mClosed ? Result::INVALID_STATE : Result::SUCCESS, source.value_or(0));
    return Void();
}

Return<Result> TimeFilter::close() {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    mClosed = true;
    return Result::SUCCESS;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
