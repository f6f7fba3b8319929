// Channel scanning on a worker thread: a single-frequency scan for terrestrial and satellite
// frontends, a frequency sweep for cable.
#include <cstring>
#include <memory>

#include "frontend/Frontend.h"
#include "frontend/FrontendConstants.h"
#include "frontend/FrontendLog.h"
#include "frontend/PollWait.h"

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

// Which frontend's scan, and which scan of it, the current thread runs. A client that calls back
// into the frontend from inside onScanMessage runs on this thread.
struct ScanThreadContext {
    const Frontend* frontend = nullptr;
    uint64_t generation = 0;
};
thread_local ScanThreadContext tScanContext;

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

    std::optional<pthread_t> previous;
    {
        std::lock_guard<std::mutex> guard(mScanControlLock);
        previous = endScanLocked();
        const uint64_t generation = ++mScanGeneration;
        auto* args = new ScanThreadArgs{this, settings, type, generation};
        // Marked running before the thread exists, so a stop from now on ends this scan.
        mScanRunning = generation;
        pthread_t thread;
        if (pthread_create(&thread, nullptr, __threadLoopScan, args) == 0) {
            // The name is longer than the 15 characters a thread name holds: the request fails
            // and the thread keeps the name it inherited.
            pthread_setname_np(thread, "frontend_scan_thread");
            mScanThread = thread;
        } else {
            delete args;
            mScanRunning = 0;
            FLOGE("could not start the scan thread");
        }
    }
    // The previous scan ends at its next test of the run flag; the new thread waits for it on
    // mScanMutex.
    joinOrDetach(previous);
    FLOGD("End <<");
    return Result::SUCCESS;
}

Return<Result> Frontend::stopScan() {
    FLOGD("Enter >>");
    std::optional<pthread_t> thread;
    {
        std::lock_guard<std::mutex> guard(mScanControlLock);
        thread = endScanLocked();
    }
    // From inside onScanMessage the caller is a scan thread: it detaches instead of joining, and
    // its own scan ends when the callback returns.
    joinOrDetach(thread);
    mIsLocked = false;
    MOX_Tuner_Release(tunerIndex());
    FLOGD("End <<");
    return Result::SUCCESS;
}

std::optional<pthread_t> Frontend::endScanLocked() {
    mScanRunning = 0;
    std::optional<pthread_t> thread = mScanThread;
    mScanThread.reset();
    return thread;
}

// A scan thread of this frontend holds mScanMutex, which every later scan thread of it waits for:
// it must wait neither for itself nor for one of those, so it lets them go instead.
void Frontend::joinOrDetach(std::optional<pthread_t> thread) {
    if (!thread) return;
    if (onOwnScanThread() || pthread_equal(*thread, pthread_self())) {
        pthread_detach(*thread);
    } else {
        pthread_join(*thread, nullptr);
    }
}

bool Frontend::onOwnScanThread() const {
    return tScanContext.frontend == this;
}

bool Frontend::scanShouldRun(uint64_t generation) const {
    return mScanRunning.load() == generation;
}

void* Frontend::__threadLoopScan(void* arg) {
    std::unique_ptr<ScanThreadArgs> args(static_cast<ScanThreadArgs*>(arg));
    FLOGD("Enter >>");
    tScanContext = {args->frontend.get(), args->generation};
    FrontendSettings settings = args->settings;
    args->frontend->frontendScanThreadLoop(settings, args->scanType);
    tScanContext = {};
    // Dropping the thread's reference may destroy the frontend here; its destructor then detaches
    // this thread instead of joining it.
    args.reset();
    return nullptr;
}

void Frontend::frontendScanThreadLoop(FrontendSettings settings, FrontendScanType type) {
    FLOGD("Enter >>");
    const uint64_t generation = tScanContext.generation;
    std::lock_guard<std::mutex> scanGuard(mScanMutex);
    // The thread's own reference: a close() during the scan does not pull it away.
    const sp<IFrontendCallback> callback = getCallback();
    FLOGD("FrontendScanType:%d", static_cast<int>(type));
    if (mType == FrontendType::DVBT || mType == FrontendType::DVBS) {
        scanSingleFrequency(settings, type, callback, generation);
    } else if (mType == FrontendType::DVBC) {
        scanCableSweep(settings, type, callback, generation);
    }
    FLOGD("End <<");
}

void Frontend::sendScanMessage(const sp<IFrontendCallback>& callback, FrontendScanMessageType type,
                               const FrontendScanMessage& message) {
    if (callback != nullptr) callback->onScanMessage(type, message);
}

void Frontend::scanSingleFrequency(FrontendSettings& settings, FrontendScanType type,
                                   const sp<IFrontendCallback>& callback, uint64_t generation) {
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
    while (scanShouldRun(generation) && !locked) {
        for (int poll = 0; poll < kPollsPerAttempt; ++poll) {
            pollWait(kPollIntervalUs);
            if (MOX_Tuner_IsLocked(tunerIndex()) == 0) {
                sendScanMessage(callback, FrontendScanMessageType::FREQUENCY, frequencyMessage(f));
                SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::FREQUENCY!!");
                sendScanMessage(callback, FrontendScanMessageType::LOCKED,
                                flagMessage(FrontendScanMessageType::LOCKED));
                mIsLocked = true;
                SCAN_LOG(ANDROID_LOG_DEBUG, "FrontendScanMessageType::LOCKED!!");
                locked = true;
                break;
            }
            if (!scanShouldRun(generation)) break;
        }
        if (++passes == kSingleFrequencyPasses) {
            endScanRun(generation);
            return;  // the fifth pass ends without END
        }
    }
    if (mType == FrontendType::DVBT) {
        SCAN_LOG(ANDROID_LOG_ERROR, "FrontendScanMessageType::END!!");
    }
    sendScanMessage(callback, FrontendScanMessageType::END,
                    flagMessage(FrontendScanMessageType::END));
    endScanRun(generation);
}

void Frontend::scanCableSweep(const FrontendSettings& settings, FrontendScanType type,
                              const sp<IFrontendCallback>& callback, uint64_t generation) {
    const FrontendDvbcSettings& dvbc = settings.dvbc();
    SCAN_LOG(ANDROID_LOG_DEBUG, "DVBC: freq:%u sym:%u mod:%d fec:%u annex:%hhu", dvbc.frequency,
             dvbc.symbolRate, static_cast<int>(dvbc.modulation),
             static_cast<uint32_t>(dvbc.outerFec), static_cast<uint8_t>(dvbc.annex));
    const uint32_t f0 = dvbc.frequency;
    MOX_TunerParam_t param;
    memset(&param, 0, sizeof(param));
    toMoxTunerParam(mType, settings, param);
    sendScanMessage(callback, FrontendScanMessageType::PROGRESS_PERCENT, progressMessage(0));
    param.eAnnex = MOX_DVBC_ANNEX_A;
    if (param.uiSymbolRate == 0) param.uiSymbolRate = kDefaultCableSymbolRate;

    MOX_TunerParam_t lastLocked;
    memset(&lastLocked, 0, sizeof(lastLocked));
    bool locked = false;
    if (f0 <= kLastSweepStartHz && scanShouldRun(generation)) {
        const uint32_t end = f0 + kSweepSpanHz;
        uint8_t progress = 0;
        uint32_t f = f0;
        do {
            SCAN_LOG(ANDROID_LOG_DEBUG, "scan freq:%dHz", f);
            param.uiFreqMHz = f / kHzPerMHz;
            if (progress < kProgressCeiling) ++progress;
            for (uint32_t bandwidth : kSweepBandwidths) {
                param.eModulation = MOX_CABLE_MOD_256QAM;
                sendScanMessage(callback, FrontendScanMessageType::PROGRESS_PERCENT,
                                progressMessage(progress));
                if (!scanShouldRun(generation)) {
                    sendScanMessage(callback, FrontendScanMessageType::END,
                                    flagMessage(FrontendScanMessageType::END));
                    continue;
                }
                param.eBandwidth = bandwidth;
                if (MOX_Tuner_Scan(tunerIndex(), param) != 0) {
                    SCAN_LOG(ANDROID_LOG_ERROR, "MOX_Tuner_Scan failed!!");
                    continue;
                }
                for (int poll = 0; poll < kPollsPerAttempt && scanShouldRun(generation); ++poll) {
                    pollWait(kPollIntervalUs);
                    if (MOX_Tuner_IsLocked(tunerIndex()) == 0) {
                        sendScanMessage(callback, FrontendScanMessageType::FREQUENCY,
                                        frequencyMessage(f));
                        sendScanMessage(callback, FrontendScanMessageType::LOCKED,
                                        flagMessage(FrontendScanMessageType::LOCKED));
                        mIsLocked = true;
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
        } while (f < end && scanShouldRun(generation));
    }
    // Leave the tuner on the last frequency that locked, unless a stop or close cleared the lock.
    if (locked && mIsLocked) MOX_Tuner_Scan(tunerIndex(), lastLocked);
    endScanRun(generation);
}

// The run flag is cleared by the thread only as its very last step, and only if no stop or newer
// scan has replaced this run already.
void Frontend::endScanRun(uint64_t generation) {
    uint64_t expected = generation;
    mScanRunning.compare_exchange_strong(expected, 0);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
