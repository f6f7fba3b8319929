// Channel scanning on a worker thread: a single-frequency scan for terrestrial and satellite
// frontends, a frequency sweep for cable.
#include <cstring>
#include <memory>

#include "frontend/Frontend.h"
#include "frontend/FrontendConstants.h"
#include "frontend/FrontendLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

constexpr int kPollsPerAttempt = 10;
constexpr int kSingleFrequencyPasses = 5;
constexpr uint32_t kBlindOffsetHz = 100;
constexpr uint32_t kSweepSpanHz = 5000000;
constexpr uint32_t kSweepStepHz = 50000;
// Above this start frequency the end of the sweep does not fit in 32 bits.
constexpr uint32_t kLastSweepStartHz = 4289967295u;
constexpr uint32_t kSweepBandwidths[] = {MOX_TUNER_BW_8MHZ, MOX_TUNER_BW_6MHZ};
constexpr uint32_t kDefaultCableSymbolRate = 6875000;
constexpr uint8_t kProgressCeiling = 100;

// The generation of the run the current scan thread serves: frontendScanThreadLoop keeps the
// signature the framework's scan loop has, so the generation travels beside it.
thread_local uint64_t tScanGeneration = 0;

FrontendScanMessage frequencyMessage(uint32_t hz) {
    FrontendScanMessage message;
    message.frequencies(hidl_vec<uint32_t>{hz});
    return message;
}

FrontendScanMessage flagMessage(FrontendScanMessageType type) {
    FrontendScanMessage message;
    if (type == FrontendScanMessageType::END) {
        message.isEnd(true);
    } else {
        message.isLocked(true);
    }
    return message;
}

FrontendScanMessage progressMessage(uint8_t percent) {
    FrontendScanMessage message;
    message.progressPercent(percent);
    return message;
}

// The frequency a blind single-frequency scan tunes: the settings' frequency plus the offset the
// driver expects, unless that no longer fits in 32 bits.
bool blindFrequencyFits(FrontendType type, const FrontendSettings& settings, FrontendScanType scan) {
    if (scan != FrontendScanType::SCAN_BLIND) return true;
    if (type != FrontendType::DVBT && type != FrontendType::DVBS) return true;
    const uint32_t hz =
            type == FrontendType::DVBT ? settings.dvbt().frequency : settings.dvbs().frequency;
    return hz <= UINT32_MAX - kBlindOffsetHz;
}

}  // namespace

Return<Result> Frontend::scan(const FrontendSettings& settings, FrontendScanType type) {
    FLOGD("Enter >>");
    mIsLocked = false;
    if (mType != FrontendType::DVBC && mType != FrontendType::DVBS && mType != FrontendType::DVBT) {
        return Result::UNAVAILABLE;
    }
    if (getCallback() == nullptr) {
        FLOGE("Frontend callback is not set when scan!");
        return Result::INVALID_STATE;
    }
    if (!settingsMatchType(mType, settings)) return Result::INVALID_ARGUMENT;
    if (!blindFrequencyFits(mType, settings, type)) {
        FLOGE("blind scan frequency + %u Hz does not fit in 32 bits", kBlindOffsetHz);
        return Result::INVALID_ARGUMENT;
    }
    // The running scan, if any, ends; the new thread runs once that one's thread has finished.
    const uint64_t generation = mScanControl.start(__threadLoopScan, [&](uint64_t g) {
        return std::make_unique<ScanThreadArgs>(ScanThreadArgs{this, settings, type, g});
    });
    if (generation == 0) FLOGE("could not start the scan thread");
    FLOGD("End <<");
    return Result::SUCCESS;
}

Return<Result> Frontend::stopScan() {
    FLOGD("Enter >>");
    // From inside a client callback (or on a scan thread) this returns at once, and the scan's
    // thread releases the tuner when it finishes.
    mScanControl.stop([this] { releaseTuner(); });
    FLOGD("End <<");
    return Result::SUCCESS;
}

void Frontend::releaseTuner() {
    mIsLocked = false;
    MOX_Tuner_Release(tunerIndex());
}

void* Frontend::__threadLoopScan(void* arg) {
    std::unique_ptr<ScanThreadArgs> args(static_cast<ScanThreadArgs*>(arg));
    FLOGD("Enter >>");
    {
        // The whole thread counts as client code: its callbacks may call into any frontend.
        ScanControl::ClientCodeScope clientCode;
        ScanControl::Turn turn(args->frontend->mScanControl, args->generation);
        tScanGeneration = args->generation;
        FrontendSettings settings = args->settings;
        args->frontend->frontendScanThreadLoop(settings, args->scanType);
    }
    // Dropping the thread's reference may destroy the frontend here; nothing waits for this
    // thread any more.
    args.reset();
    return nullptr;
}

void Frontend::frontendScanThreadLoop(FrontendSettings settings, FrontendScanType type) {
    FLOGD("Enter >>");
    Mutex::Autolock scanGuard(mScanMutex);
    FLOGD("FrontendScanType:%d", static_cast<int>(type));
    const uint64_t generation = tScanGeneration;
    if (mType == FrontendType::DVBT || mType == FrontendType::DVBS) {
        scanSingleFrequency(settings, type, generation);
    } else if (mType == FrontendType::DVBC) {
        scanCableSweep(settings, type, generation);
    }
    FLOGD("End <<");
}

void Frontend::sendScanMessage(FrontendScanMessageType type, const FrontendScanMessage& message) {
    // Each message goes to the callback of this moment: a close() silences the scan, a new
    // setCallback() hears the rest of it.
    if (const sp<IFrontendCallback> callback = getCallback())
        callback->onScanMessage(type, message);
}

void Frontend::markScanLocked(uint64_t generation) {
    mScanControl.ifRunning(generation, [this] { mIsLocked = true; });
}

void Frontend::scanSingleFrequency(FrontendSettings& settings, FrontendScanType type,
                                   uint64_t generation) {
    uint32_t& frequency =
            mType == FrontendType::DVBT ? settings.dvbt().frequency : settings.dvbs().frequency;
    if (type == FrontendScanType::SCAN_BLIND) frequency += kBlindOffsetHz;
    MOX_TunerParam_t param;
    memset(&param, 0, sizeof(param));
    toMoxTunerParam(mType, settings, param);
    const uint32_t f = frequency;
    if (MOX_Tuner_Scan(tunerIndex(), param) != 0)
        SCAN_LOG(ANDROID_LOG_ERROR, "MOX_Tuner_Scan failed!!");

    int passes = 0;
    bool locked = false;  // a lock ends this scan's run, as a stop does
    while (mScanControl.isRunning(generation) && !locked) {
        for (int poll = 0; poll < kPollsPerAttempt; ++poll) {
            mScanControl.waitBeforePoll(generation, kPollIntervalUs);
            if (MOX_Tuner_IsLocked(tunerIndex()) == 0) {
                sendScanMessage(FrontendScanMessageType::FREQUENCY, frequencyMessage(f));
                SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::FREQUENCY!!");
                sendScanMessage(FrontendScanMessageType::LOCKED,
                                flagMessage(FrontendScanMessageType::LOCKED));
                markScanLocked(generation);
                SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::LOCKED!!");
                locked = true;
                break;
            }
            if (!mScanControl.isRunning(generation)) break;
        }
        if (++passes == kSingleFrequencyPasses) {
            mScanControl.endRun(generation);
            return;  // the fifth pass ends without END
        }
    }
    if (mType == FrontendType::DVBT) {
        SCAN_LOG(ANDROID_LOG_ERROR, "FrontendScanMessageType::END!!");
    }
    sendScanMessage(FrontendScanMessageType::END, flagMessage(FrontendScanMessageType::END));
    mScanControl.endRun(generation);
}

void Frontend::scanCableSweep(const FrontendSettings& settings, FrontendScanType type,
                              uint64_t generation) {
    const FrontendDvbcSettings& dvbc = settings.dvbc();
    SCAN_LOG(ANDROID_LOG_DEBUG, "DVBC: freq:%u sym:%u mod:%d fec:%u annex:%hhu", dvbc.frequency,
             dvbc.symbolRate, static_cast<int>(dvbc.modulation),
             static_cast<uint32_t>(dvbc.outerFec), static_cast<uint8_t>(dvbc.annex));
    const uint32_t f0 = dvbc.frequency;
    MOX_TunerParam_t param;
    memset(&param, 0, sizeof(param));
    toMoxTunerParam(mType, settings, param);
    sendScanMessage(FrontendScanMessageType::PROGRESS_PERCENT, progressMessage(0));
    param.eAnnex = MOX_DVBC_ANNEX_A;
    if (param.uiSymbolRate == 0) param.uiSymbolRate = kDefaultCableSymbolRate;

    MOX_TunerParam_t lastLocked;
    memset(&lastLocked, 0, sizeof(lastLocked));
    bool locked = false;
    if (f0 <= kLastSweepStartHz && mScanControl.isRunning(generation)) {
        const uint32_t end = f0 + kSweepSpanHz;
        uint8_t progress = 0;
        uint32_t f = f0;
        do {
            SCAN_LOG(ANDROID_LOG_DEBUG, "scan freq:%dHz", f);
            param.uiFreqMHz = f / kHzPerMHz;
            if (progress < kProgressCeiling) ++progress;
            for (uint32_t bandwidth : kSweepBandwidths) {
                param.eModulation = MOX_CABLE_MOD_256QAM;
                sendScanMessage(FrontendScanMessageType::PROGRESS_PERCENT,
                                progressMessage(progress));
                if (!mScanControl.isRunning(generation)) {
                    sendScanMessage(FrontendScanMessageType::END,
                                    flagMessage(FrontendScanMessageType::END));
                    continue;
                }
                param.eBandwidth = bandwidth;
                if (MOX_Tuner_Scan(tunerIndex(), param) != 0) {
                    SCAN_LOG(ANDROID_LOG_ERROR, "MOX_Tuner_Scan failed!!");
                    continue;
                }
                for (int poll = 0; poll < kPollsPerAttempt && mScanControl.isRunning(generation);
                     ++poll) {
                    mScanControl.waitBeforePoll(generation, kPollIntervalUs);
                    if (MOX_Tuner_IsLocked(tunerIndex()) == 0) {
                        sendScanMessage(FrontendScanMessageType::FREQUENCY, frequencyMessage(f));
                        sendScanMessage(FrontendScanMessageType::LOCKED,
                                        flagMessage(FrontendScanMessageType::LOCKED));
                        markScanLocked(generation);
                        SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::FREQUENCY!!");
                        SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::LOCKED!!");
                        lastLocked = param;
                        locked = true;
                        break;
                    }
                }
            }
            if (type != FrontendScanType::SCAN_BLIND) break;
            f += kSweepStepHz;
        } while (f < end && mScanControl.isRunning(generation));
    }
    // Leave the tuner on the last frequency that locked, unless a stop or close cleared the lock.
    if (locked && mIsLocked) MOX_Tuner_Scan(tunerIndex(), lastLocked);
    mScanControl.endRun(generation);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
