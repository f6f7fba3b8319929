// getFrontendIds: the first successful call learns the hardware from the driver's capability
// record and creates the frontends, their information and the LNBs.
#include <utility>

#include "frontend/Frontend.h"
#include "lnb/Lnb.h"
#include "tuner/FrontendDiscovery.h"
#include "tuner/Tuner.h"
#include "tuner/TunerLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

#define DISCOVERY_LOG(priority, fmt, ...) \
    SERVICE_LOG_AS(priority, TUNER_TAG, "Tuner", "getFrontendIds", fmt, ##__VA_ARGS__)
#define DLOGD(fmt, ...) DISCOVERY_LOG(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)

Return<void> Tuner::getFrontendIds(getFrontendIds_cb _hidl_cb) {
    DLOGD("Enter >>");
    std::vector<uint32_t> ids;
    {
        AutoMutex guard(mLock);
        initDriverLocked();
        if (mFrontendCount == 0) discoverFrontendsLocked();
        for (int32_t i = 0; i < mFrontendCount; ++i) ids.push_back(mFrontends[i]->getFrontendId());
    }
    _hidl_cb(Result::SUCCESS, hidl_vec<uint32_t>(ids));
    return Void();
}

// Discovery reports into the Tuner's registries; it runs under mLock.
class Tuner::RegistrySink : public DiscoverySink {
  public:
    explicit RegistrySink(Tuner& tuner) : mTuner(tuner) {}
    void addFrontend(uint32_t id, FrontendType type, FrontendInfo&& info) override
            REQUIRES(mTuner.mLock) {
        // The frontend keeps a copy; the registry takes the original.
        mTuner.mFrontends.push_back(new Frontend(type, id, info, &mTuner));
        mTuner.mFrontendInfos.push_back(std::move(info));
        mTuner.mFrontendCount = static_cast<int32_t>(mTuner.mFrontends.size());
    }
    void frontendAdded(uint32_t id, size_t statusCaps) override {
        DLOGD("new Fronted:%d StatusCap.size:%d", id, static_cast<int>(statusCaps));
    }
    void addLnb(int lnbIndex) override REQUIRES(mTuner.mLock) {
        mTuner.mLnbs.push_back(new Lnb(lnbIndex));
    }

  private:
    Tuner& mTuner;
};

void Tuner::discoverFrontendsLocked() {
    RegistrySink sink(*this);
    discoverFrontends(sink);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
