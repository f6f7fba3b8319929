// Driver codes -> package values. An index outside a table gives 0, the undefined value.
#include <cstddef>

#include "frontend/Frontend.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

template <typename T, size_t N>
T lookup(const T (&table)[N], uint32_t index) {
    return index < N ? table[index] : static_cast<T>(0);
}

using FT = FrontendType;
constexpr FT kFrontendTypes[] = {FT::DVBC, FT::UNDEFINED, FT::UNDEFINED, FT::DVBT,
                                 FT::DVBS, FT::DVBS,      FT::DVBT,      FT::ISDBT};

using DM = FrontendDvbcModulation;
constexpr DM kDvbcMods[] = {DM::MOD_16QAM, DM::MOD_32QAM, DM::MOD_64QAM, DM::MOD_128QAM,
                            DM::MOD_256QAM};

using DA = FrontendDvbcAnnex;
constexpr DA kDvbcAnnexes[] = {DA::B, DA::A, DA::C};

using BW = FrontendDvbtBandwidth;
constexpr BW kBandwidths[] = {BW::BANDWIDTH_6MHZ,
                              BW::BANDWIDTH_7MHZ,
                              BW::BANDWIDTH_8MHZ,
                              BW::BANDWIDTH_5MHZ,
                              BW::BANDWIDTH_10MHZ,
                              BW::BANDWIDTH_1_7MHZ,
                              BW::AUTO};

using H = FrontendDvbtHierarchy;
constexpr H kHierarchies[] = {H::HIERARCHY_NON_NATIVE, H::HIERARCHY_1_NATIVE, H::HIERARCHY_2_NATIVE,
                              H::HIERARCHY_4_NATIVE};

using TM = FrontendDvbtTransmissionMode;
constexpr TM kDvbtModes[] = {TM::MODE_8K, TM::MODE_4K, TM::MODE_2K, TM::AUTO};
constexpr TM kDvbt2Modes[] = {TM::MODE_32K, TM::MODE_16K, TM::MODE_8K, TM::MODE_4K,
                              TM::MODE_2K,  TM::MODE_1K,  TM::AUTO};

using C = FrontendDvbtConstellation;
constexpr C kDvbtConstellations[] = {C::CONSTELLATION_QPSK, C::CONSTELLATION_16QAM,
                                     C::CONSTELLATION_64QAM, C::AUTO};
constexpr C kDvbt2Constellations[] = {C::CONSTELLATION_QPSK, C::CONSTELLATION_16QAM,
                                      C::CONSTELLATION_64QAM, C::CONSTELLATION_256QAM, C::AUTO};

using CR = FrontendDvbtCoderate;
constexpr CR kDvbtCodeRates[] = {CR::CODERATE_7_8, CR::CODERATE_5_6, CR::CODERATE_3_4,
                                 CR::CODERATE_2_3, CR::CODERATE_1_2, CR::AUTO};
constexpr CR kDvbt2CodeRates[] = {CR::CODERATE_1_2, CR::CODERATE_3_5, CR::CODERATE_2_3,
                                  CR::CODERATE_3_4, CR::CODERATE_4_5, CR::CODERATE_5_6,
                                  CR::UNDEFINED,    CR::UNDEFINED,    CR::AUTO};

using GI = FrontendDvbtGuardInterval;
constexpr GI kDvbtGuards[] = {GI::INTERVAL_1_32, GI::INTERVAL_1_16, GI::INTERVAL_1_8,
                              GI::INTERVAL_1_4, GI::AUTO};
constexpr GI kDvbt2Guards[] = {
        GI::INTERVAL_1_32,  GI::INTERVAL_1_16,   GI::INTERVAL_1_8,    GI::INTERVAL_1_4,
        GI::INTERVAL_1_128, GI::INTERVAL_19_128, GI::INTERVAL_19_256, GI::AUTO};

using SM = FrontendDvbsModulation;
constexpr SM kDvbsModulations[] = {SM::AUTO,       SM::MOD_QPSK,  SM::MOD_8PSK,   SM::MOD_16APSK,
                                   SM::MOD_32APSK, SM::MOD_16QAM, SM::MOD_16PSK,  SM::MOD_32PSK,
                                   SM::MOD_ACM,    SM::MOD_8APSK, SM::MOD_64APSK, SM::MOD_128APSK,
                                   SM::MOD_256APSK};

// The driver numbers its satellite code rates in the order of the rates' values.
using F = FrontendInnerFec;
constexpr F kDvbsCodeRates[] = {F::AUTO,    F::FEC_1_4, F::FEC_1_3, F::FEC_2_5, F::FEC_1_2,
                                F::FEC_3_5, F::FEC_2_3, F::FEC_3_4, F::FEC_4_5, F::FEC_5_6,
                                F::FEC_6_7, F::FEC_7_8, F::FEC_8_9, F::FEC_9_10};

constexpr uint32_t kLastStatusBit = 21;

}  // namespace

FrontendType Frontend::fromMoxFrontendType(uint32_t code) {
    return lookup(kFrontendTypes, code - 1);
}
FrontendDvbcModulation Frontend::fromMoxDvbcMod(uint32_t code) {
    return lookup(kDvbcMods, code - 1);
}
FrontendDvbcAnnex Frontend::fromMoxDvbcAnnex(uint32_t code) {
    return lookup(kDvbcAnnexes, code - 1);
}
FrontendDvbtBandwidth Frontend::fromMoxBandwidth(uint32_t code) {
    return lookup(kBandwidths, code - 1);
}
FrontendDvbtHierarchy Frontend::fromMoxDvbtHierarchy(MOX_DVBT_Hierarchy code) {
    return lookup(kHierarchies, code);
}
FrontendDvbtTransmissionMode Frontend::fromMoxDvbtMode(MOX_DVBT_Mode code) {
    return lookup(kDvbtModes, code);
}
FrontendDvbtTransmissionMode Frontend::fromMoxDvbt2Mode(MOX_DVBT2_Mode code) {
    return lookup(kDvbt2Modes, code);
}
FrontendDvbtConstellation Frontend::fromMoxDvbtConstellation(MOX_DVBT_Constellation code) {
    return lookup(kDvbtConstellations, code);
}
FrontendDvbtConstellation Frontend::fromMoxDvbt2Constellation(MOX_DVBT2_PlpConstellation code) {
    return lookup(kDvbt2Constellations, code);
}
FrontendDvbtCoderate Frontend::fromMoxDvbtCodeRate(MOX_DVBT_CodeRate code) {
    return lookup(kDvbtCodeRates, code);
}
FrontendDvbtCoderate Frontend::fromMoxDvbt2CodeRate(MOX_DVBT2_PlpCodeRate code) {
    return lookup(kDvbt2CodeRates, code);
}
FrontendDvbtGuardInterval Frontend::fromMoxDvbtGuardInterval(MOX_DVBT_Guard code) {
    return lookup(kDvbtGuards, code);
}
FrontendDvbtGuardInterval Frontend::fromMoxDvbt2GuardInterval(MOX_DVBT2_Guard code) {
    return lookup(kDvbt2Guards, code);
}
FrontendDvbsModulation Frontend::fromMoxDvbsModulation(MOX_DVBS_S2_Modulation code) {
    return lookup(kDvbsModulations, code);
}
FrontendInnerFec Frontend::fromMoxDvbsCodeRate(MOX_DVBS_S2_CodeRate code) {
    return lookup(kDvbsCodeRates, code);
}

// Only a single bit 1 << n with n in 1..21 names a status type; everything else is DEMOD_LOCK (0).
FrontendStatusType Frontend::fromMoxStatusType(MOX_TunerStatusCapability_e capability) {
    for (uint32_t n = 1; n <= kLastStatusBit; ++n) {
        if (capability == (1u << n)) return static_cast<FrontendStatusType>(n);
    }
    return FrontendStatusType::DEMOD_LOCK;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
