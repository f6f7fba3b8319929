// The channel a user names on the command line, turned into the frontend settings.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <string>

namespace tunerctl {

struct ChannelOptions {
    std::string dvbt;  // frequencies; exactly one of the three is given
    std::string dvbc;
    std::string dvbs;
    std::string bandwidth = "8MHz";
    std::string standard;  // T/T2/AUTO for DVB-T (default T), S/S2/AUTO for DVB-S (default S2)
    std::string symbolRate;
    std::string modulation = "256QAM";
    std::string annex = "A";
};

// Fills settings; on a malformed or missing value returns false with a message in error.
bool buildSettings(const ChannelOptions& options,
                   ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings,
                   std::string& error);

}  // namespace tunerctl
