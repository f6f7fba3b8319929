// Host stand-in for the maker's player library demux. It keeps its id and Tuner, reports its
// frontend binding to the Tuner, calls its close callback when closed, and shows whether the
// frontend input is running.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

class Tuner;

class Demux : public IDemux {
  public:
    using CloseCallback = void (*)(void* tuner, int demuxId);

    Demux(uint32_t demuxId, sp<Tuner> tuner);
    ~Demux() override;

    Return<Result> setFrontendDataSource(uint32_t frontendId) override;
    Return<void> openFilter(const DemuxFilterType& type, uint32_t bufferSize,
                            const sp<IFilterCallback>& cb, openFilter_cb _hidl_cb) override;
    Return<void> openTimeFilter(openTimeFilter_cb _hidl_cb) override;
    Return<void> getAvSyncHwId(const sp<IFilter>& filter, getAvSyncHwId_cb _hidl_cb) override;
    Return<void> getAvSyncTime(uint32_t avSyncHwId, getAvSyncTime_cb _hidl_cb) override;
    Return<Result> close() override;
    Return<void> openDvr(DvrType type, uint32_t bufferSize, const sp<IDvrCallback>& cb,
                         openDvr_cb _hidl_cb) override;
    Return<Result> connectCiCam(uint32_t ciCamId) override;
    Return<Result> disconnectCiCam() override;

    void setDemuxCloseCallback(CloseCallback callback);
    void startFrontendInputLoop();
    void stopFrontendInput();

    uint32_t getId() const { return mDemuxId; }
    bool isFrontendInputRunning() const { return mInputRunning; }
    int frontendInputStartCount() const { return mInputStartCount; }

  private:
    const uint32_t mDemuxId;
    sp<Tuner> mTuner;
    ::android::Mutex mCloseLock;
    CloseCallback mCloseCallback GUARDED_BY(mCloseLock) = nullptr;
    std::atomic<bool> mInputRunning{false};
    std::atomic<int> mInputStartCount{0};
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
