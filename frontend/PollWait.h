#pragma once

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// The pause between two polls of the driver. The device build sleeps (usleep); a test build links
// its own definition so that polling runs in virtual time.
void pollWait(uint32_t microseconds);

}  // namespace android::hardware::tv::tuner::V1_0::implementation
