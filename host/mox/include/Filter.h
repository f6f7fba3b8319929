// A filter of the host's demux as its client sees it: every call goes to the demux, which keeps
// the filter's queue, memory and engine state under its lock.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFilter.h>

#include <atomic>

namespace android::hardware::tv::tuner::V1_0::implementation {

class Demux;

class Filter : public IFilter {
  public:
    Filter(sp<Demux> demux, uint32_t id);
    ~Filter() override;

    Return<void> getQueueDesc(getQueueDesc_cb _hidl_cb) override;
    Return<Result> configure(const DemuxFilterSettings& settings) override;
    Return<Result> start() override;
    Return<Result> stop() override;
    Return<Result> flush() override;
    Return<void> getId(getId_cb _hidl_cb) override;
    Return<Result> releaseAvHandle(const hidl_handle& avMemory, uint64_t avDataId) override;
    Return<Result> setDataSource(const sp<IFilter>& filter) override;
    Return<Result> close() override;

  private:
    const sp<Demux> mDemux;
    const uint32_t mId;
    std::atomic<bool> mClosed{false};
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
