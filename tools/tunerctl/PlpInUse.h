// The PLP a DVB-T2 frontend uses once locked. The driver picks the PLP itself, so it may not be
// the one asked; both tune and scan say which it is.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontend.h>

#include <cstdint>
#include <optional>

namespace tunerctl {

// Empty unless the settings tune DVB-T2 and the frontend reports the PLP it uses.
std::optional<uint32_t> plpInUse(
        const ::android::sp<::android::hardware::tv::tuner::V1_0::IFrontend>& frontend,
        const ::android::hardware::tv::tuner::V1_0::FrontendSettings& settings,
        const ::android::hardware::tv::tuner::V1_0::FrontendInfo& info);

}  // namespace tunerctl
