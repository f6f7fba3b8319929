// The channel a user names on the command line, turned into the frontend settings and checked
// against what the frontend reports it can do.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Satellite.h"

namespace tunerctl {

// Empty: not given on the command line.
struct ChannelOptions {
    std::string dvbt;  // frequencies; exactly one of the three is given
    std::string dvbc;
    std::string dvbs;
    std::string bandwidth;   // DVB-T; default 8MHz
    std::string standard;    // DVB-T: T (default), T2, AUTO; DVB-S: S, S2 (default), S2X, AUTO
    std::string symbolRate;  // DVB-C (required), DVB-S (default 27.5M)
    std::string modulation;  // DVB-C; default 256QAM
    std::string annex;       // DVB-C; default A
    std::string plp;         // DVB-T2: the PLP; DVB-S2: the input stream (dvbv5's STREAM_ID)
    // DVB-S through a dish: with an LNB type, --dvbs is the downlink frequency.
    std::string lnb;                // libdvbv5's LNB type, e.g. UNIVERSAL
    std::string polarisation;       // V, H, R, L
    std::string satellite;          // 0..3: DiSEqC switch input A..D
    std::optional<uint32_t> lnbId;  // the LNB in front of the frontend
};

// Fills settings; on a malformed, missing or misplaced value returns false with a one-line
// message in error.
// With an LNB type, plan receives what the LNB is to be set to.
bool buildSettings(const ChannelOptions& options,
                   ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings,
                   std::string& error, std::optional<SatellitePlan>* plan = nullptr);

// Checks the settings against the frontend's information: its delivery system, frequency and
// symbol rate ranges and capabilities. False with a one-line message naming what is allowed.
bool checkAgainstFrontend(const ::android::hardware::tv::tuner::V1_0::FrontendInfo& info,
                          uint32_t frontendId,
                          const ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings,
                          std::string& error);

// The largest PLP or input stream id tunerctl passes (8 bits, as both standards number them).
inline constexpr uint32_t kMaxStreamId = 255;

// The PLP (or input stream) the options ask for, if any; a malformed one was refused by
// buildSettings already.
std::optional<uint32_t> askedStreamId(const ChannelOptions& options);

// One tune or scan of one standard. The service tunes one standard at a time and the driver locks
// only on the standard it is given, so AUTO means trying each standard the frontend has: for
// terrestrial T, then T2 where supported; for satellite S2, then S. Other settings are one attempt.
struct StandardAttempt {
    std::string standard;  // "T", "T2", "S", "S2", or the settings' own standard
    ::android::hardware::tv::tuner::V1_0::FrontendSettings settings;
};
std::vector<StandardAttempt> standardAttempts(
        const ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings,
        const ::android::hardware::tv::tuner::V1_0::FrontendInfo& info);

// The delivery system and frequency the settings tune, e.g. "DVB-T2 474.000 MHz".
std::string channelLabel(const ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings);

// Whether the frontend lists the status type.
bool lists(const ::android::hardware::tv::tuner::V1_0::FrontendInfo& info,
           ::android::hardware::tv::tuner::V1_0::FrontendStatusType type);

}  // namespace tunerctl
