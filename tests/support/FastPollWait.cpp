// The poll wait of the service binary the multi-process tests start: each pause is fifty times
// shorter in real time, and the simulated driver's clock runs on by the whole pause, so a tune
// or scan across processes sees the device's timing in milliseconds.
#include <unistd.h>

#include <atomic>
#include <chrono>

#include "frontend/PollWait.h"
#include "recorder/TraceRecorder.h"
#include "simulator/SimulatedDriver.h"

namespace {

std::atomic<uint64_t> gSkippedUs{0};

uint64_t simulatedNowUs() {
    const auto real = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
                   std::chrono::duration_cast<std::chrono::microseconds>(real).count()) +
           gSkippedUs.load();
}

const bool kClockSet = [] {
    mox::sim::simulator().setClock(simulatedNowUs);
    // A recorded session is stamped with the same clock, so its times are the box's.
    mox::trace::setTraceClock(simulatedNowUs);
    return true;
}();

}  // namespace

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    usleep(microseconds / 50);
    gSkippedUs += microseconds - microseconds / 50;
}

void pollWaitInterruptible(uint32_t microseconds, PollInterrupt& interrupt) {
    interrupt.waitFor(microseconds / 50);
    gSkippedUs += microseconds - microseconds / 50;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
