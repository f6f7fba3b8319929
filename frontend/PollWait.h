#pragma once

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// Something a poll wait can be cut short by: waitFor returns once the time has passed (true) or,
// earlier, once the reason to wait is gone (false: a scan that was stopped).
class PollInterrupt {
  public:
    virtual bool waitFor(uint32_t microseconds) = 0;

  protected:
    ~PollInterrupt() = default;
};

// The pause between two polls of the driver. The device build sleeps (usleep); a test build links
// its own definition of pollWait so that polling runs in virtual time.
void pollWait(uint32_t microseconds);

// The same pause for a scan, which a stop cuts short. The device build defines it; where a build
// does not (a test build that only replaces pollWait), the reference is null and a scan falls
// back to pollWait.
__attribute__((weak)) void pollWaitInterruptible(uint32_t microseconds, PollInterrupt& interrupt);

}  // namespace android::hardware::tv::tuner::V1_0::implementation
