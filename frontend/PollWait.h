#pragma once

#include <cstdint>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {
namespace implementation {

// The pause between two polls of the driver. The device build sleeps (usleep); a test build links
// its own definition so that polling runs in virtual time.
void pollWait(uint32_t microseconds);

}  // namespace implementation
}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
