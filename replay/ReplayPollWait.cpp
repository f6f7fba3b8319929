// The poll wait of a replay: no real time passes; a waiting service thread lets a due client
// call go first.
#include "frontend/PollWait.h"
#include "replay/Replay.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    if (auto* replay = mox::trace::activeReplay()) replay->pollWait(microseconds, nullptr);
}

void pollWaitInterruptible(uint32_t microseconds, PollInterrupt& interrupt) {
    if (auto* replay = mox::trace::activeReplay()) replay->pollWait(microseconds, &interrupt);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
