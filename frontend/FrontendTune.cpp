// Synchronous tuning: the caller's thread polls the driver until lock or until it gives up.
#include <cstring>

#include "frontend/Frontend.h"
#include "frontend/FrontendConstants.h"
#include "frontend/FrontendLog.h"
#include "frontend/PollWait.h"
#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {
constexpr int kLockPolls = 15;

// The client's code runs on this thread for the length of the call: whatever it calls back into
// the service from there must not wait for a scan thread.
void sendEvent(const sp<IFrontendCallback>& callback, FrontendEventType event) {
    ScanControl::ClientCodeScope clientCode;
    callback->onEvent(event);
}
}  // namespace

Return<Result> Frontend::tune(const FrontendSettings& settings) {
    FLOGD("Enter >>");
    // A local strong reference: a close() on another thread cannot take the callback away from
    // under the event this call sends.
    const sp<IFrontendCallback> callback = getCallback();
    if (callback == nullptr) {
        FLOGE("Frontend callback is not set when tune!");
        return Result::INVALID_STATE;
    }

    MOX_TunerParam_t param;
    memset(&param, 0, sizeof(param));
    // Only a mismatched settings alternative stops the tune; an untranslatable frontend type goes
    // on with the all-zero record, as the driver expects.
    if (static_cast<Result>(toMoxTunerParam(mType, settings, param)) == Result::INVALID_ARGUMENT) {
        return Result::INVALID_ARGUMENT;
    }
    if (MOX_Tuner_Scan(tunerIndex(), param) != 0) {
        FLOGE("MOX_Tuner_Scan failed!!");
        return Result::SUCCESS;
    }

    for (int poll = 0; poll < kLockPolls; ++poll) {
        pollWait(kPollIntervalUs);
        MOX_TunerSignalInfo_t info;
        memset(&info, 0, sizeof(info));
        MOX_Tuner_GetInfo(tunerIndex(), &info);
        FLOGD("Tuner:%u lock:%s strength=%u quality=%u snr=%.1fdB ber=%f agc=%u "
              "powerlevel=%.1fdBuV packetError=%f mer=%f lber=%f",
              mId, info.lock == 1 ? "true" : "false", info.strength, info.quality, info.snr,
              info.ber, info.agc, static_cast<float>(info.powerlevel / 10.0), info.packetError,
              info.mer, info.lber);
        if (info.lock == 1) {
            FLOGD("FrontendEventType::LOCKED!!");
            // The demux input runs before the client hears of the lock.
            mTuner->frontendStartTune(mId);
            sendEvent(callback, FrontendEventType::LOCKED);
            mIsLocked = true;
            return Result::SUCCESS;
        }
    }
    sendEvent(callback, FrontendEventType::NO_SIGNAL);
    FLOGD("FrontendEventType::NO_SIGNAL!!");
    FLOGD("End <<");
    return Result::SUCCESS;
}

Return<Result> Frontend::stopTune() {
    FLOGD("Enter >>");
    mTuner->frontendStopTune(mId);
    mIsLocked = false;
    MOX_Tuner_Release(tunerIndex());
    FLOGD("End <<");
    return Result::SUCCESS;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
