#pragma once

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// Something a poll wait can be cut short by: waitFor returns once the time has passed or, earlier,
// once the reason to wait is gone (a scan that was stopped).
class PollInterrupt {
  public:
    virtual void waitFor(uint32_t microseconds) = 0;

  protected:
    ~PollInterrupt() = default;
};

// The pause between two polls of the driver. The device build sleeps (usleep), or waits on the
// interrupt; a test build links its own definitions so that polling runs in virtual time.
void pollWait(uint32_t microseconds);
void pollWait(uint32_t microseconds, PollInterrupt& interrupt);

}  // namespace android::hardware::tv::tuner::V1_0::implementation
