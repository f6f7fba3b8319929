// Client settings -> the driver's tuning parameter record.
#include "frontend/Frontend.h"
#include "frontend/FrontendConstants.h"
#include "frontend/FrontendLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {
const char* alternativeName(FrontendSettings::hidl_discriminator d) {
    using D = FrontendSettings::hidl_discriminator;
    switch (d) {
        case D::analog:
            return "analog";
        case D::atsc:
            return "atsc";
        case D::atsc3:
            return "atsc3";
        case D::dvbs:
            return "dvbs";
        case D::dvbc:
            return "dvbc";
        case D::dvbt:
            return "dvbt";
        case D::isdbs:
            return "isdbs";
        case D::isdbs3:
            return "isdbs3";
        case D::isdbt:
            return "isdbt";
    }
    return "unknown";
}
}  // namespace

// Only the translated types read an alternative; for them the client must have set the matching
// one (the union orders dvbs before dvbc, so the mapping is spelled out).
bool Frontend::settingsMatchType(FrontendType type, const FrontendSettings& settings) {
    using D = FrontendSettings::hidl_discriminator;
    D expected;
    switch (type) {
        case FrontendType::DVBC:
            expected = D::dvbc;
            break;
        case FrontendType::DVBS:
            expected = D::dvbs;
            break;
        case FrontendType::DVBT:
            expected = D::dvbt;
            break;
        default:
            return true;
    }
    if (settings.getDiscriminator() == expected) return true;
    FLOGE("settings hold %s, frontend type %s needs %s",
          alternativeName(settings.getDiscriminator()), toString(type).c_str(),
          alternativeName(expected));
    return false;
}

Return<Result> Frontend::toMoxTunerParam(FrontendType type, const FrontendSettings& settings,
                                         MOX_TunerParam_t& param) {
    FLOGD("Enter >>");
    Result result = Result::SUCCESS;
    if (!settingsMatchType(type, settings)) {
        result = Result::INVALID_ARGUMENT;
    } else if (type == FrontendType::DVBT) {
        const FrontendDvbtSettings& dvbt = settings.dvbt();
        param.eTunerType = dvbt.standard == FrontendDvbtStandard::T ? MOX_TUNER_TYPE_DVBT
                                                                    : MOX_TUNER_TYPE_DVBT2;
        param.eBandwidth = toMoxBandwidth(dvbt.bandwidth);
        param.uiFreqMHz = dvbt.frequency / kHzPerMHz;
    } else if (type == FrontendType::DVBS) {
        const FrontendDvbsSettings& dvbs = settings.dvbs();
        param.eTunerType = dvbs.standard == FrontendDvbsStandard::S ? MOX_TUNER_TYPE_DVBS
                                                                    : MOX_TUNER_TYPE_DVBS2;
        param.uiFreqMHz = dvbs.frequency / kHzPerMHz;
        param.uiSymbolRate = dvbs.symbolRate;
        param.eModulation = 0;
        FLOGD("freq:%d symbolrate:%d", param.uiFreqMHz, param.uiSymbolRate);
    } else if (type == FrontendType::DVBC) {
        const FrontendDvbcSettings& dvbc = settings.dvbc();
        param.eTunerType = MOX_TUNER_TYPE_DVBC;
        param.eBandwidth = MOX_TUNER_BW_8MHZ;
        param.eModulation = toMoxDvbcMod(dvbc.modulation);
        param.eAnnex = toMoxDvbcAnnex(dvbc.annex);
        FLOGD("settings.dvbc() frequency:%u settings.dvbc() symbolRate:%u annex:%hhu",
              dvbc.frequency, dvbc.symbolRate, static_cast<uint8_t>(dvbc.annex));
        param.uiFreqMHz = dvbc.frequency / kHzPerMHz;
        param.uiSymbolRate = dvbc.symbolRate;
        FLOGD("freq:%d symbolrate:%d", param.uiFreqMHz, param.uiSymbolRate);
    } else {
        FLOGE("type:%d not support yet!", static_cast<int>(type));
        result = Result::UNAVAILABLE;
    }
    FLOGD("End <<");
    return result;
}

MOX_CableTnr_Mod Frontend::toMoxDvbcMod(FrontendDvbcModulation modulation) {
    switch (modulation) {
        case FrontendDvbcModulation::MOD_16QAM:
            return MOX_CABLE_MOD_16QAM;
        case FrontendDvbcModulation::MOD_32QAM:
            return MOX_CABLE_MOD_32QAM;
        case FrontendDvbcModulation::MOD_64QAM:
            return MOX_CABLE_MOD_64QAM;
        case FrontendDvbcModulation::MOD_128QAM:
            return MOX_CABLE_MOD_128QAM;
        default:
            return MOX_CABLE_MOD_256QAM;  // 256-QAM, AUTO and combinations alike
    }
}

MOX_DVBC_ANNEX_TYPE Frontend::toMoxDvbcAnnex(FrontendDvbcAnnex annex) {
    // Indexed by annex - 1 (8-bit): A, B, A|B, C; everything else is annex A.
    static constexpr MOX_DVBC_ANNEX_TYPE kCodes[] = {MOX_DVBC_ANNEX_A, MOX_DVBC_ANNEX_B,
                                                     MOX_DVBC_ANNEX_A, MOX_DVBC_ANNEX_C};
    const uint8_t index = static_cast<uint8_t>(static_cast<uint8_t>(annex) - 1);
    return index > 3 ? MOX_DVBC_ANNEX_A : kCodes[index];
}

MOX_Tuner_Bandwidth Frontend::toMoxBandwidth(FrontendDvbtBandwidth bandwidth) {
    switch (bandwidth) {
        case FrontendDvbtBandwidth::AUTO:
            return MOX_TUNER_BW_AUTO;
        case FrontendDvbtBandwidth::BANDWIDTH_8MHZ:
            return MOX_TUNER_BW_8MHZ;
        case FrontendDvbtBandwidth::BANDWIDTH_7MHZ:
            return MOX_TUNER_BW_7MHZ;
        case FrontendDvbtBandwidth::BANDWIDTH_6MHZ:
            return MOX_TUNER_BW_6MHZ;
        case FrontendDvbtBandwidth::BANDWIDTH_5MHZ:
            return MOX_TUNER_BW_5MHZ;
        case FrontendDvbtBandwidth::BANDWIDTH_1_7MHZ:
            return MOX_TUNER_BW_1_7MHZ;
        case FrontendDvbtBandwidth::BANDWIDTH_10MHZ:
            return MOX_TUNER_BW_10MHZ;
        default:
            return MOX_TUNER_BW_8MHZ;
    }
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
