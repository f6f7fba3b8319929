#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontend.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>

#include "driver/MoxTuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

class Tuner;

// One tuner channel of the driver. Its id is both its position in the Tuner's list and, in its
// low 8 bits, the driver's tuner index.
class Frontend : public IFrontend {
  public:
    Frontend(FrontendType type, uint32_t id, FrontendInfo info, sp<Tuner> tuner);
    Frontend(FrontendType type, uint32_t id, sp<Tuner> tuner);
    ~Frontend() override;

    Return<Result> setCallback(const sp<IFrontendCallback>& callback) override;
    Return<Result> tune(const FrontendSettings& settings) override;
    Return<Result> stopTune() override;
    Return<Result> close() override;
    Return<Result> scan(const FrontendSettings& settings, FrontendScanType type) override;
    Return<Result> stopScan() override;
    Return<void> getStatus(const hidl_vec<FrontendStatusType>& statusTypes,
                           getStatus_cb _hidl_cb) override;
    Return<Result> setLnb(uint32_t lnbId) override;
    Return<Result> setLna(bool bEnable) override;

    FrontendType getFrontendType() const { return mType; }
    uint32_t getFrontendId() const { return mId; }
    bool isLocked() const { return mIsLocked; }
    bool supportsSatellite() const;
    // True from scan() until the scan is stopped or ends by itself.
    bool isScanRunning() const { return mScanRunning != 0; }

    // Settings -> driver tuning record.
    static Return<Result> toMoxTunerParam(FrontendType type, const FrontendSettings& settings,
                                          MOX_TunerParam_t& param);
    static MOX_CableTnr_Mod toMoxDvbcMod(FrontendDvbcModulation modulation);
    static MOX_DVBC_ANNEX_TYPE toMoxDvbcAnnex(FrontendDvbcAnnex annex);
    static MOX_Tuner_Bandwidth toMoxBandwidth(FrontendDvbtBandwidth bandwidth);

    // Driver codes -> package values; 0 for unknown codes.
    static FrontendType fromMoxFrontendType(uint32_t code);
    static FrontendDvbcModulation fromMoxDvbcMod(uint32_t code);
    static FrontendDvbcAnnex fromMoxDvbcAnnex(uint32_t code);
    static FrontendDvbtBandwidth fromMoxBandwidth(uint32_t code);
    static FrontendDvbtHierarchy fromMoxDvbtHierarchy(MOX_DVBT_Hierarchy code);
    static FrontendDvbtTransmissionMode fromMoxDvbtMode(MOX_DVBT_Mode code);
    static FrontendDvbtTransmissionMode fromMoxDvbt2Mode(MOX_DVBT2_Mode code);
    static FrontendDvbtConstellation fromMoxDvbtConstellation(MOX_DVBT_Constellation code);
    static FrontendDvbtConstellation fromMoxDvbt2Constellation(MOX_DVBT2_PlpConstellation code);
    static FrontendDvbtCoderate fromMoxDvbtCodeRate(MOX_DVBT_CodeRate code);
    static FrontendDvbtCoderate fromMoxDvbt2CodeRate(MOX_DVBT2_PlpCodeRate code);
    static FrontendDvbtGuardInterval fromMoxDvbtGuardInterval(MOX_DVBT_Guard code);
    static FrontendDvbtGuardInterval fromMoxDvbt2GuardInterval(MOX_DVBT2_Guard code);
    static FrontendDvbsModulation fromMoxDvbsModulation(MOX_DVBS_S2_Modulation code);
    static FrontendInnerFec fromMoxDvbsCodeRate(MOX_DVBS_S2_CodeRate code);
    static FrontendStatusType fromMoxStatusType(MOX_TunerStatusCapability_e capability);

    // Scan thread entry; arg is a ScanThreadArgs that the thread takes over.
    static void* __threadLoopScan(void* arg);
    void frontendScanThreadLoop(FrontendSettings settings, FrontendScanType type);

  private:
    // What one scan thread runs on. The thread owns its block, so a later scan never overwrites
    // what a running thread reads, and its strong reference keeps the frontend alive until the
    // thread is done.
    struct ScanThreadArgs {
        sp<Frontend> frontend;
        FrontendSettings settings;
        FrontendScanType scanType;
        uint64_t generation;
    };

    sp<IFrontendCallback> getCallback() const;
    static bool settingsMatchType(FrontendType type, const FrontendSettings& settings);
    bool onOwnScanThread() const;
    bool scanShouldRun(uint64_t generation) const;
    void endScanRun(uint64_t generation);
    // Asks the running scan to end and hands back its thread handle, if any (mScanControlLock).
    std::optional<pthread_t> endScanLocked();
    void joinOrDetach(std::optional<pthread_t> thread);
    void scanSingleFrequency(FrontendSettings& settings, FrontendScanType type,
                             const sp<IFrontendCallback>& callback, uint64_t generation);
    void scanCableSweep(const FrontendSettings& settings, FrontendScanType type,
                        const sp<IFrontendCallback>& callback, uint64_t generation);
    void sendScanMessage(const sp<IFrontendCallback>& callback, FrontendScanMessageType type,
                         const FrontendScanMessage& message);
    uint8_t tunerIndex() const { return static_cast<uint8_t>(mId & 0xFF); }

    mutable std::mutex mCallbackLock;
    sp<IFrontendCallback> mCallback;  // guarded by mCallbackLock
    sp<Tuner> mTuner;
    FrontendType mType;
    uint32_t mId;
    std::atomic<bool> mIsLocked{false};
    FrontendInfo mFrontendInfo;

    // Scanning. mScanControlLock guards the thread handle and the generation count; it is never
    // held while waiting for a scan thread, so a thread that ends can always take it.
    std::mutex mScanControlLock;
    std::optional<pthread_t> mScanThread;  // joinable handle; guarded by mScanControlLock
    uint64_t mScanGeneration = 0;          // guarded by mScanControlLock
    // The generation of the scan that is to go on, 0 when none. scan() and stopScan() write it
    // under mScanControlLock; a scan thread tests it in its loops and, as its last step, clears
    // its own generation by compare-and-swap.
    std::atomic<uint64_t> mScanRunning{0};
    // Held by a scan thread for the whole of its scan, so scans of one frontend never overlap:
    // a thread detached by a scan() from inside a callback finishes before the next one starts.
    std::mutex mScanMutex;

    static bool mIsMoxTunerReady;  // guarded by the constructors' preparation lock
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
