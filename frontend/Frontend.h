#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontend.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>

#include "driver/MoxTuner.h"
#include "frontend/ScanControl.h"

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
    // The driver's tuner this frontend tunes.
    uint8_t tunerIndex() const { return static_cast<uint8_t>(mId & 0xFF); }
    bool isLocked() const { return mIsLocked; }
    // The callback installed at this moment, if any.
    sp<IFrontendCallback> getCallback() const;
    bool supportsSatellite() const;
    // True from scan() until the scan is stopped or ends by itself.
    bool isScanRunning() const { return mScanControl.anyRunning(); }

    // Whether getStatus answers the type from the driver's signal records; the other types are
    // answered with a fixed value (the driver does not measure them).
    static bool isStatusMeasured(FrontendStatusType type);

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

    static bool settingsMatchType(FrontendType type, const FrontendSettings& settings);
    void scanSingleFrequency(FrontendSettings& settings, FrontendScanType type, uint64_t generation);
    void scanCableSweep(const FrontendSettings& settings, FrontendScanType type,
                        uint64_t generation);
    // Sends one scan message to the callback installed at this moment, if any.
    void sendScanMessage(FrontendScanMessageType type, const FrontendScanMessage& message);
    // The scan saw lock: counts only while its run is still to go on, so it never undoes a stop.
    void markScanLocked(uint64_t generation);
    void releaseTuner();

    mutable Mutex mCallbackLock;
    sp<IFrontendCallback> mCallback GUARDED_BY(mCallbackLock);
    sp<Tuner> mTuner;
    FrontendType mType;
    uint32_t mId;
    std::atomic<bool> mIsLocked{false};
    FrontendInfo mFrontendInfo{};

    // Which scan is to go on, its thread's turn, its poll wait and the release after a stop.
    ScanControl mScanControl;
    // Held by a scan thread for the whole of its run.
    Mutex mScanMutex;

    // The driver is prepared once per process, by the first frontend constructed. Frontends of
    // different Tuners may be constructed at once (within one Tuner, discovery holds its mLock).
    static Mutex& sDriverPreparationLock;
    static bool mIsMoxTunerReady GUARDED_BY(sDriverPreparationLock);
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
