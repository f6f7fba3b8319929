#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <vector>

#include "driver/MoxTuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

class Demux;
class DemuxIdPool;
class Frontend;
class Lnb;

// The one ITuner of the service: it learns the hardware from the driver on the first
// getFrontendIds, owns the frontends, LNBs and open demuxes, and binds frontends to demuxes.
//
// mLock serialises discovery and the driver initialisation step and guards every registry.
// Lock order: mLock, then either Frontend::sDriverPreparationLock (the first frontend's driver
// preparation runs inside discovery) or the demux id pool's mIdLock (closeDemux); openDemux takes
// mIdLock alone. No lock is held while calling into a demux (which may close itself and call
// back closeDemux) or into a client callback.
class Tuner : public ITuner {
  public:
    Tuner();
    ~Tuner() override;

    Return<void> getFrontendIds(getFrontendIds_cb _hidl_cb) override;
    Return<void> openFrontendById(uint32_t frontendId, openFrontendById_cb _hidl_cb) override;
    Return<void> openDemux(openDemux_cb _hidl_cb) override;
    Return<void> getDemuxCaps(getDemuxCaps_cb _hidl_cb) override;
    Return<void> openDescrambler(openDescrambler_cb _hidl_cb) override;
    Return<void> getFrontendInfo(uint32_t frontendId, getFrontendInfo_cb _hidl_cb) override;
    Return<void> getLnbIds(getLnbIds_cb _hidl_cb) override;
    Return<void> openLnbById(uint32_t lnbId, openLnbById_cb _hidl_cb) override;
    Return<void> openLnbByName(const hidl_string& lnbName, openLnbByName_cb _hidl_cb) override;
    // The lshal-debug dump: frontends, demux bindings and open demuxes, read without a driver call.
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override;

    sp<Frontend> getFrontendById(uint32_t frontendId);
    void setFrontendAsDemuxSource(uint32_t frontendId, uint32_t demuxId);
    // The open demux of that id (a descrambler's source), or null.
    sp<Demux> openDemuxById(uint32_t demuxId);
    void frontendStartTune(uint32_t frontendId);
    void frontendStopTune(uint32_t frontendId);
    void closeDemux(int32_t demuxId);
    static void close_demux(void* tuner, int demuxId);

  private:
    void initDriverLocked() REQUIRES(mLock);
    class RegistrySink;
    void discoverFrontendsLocked() REQUIRES(mLock);
    // The demux bound to a frontend, if it is still registered.
    sp<Demux> boundDemux(uint32_t frontendId);

    std::map<uint32_t, sp<Demux>> mDemuxes GUARDED_BY(mLock);
    Mutex mLock;
    std::vector<sp<Frontend>> mFrontends GUARDED_BY(mLock);
    std::vector<FrontendInfo> mFrontendInfos GUARDED_BY(mLock);
    std::map<uint32_t, uint32_t> mFrontendDemuxIds GUARDED_BY(mLock);
    int32_t mFrontendCount GUARDED_BY(mLock) = 0;
    std::vector<sp<Lnb>> mLnbs GUARDED_BY(mLock);
    DemuxIdPool* mDemuxIdPool;

    static std::atomic<int32_t> m_TunerInited;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
