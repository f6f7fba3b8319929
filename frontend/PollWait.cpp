#include "frontend/PollWait.h"

#include <unistd.h>

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    usleep(microseconds);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
