#include "frontend/Frontend.h"

#include <utility>

#include "frontend/FrontendLog.h"
#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

// Never destroyed: the service's threads may still take it while the process exits.
Mutex& Frontend::sDriverPreparationLock = *new Mutex();
bool Frontend::mIsMoxTunerReady = false;

namespace {
// The data paths whose secure media path the first frontend switches off.
constexpr int kSmpPaths[] = {0, 1, 16, 17};
}  // namespace

Frontend::Frontend(FrontendType type, uint32_t id, FrontendInfo info, sp<Tuner> tuner)
    : Frontend(type, id, std::move(tuner)) {
    mFrontendInfo = std::move(info);
}

Frontend::Frontend(FrontendType type, uint32_t id, sp<Tuner> tuner)
    : mTuner(std::move(tuner)), mType(type), mId(id) {
    {
        Mutex::Autolock guard(sDriverPreparationLock);
        if (!mIsMoxTunerReady) {
            FLOGD("MOX_DvbSetSMP set off.");
            for (int path : kSmpPaths) MOX_DvbSetSMP(path, 0);
            MOX_Tuner_Init();
            mIsMoxTunerReady = true;
        }
    }
    FLOGD("Frontend mId=%d\n", mId);
}

// Every scan thread holds a strong reference on its frontend, so none is left to stop here.
Frontend::~Frontend() = default;

sp<IFrontendCallback> Frontend::getCallback() const {
    Mutex::Autolock guard(mCallbackLock);
    return mCallback;
}

Return<Result> Frontend::setCallback(const sp<IFrontendCallback>& callback) {
    if (callback == nullptr) {
        FLOGE("Set Frontend callback with nullptr!!");
        return Result::INVALID_ARGUMENT;
    }
    Mutex::Autolock guard(mCallbackLock);
    mCallback = callback;
    return Result::SUCCESS;
}

Return<Result> Frontend::close() {
    FLOGD("Enter >>");
    sp<IFrontendCallback> dropped;  // released after the lock, in case it is the last reference
    {
        Mutex::Autolock guard(mCallbackLock);
        dropped = std::move(mCallback);
        mCallback = nullptr;
    }
    mIsLocked = false;
    FLOGD("End <<");
    return Result::SUCCESS;
}

Return<Result> Frontend::setLna(bool /*bEnable*/) {
    FLOGD("Enter >>");
    return Result::SUCCESS;
}

Return<Result> Frontend::setLnb(uint32_t /*lnbId*/) {
    FLOGD("Enter >>");
    return supportsSatellite() ? Result::SUCCESS : Result::INVALID_STATE;
}

bool Frontend::supportsSatellite() const {
    return mType == FrontendType::DVBS || mType == FrontendType::ISDBS ||
           mType == FrontendType::ISDBS3;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
