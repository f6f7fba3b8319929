// Frontend settings for one channel of each delivery system.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

namespace hal = ::android::hardware::tv::tuner::V1_0;

inline hal::FrontendSettings dvbt(
        uint32_t hz, hal::FrontendDvbtStandard standard = hal::FrontendDvbtStandard::T,
        hal::FrontendDvbtBandwidth bw = hal::FrontendDvbtBandwidth::BANDWIDTH_8MHZ) {
    hal::FrontendDvbtSettings s{};
    s.frequency = hz;
    s.standard = standard;
    s.bandwidth = bw;
    hal::FrontendSettings settings;
    settings.dvbt(s);
    return settings;
}

inline hal::FrontendSettings dvbc(
        uint32_t hz, uint32_t symbolRate,
        hal::FrontendDvbcModulation modulation = hal::FrontendDvbcModulation::MOD_64QAM,
        hal::FrontendDvbcAnnex annex = hal::FrontendDvbcAnnex::A) {
    hal::FrontendDvbcSettings s{};
    s.frequency = hz;
    s.symbolRate = symbolRate;
    s.modulation = modulation;
    s.annex = annex;
    hal::FrontendSettings settings;
    settings.dvbc(s);
    return settings;
}

inline hal::FrontendSettings dvbs(uint32_t hz, uint32_t symbolRate,
                                  hal::FrontendDvbsStandard standard = hal::FrontendDvbsStandard::S2) {
    hal::FrontendDvbsSettings s{};
    s.frequency = hz;
    s.symbolRate = symbolRate;
    s.standard = standard;
    hal::FrontendSettings settings;
    settings.dvbs(s);
    return settings;
}
