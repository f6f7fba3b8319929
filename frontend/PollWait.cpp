#include "frontend/PollWait.h"

#include <unistd.h>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {
namespace implementation {

void pollWait(uint32_t microseconds) {
    usleep(microseconds);
}

}  // namespace implementation
}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
