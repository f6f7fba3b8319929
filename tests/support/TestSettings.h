// Frontend settings for one channel of each delivery system.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

using namespace ::android::hardware::tv::tuner::V1_0;

inline FrontendSettings dvbt(uint32_t hz, FrontendDvbtStandard standard = FrontendDvbtStandard::T,
                             FrontendDvbtBandwidth bw = FrontendDvbtBandwidth::BANDWIDTH_8MHZ) {
    FrontendDvbtSettings s;
    s.frequency = hz;
    s.standard = standard;
    s.bandwidth = bw;
    FrontendSettings settings;
    settings.dvbt(s);
    return settings;
}

inline FrontendSettings dvbc(uint32_t hz, uint32_t symbolRate,
                             FrontendDvbcModulation modulation = FrontendDvbcModulation::MOD_64QAM,
                             FrontendDvbcAnnex annex = FrontendDvbcAnnex::A) {
    FrontendDvbcSettings s;
    s.frequency = hz;
    s.symbolRate = symbolRate;
    s.modulation = modulation;
    s.annex = annex;
    FrontendSettings settings;
    settings.dvbc(s);
    return settings;
}

inline FrontendSettings dvbs(uint32_t hz, uint32_t symbolRate,
                             FrontendDvbsStandard standard = FrontendDvbsStandard::S2) {
    FrontendDvbsSettings s;
    s.frequency = hz;
    s.symbolRate = symbolRate;
    s.standard = standard;
    FrontendSettings settings;
    settings.dvbs(s);
    return settings;
}
