// The demux's time filter: a time stamp the client sets, which runs on with the stream's clock
// (the PCR its PCR filters see), and the source time itself.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITimeFilter.h>
#include <utils/Mutex.h>

#include <optional>

namespace android::hardware::tv::tuner::V1_0::implementation {

class Demux;

class TimeFilter : public ITimeFilter {
  public:
    explicit TimeFilter(sp<Demux> demux);
    ~TimeFilter() override;

    Return<Result> setTimeStamp(uint64_t timeStamp) override;
    Return<Result> clearTimeStamp() override;
    Return<void> getTimeStamp(getTimeStamp_cb _hidl_cb) override;
    Return<void> getSourceTime(getSourceTime_cb _hidl_cb) override;
    Return<Result> close() override;

  private:
    const sp<Demux> mDemux;
    ::android::Mutex mLock;
    bool mClosed GUARDED_BY(mLock) = false;
    // The stamp set, and the source time it was set at (none before the stream's first PCR).
    std::optional<uint64_t> mStamp GUARDED_BY(mLock);
    std::optional<uint64_t> mSourceAtStamp GUARDED_BY(mLock);
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
