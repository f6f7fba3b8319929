// getStatus: answers each requested status type from one read of the driver's records.
#include <algorithm>
#include <cstring>

#include "frontend/Frontend.h"
#include "frontend/FrontendLog.h"
#include "frontend/SaturatingCast.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

bool isDvbt2(const MOX_TunerParamInfo_t& param) {
    return param.eTunerType == MOX_TUNER_TYPE_DVBT2;
}

// The service answers the status types 0..21 and leaves every other number out.
bool isAnswered(FrontendStatusType type) {
    return static_cast<uint32_t>(type) <= static_cast<uint32_t>(FrontendStatusType::ATSC3_PLP_INFO);
}

// The types buildStatus reads from the driver's records; it answers every other one with a
// constant.
constexpr FrontendStatusType kMeasuredTypes[] = {FrontendStatusType::DEMOD_LOCK,
                                                 FrontendStatusType::SNR,
                                                 FrontendStatusType::BER,
                                                 FrontendStatusType::PRE_BER,
                                                 FrontendStatusType::SIGNAL_QUALITY,
                                                 FrontendStatusType::PLP_ID,
                                                 FrontendStatusType::AGC,
                                                 FrontendStatusType::MER,
                                                 FrontendStatusType::HIERARCHY};

// One entry per answered status type; false for the others.
bool buildStatus(FrontendStatusType type, const MOX_TunerSignalInfo_t& signal,
                 const MOX_TunerParamInfo_t& param, FrontendStatus& status) {
    using T = FrontendStatusType;
    switch (type) {
        case T::DEMOD_LOCK:
            status.isDemodLocked(signal.lock != 0);
            break;
        case T::SNR:
            status.snr(saturatingCast<int32_t>(signal.snr * 1000.0f));
            break;
        case T::BER:
            status.ber(saturatingCast<uint32_t>(signal.lber * 1000000.0f));
            break;
        case T::PER:
            status.per(0);
            break;
        case T::PRE_BER:
            status.preBer(saturatingCast<uint32_t>(signal.ber * 1000000.0f));
            break;
        case T::SIGNAL_QUALITY:
            status.signalQuality(signal.quality);
            break;
        case T::SIGNAL_STRENGTH:
            status.signalStrength(0);
            break;
        case T::SYMBOL_RATE:
            status.symbolRate(0);
            break;
        case T::FEC:
            status.innerFec(FrontendInnerFec::FEC_UNDEFINED);
            break;
        case T::MODULATION: {
            FrontendModulationStatus modulation;
            modulation.isdbt(FrontendIsdbtModulation::UNDEFINED);
            status.modulation(modulation);
            break;
        }
        case T::SPECTRAL:
            status.inversion(FrontendDvbcSpectralInversion::UNDEFINED);
            break;
        case T::LNB_VOLTAGE:
            status.lnbVoltage(LnbVoltage::NONE);
            break;
        case T::PLP_ID:
            status.plpId(isDvbt2(param) ? param.ucPlpId : 255);
            break;
        case T::EWBS:
            status.isEWBS(false);
            break;
        case T::AGC:
            status.agc(static_cast<uint8_t>(signal.agc & 0xFF));
            break;
        case T::LNA:
            status.isLnaOn(false);
            break;
        case T::LAYER_ERROR:
            status.isLayerError(hidl_vec<bool>{false, true, true});
            break;
        case T::MER:
            status.mer(saturatingCast<int32_t>(signal.mer * 1000.0f));
            break;
        case T::FREQ_OFFSET:
            status.freqOffset(0);
            break;
        case T::HIERARCHY:
            status.hierarchy(isDvbt2(param) ? Frontend::fromMoxDvbtHierarchy(param.eHierarchy)
                                            : FrontendDvbtHierarchy::UNDEFINED);
            break;
        case T::RF_LOCK:
            status.isRfLocked(true);
            break;
        case T::ATSC3_PLP_INFO:
            status.plpInfo(hidl_vec<FrontendStatusAtsc3PlpInfo>{{3, false, 313}, {5, true, 515}});
            break;
        default:
            return false;
    }
    return true;
}

}  // namespace

bool Frontend::isStatusMeasured(FrontendStatusType type) {
    return std::find(std::begin(kMeasuredTypes), std::end(kMeasuredTypes), type) !=
           std::end(kMeasuredTypes);
}

Return<void> Frontend::getStatus(const hidl_vec<FrontendStatusType>& statusTypes,
                                 getStatus_cb _hidl_cb) {
    FLOGD("Enter >>");
    MOX_TunerSignalInfo_t signal;
    MOX_TunerParamInfo_t param;
    memset(&signal, 0, sizeof(signal));
    memset(&param, 0, sizeof(param));
    if (MOX_Tuner_GetInfo(tunerIndex(), &signal) != 0) {
        FLOGE("MOX_Tuner_GetInfo fail!! mId:%u", mId);
        _hidl_cb(Result::UNKNOWN_ERROR, hidl_vec<FrontendStatus>());
        return Void();
    }
    if (MOX_Tuner_GetParamInfo(tunerIndex(), &param) != 0) {
        FLOGD("MOX_Tuner_GetParamInfo fail!! mId:%u", mId);
    }
    // The answer is built in place: one allocation for the list, none for a copy of it.
    hidl_vec<FrontendStatus> statuses;
    statuses.resize(std::count_if(statusTypes.begin(), statusTypes.end(), isAnswered));
    size_t next = 0;
    for (FrontendStatusType type : statusTypes) {
        if (isAnswered(type)) buildStatus(type, signal, param, statuses[next++]);
    }
    _hidl_cb(Result::SUCCESS, statuses);
    FLOGD("End <<");
    return Void();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
