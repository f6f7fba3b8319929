#include "tuner/Tuner.h"

#include "Demux.h"
#include "frontend/Frontend.h"
#include "lnb/Lnb.h"
#include "tuner/DemuxIdPool.h"
#include "tuner/TunerLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

std::atomic<int32_t> Tuner::m_TunerInited{0};

namespace {
constexpr uint32_t kLnbIdOfNamedLnb = 1234;
}  // namespace

Tuner::Tuner() : mDemuxIdPool(new DemuxIdPool()) {}

Tuner::~Tuner() {
    MOX_TunerReleasePassth(this);
    delete mDemuxIdPool;
}

// The driver is initialised once per process by whichever of the four entry operations comes
// first, whatever MOX_Tuner_Init answers.
void Tuner::initDriverLocked() {
    if (m_TunerInited == 0) {
        MOX_Tuner_Init();
        m_TunerInited = 1;
    }
}

Return<void> Tuner::openFrontendById(uint32_t frontendId, openFrontendById_cb _hidl_cb) {
    TLOGD("Enter >>");
    sp<Frontend> frontend;
    {
        AutoMutex guard(mLock);
        if (frontendId < static_cast<uint32_t>(mFrontendCount)) {
            initDriverLocked();
            frontend = mFrontends[frontendId];
        }
    }
    if (frontend == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, TUNER_TAG,
                            "[   WARN   ] Frontend with id %d isn't available", frontendId);
        _hidl_cb(Result::UNAVAILABLE, nullptr);
        return Void();
    }
    _hidl_cb(Result::SUCCESS, frontend);
    return Void();
}

Return<void> Tuner::getFrontendInfo(uint32_t frontendId, getFrontendInfo_cb _hidl_cb) {
    TLOGD("Enter >>");
    TLOGD("frontendId:%u", frontendId);
    FrontendInfo info{};
    bool found = false;
    {
        AutoMutex guard(mLock);
        if (frontendId < static_cast<uint32_t>(mFrontendCount)) {
            info = mFrontendInfos[frontendId];
            found = true;
        }
    }
    _hidl_cb(found ? Result::SUCCESS : Result::INVALID_ARGUMENT, info);
    return Void();
}

sp<Frontend> Tuner::getFrontendById(uint32_t frontendId) {
    TLOGD("Enter >>");
    TLOGD("frontendId:%u", frontendId);
    AutoMutex guard(mLock);
    return frontendId < mFrontends.size() ? mFrontends[frontendId] : nullptr;
}

Return<void> Tuner::getLnbIds(getLnbIds_cb _hidl_cb) {
    TLOGD("Enter >>");
    std::vector<uint32_t> ids;
    {
        AutoMutex guard(mLock);
        TLOGD("mLnbs.size():%d", static_cast<int>(mLnbs.size()));
        for (const sp<Lnb>& lnb : mLnbs) ids.push_back(static_cast<uint32_t>(lnb->getId()));
    }
    _hidl_cb(Result::SUCCESS, hidl_vec<uint32_t>(ids));
    return Void();
}

Return<void> Tuner::openLnbById(uint32_t lnbId, openLnbById_cb _hidl_cb) {
    TLOGD("Enter >>");
    TLOGD("lnbId:%u", lnbId);
    sp<Lnb> lnb;
    {
        AutoMutex guard(mLock);
        if (lnbId < mLnbs.size()) {
            initDriverLocked();
            lnb = mLnbs[lnbId];
        }
    }
    _hidl_cb(lnb != nullptr ? Result::SUCCESS : Result::INVALID_ARGUMENT, lnb);
    return Void();
}

// The name is not looked at: every call hands out a new LNB that addresses driver LNB 0.
Return<void> Tuner::openLnbByName(const hidl_string& /*lnbName*/, openLnbByName_cb _hidl_cb) {
    TLOGD("Enter >>");
    sp<Lnb> lnb = new Lnb();
    {
        AutoMutex guard(mLock);
        initDriverLocked();
    }
    _hidl_cb(Result::SUCCESS, kLnbIdOfNamedLnb, lnb);
    return Void();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
