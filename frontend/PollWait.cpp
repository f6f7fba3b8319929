#include "frontend/PollWait.h"

#include <unistd.h>

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    usleep(microseconds);
}

void pollWaitInterruptible(uint32_t microseconds, PollInterrupt& interrupt) {
    interrupt.waitFor(microseconds);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
