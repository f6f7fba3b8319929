#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include "driver/MoxTuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

// Turns one capability entry into the frontend type (DVBC, DVBS or DVBT) and its capabilities.
// An entry of any other delivery system becomes a DVB-C frontend with empty capabilities, and
// its ranges are replaced with fixed ones.
FrontendType translateCapabilities(int entry, MOX_TunerFrontendCap_t& cap,
                                   FrontendInfo::FrontendCapabilities& caps);

}  // namespace android::hardware::tv::tuner::V1_0::implementation
