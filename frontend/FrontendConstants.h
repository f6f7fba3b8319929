#pragma once

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// The driver works in whole MHz; the framework in Hz.
inline constexpr uint32_t kHzPerMHz = 1000000;
// The pause before each lock poll, as the driver expects.
inline constexpr uint32_t kPollIntervalUs = 200000;

}  // namespace android::hardware::tv::tuner::V1_0::implementation
