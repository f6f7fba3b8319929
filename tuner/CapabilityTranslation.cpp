#include "tuner/CapabilityTranslation.h"

#include "frontend/Frontend.h"
#include "tuner/TunerLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

// The number of valid codes of a driver list, clamped to the list's room so that a hostile record
// never makes the service read past it.
template <size_t Room>
size_t validCount(const MOX_CodeList_t<Room>& list, int entry, const char* listName) {
    if (list.ucCnt <= Room) return list.ucCnt;
    TLOGE("[%d] %s.ucCnt:%d is beyond its room of %d, reading %d", entry, listName, list.ucCnt,
          static_cast<int>(Room), static_cast<int>(Room));
    return Room;
}

constexpr const char* kFunction = "translateCapabilities";

// The log formats of one driver list: its count (nullptr when the count is not logged) and its
// elements.
struct ListLog {
    const char* name;
    const char* countFormat;
    const char* elementFormat;
};

// ORs the conversion of every valid code of a list into a capability mask.
template <size_t Room, typename Mask, typename Convert>
void fold(int entry, const MOX_CodeList_t<Room>& list, const ListLog& log, Convert convert,
          Mask& mask) {
    const size_t count = validCount(list, entry, log.name);
    if (log.countFormat != nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, TUNER_TAG, log.countFormat, kFunction, __LINE__,
                            entry, list.ucCnt);
    }
    for (size_t k = 0; k < count; ++k) {
        __android_log_print(ANDROID_LOG_DEBUG, TUNER_TAG, log.elementFormat, kFunction, __LINE__,
                            entry, static_cast<int>(k), list.eValues[k]);
        mask = static_cast<Mask>(mask | static_cast<Mask>(convert(list.eValues[k])));
    }
}

#define COUNT_FORMAT(list) "[Tuner::%s:%d]: [%d] " list ".ucCnt:%d"
#define ELEMENT_FORMAT(list) "[Tuner::%s:%d]: [%d] " list ".eValues[%d]:%d"
#define LOGGED_LIST(list)                              \
    ListLog {                                          \
        list, COUNT_FORMAT(list), ELEMENT_FORMAT(list) \
    }
#define UNCOUNTED_LIST(list)                \
    ListLog {                               \
        list, nullptr, ELEMENT_FORMAT(list) \
    }

void translateDvbt(int entry, const MOX_TunerFrontendCap_t& cap,
                   FrontendInfo::FrontendCapabilities& caps) {
    __android_log_print(ANDROID_LOG_INFO, TUNER_TAG, "[Tuner::%s]: FrontendType::DVBT", kFunction);
    const MOX_TunerDvbtCap_t& t = cap.tCapability.tDvbt;
    FrontendDvbtCapabilities dvbt{};
    dvbt.isT2Supported = t.ucT2Support == 1;
    dvbt.isMisoSupported = t.ucMisoSupport == 1;
    fold(entry, cap.tBwSupport, UNCOUNTED_LIST("tBwSupport"), Frontend::fromMoxBandwidth,
         dvbt.bandwidthCap);
    fold(entry, t.tTransmissionMode.tDvbt, LOGGED_LIST("tCapability.tDvbt.tTransmissionMode.tDvbt"),
         Frontend::fromMoxDvbtMode, dvbt.transmissionModeCap);
    fold(entry, t.tConstellation.tDvbt, LOGGED_LIST("tCapability.tDvbt.tConstellation.tDvbt"),
         Frontend::fromMoxDvbtConstellation, dvbt.constellationCap);
    fold(entry, t.tCodeRate.tDvbt, LOGGED_LIST("tCapability.tDvbt.tCodeRate.tDvbt"),
         Frontend::fromMoxDvbtCodeRate, dvbt.coderateCap);
    fold(entry, t.tHierarchy, LOGGED_LIST("tCapability.tDvbt.tHierarchy"),
         Frontend::fromMoxDvbtHierarchy, dvbt.hierarchyCap);
    fold(entry, t.tGuardInterval.tDvbt, LOGGED_LIST("tCapability.tDvbt.tGuardInterval.tDvbt"),
         Frontend::fromMoxDvbtGuardInterval, dvbt.guardIntervalCap);
    if (dvbt.isT2Supported) {
        fold(entry, t.tTransmissionMode.tDvbt2,
             LOGGED_LIST("tCapability.tDvbt.tTransmissionMode.tDvbt2"), Frontend::fromMoxDvbt2Mode,
             dvbt.transmissionModeCap);
        fold(entry, t.tConstellation.tDvbt2, LOGGED_LIST("tCapability.tDvbt.tConstellation.tDvbt2"),
             Frontend::fromMoxDvbt2Constellation, dvbt.constellationCap);
        fold(entry, t.tCodeRate.tDvbt2, LOGGED_LIST("tCapability.tDvbt.tCodeRate.tDvbt2"),
             Frontend::fromMoxDvbt2CodeRate, dvbt.coderateCap);
        fold(entry, t.tGuardInterval.tDvbt2, LOGGED_LIST("tCapability.tDvbt.tGuardInterval.tDvbt2"),
             Frontend::fromMoxDvbt2GuardInterval, dvbt.guardIntervalCap);
    }
    caps.dvbtCaps(dvbt);
}

void translateDvbs(int entry, const MOX_TunerFrontendCap_t& cap,
                   FrontendInfo::FrontendCapabilities& caps) {
    __android_log_print(ANDROID_LOG_INFO, TUNER_TAG, "[Tuner::%s]: FrontendType::DVBS", kFunction);
    const MOX_TunerDvbsCap_t& s = cap.tCapability.tDvbs;
    FrontendDvbsCapabilities dvbs{};
    // Each generation's standard bit is set once per listed code, so only non-empty lists count.
    const uint8_t kS = static_cast<uint8_t>(FrontendDvbsStandard::S);
    const uint8_t kS2 = static_cast<uint8_t>(FrontendDvbsStandard::S2);
    fold(entry, s.tModulation.tDvbs, UNCOUNTED_LIST("tCapability.tDvbs.tModulation.tDvbs"),
         Frontend::fromMoxDvbsModulation, dvbs.modulationCap);
    dvbs.standard |= s.tModulation.tDvbs.ucCnt > 0 ? kS : 0;
    fold(entry, s.tCodeRate.tDvbs, UNCOUNTED_LIST("tCapability.tDvbs.tCodeRate.tDvbs"),
         Frontend::fromMoxDvbsCodeRate, dvbs.innerfecCap);
    dvbs.standard |= s.tCodeRate.tDvbs.ucCnt > 0 ? kS : 0;
    fold(entry, s.tModulation.tDvbs2, UNCOUNTED_LIST("tCapability.tDvbs.tModulation.tDvbs2"),
         Frontend::fromMoxDvbsModulation, dvbs.modulationCap);
    dvbs.standard |= s.tModulation.tDvbs2.ucCnt > 0 ? kS2 : 0;
    fold(entry, s.tCodeRate.tDvbs2, UNCOUNTED_LIST("tCapability.tDvbs.tCodeRate.tDvbs2"),
         Frontend::fromMoxDvbsCodeRate, dvbs.innerfecCap);
    dvbs.standard |= s.tCodeRate.tDvbs2.ucCnt > 0 ? kS2 : 0;
    caps.dvbsCaps(dvbs);
}

void translateDvbc(int entry, const MOX_TunerFrontendCap_t& cap,
                   FrontendInfo::FrontendCapabilities& caps) {
    __android_log_print(ANDROID_LOG_INFO, TUNER_TAG, "[Tuner::%s]: FrontendType::DVBC", kFunction);
    const MOX_TunerDvbcCap_t& c = cap.tCapability.tDvbc;
    FrontendDvbcCapabilities dvbc{};
    // Both counts are logged before either list is folded.
    __android_log_print(ANDROID_LOG_DEBUG, TUNER_TAG, COUNT_FORMAT("tCapability.tDvbc.tQam"),
                        kFunction, __LINE__, entry, c.tQam.ucCnt);
    __android_log_print(ANDROID_LOG_DEBUG, TUNER_TAG, COUNT_FORMAT("tCapability.tDvbc.tAnnex"),
                        kFunction, __LINE__, entry, c.tAnnex.ucCnt);
    fold(entry, c.tQam, UNCOUNTED_LIST("tCapability.tDvbc.tQam"), Frontend::fromMoxDvbcMod,
         dvbc.modulationCap);
    fold(entry, c.tAnnex, UNCOUNTED_LIST("tCapability.tDvbc.tAnnex"), Frontend::fromMoxDvbcAnnex,
         dvbc.annexCap);
    caps.dvbcCaps(dvbc);
}

}  // namespace

FrontendType translateCapabilities(int entry, MOX_TunerFrontendCap_t& cap,
                                   FrontendInfo::FrontendCapabilities& caps) {
    const FrontendType type = Frontend::fromMoxFrontendType(cap.tTypeSupport.eValues[0]);
    switch (type) {
        case FrontendType::DVBT:
            translateDvbt(entry, cap, caps);
            return type;
        case FrontendType::DVBS:
            translateDvbs(entry, cap, caps);
            return type;
        case FrontendType::DVBC:
            translateDvbc(entry, cap, caps);
            return type;
        default:
            break;
    }
    TLOGE("type %#x not supported!! set FrontendDvbcCapabilities!", static_cast<uint32_t>(type));
    cap.tFreqRange = {1, 999};
    cap.tSymbolRateRange = {1, 1000};
    caps.dvbcCaps(FrontendDvbcCapabilities());
    return FrontendType::DVBC;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
