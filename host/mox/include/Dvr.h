// A DVR of the host's demux as its client sees it: every call goes to the demux, which keeps
// the DVR's queue and attachments under its lock.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDvr.h>

#include <atomic>

namespace android::hardware::tv::tuner::V1_0::implementation {

class Demux;

class Dvr : public IDvr {
  public:
    Dvr(sp<Demux> demux, uint32_t id);
    ~Dvr() override;

    Return<void> getQueueDesc(getQueueDesc_cb _hidl_cb) override;
    Return<Result> configure(const DvrSettings& settings) override;
    Return<Result> attachFilter(const sp<IFilter>& filter) override;
    Return<Result> detachFilter(const sp<IFilter>& filter) override;
    Return<Result> start() override;
    Return<Result> stop() override;
    Return<Result> flush() override;
    Return<Result> close() override;

  private:
    const sp<Demux> mDemux;
    const uint32_t mId;
    std::atomic<bool> mClosed{false};
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
