// The poll wait of a host service process, at the speed set by mox::clock::setSpeed.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "frontend/PollWait.h"
#include "host/clock/ClockSpeed.h"
#include "recorder/TraceRecorder.h"
#include "simulator/SimulatedDriver.h"

namespace mox::clock {
namespace {

std::atomic<uint32_t> gSpeed{1};
// Simulated time that passed without real time passing: the part of each pause not slept.
std::atomic<uint64_t> gSkippedUs{0};

uint64_t simulatedNowUs() {
    const auto real = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
                   std::chrono::duration_cast<std::chrono::microseconds>(real).count()) +
           gSkippedUs.load();
}

// The part of a pause slept in real time; the rest only the simulated clock sees.
uint32_t slept(uint32_t microseconds) {
    const uint32_t real = microseconds / gSpeed.load();
    gSkippedUs += microseconds - real;
    return real;
}

}  // namespace

std::optional<uint32_t> parseSpeed(const char* text) {
    if (text == nullptr || *text < '1' || *text > '9') return std::nullopt;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*end != '\0' || value > kMaxSpeed) return std::nullopt;
    return static_cast<uint32_t>(value);
}

void setSpeed(uint32_t speed) {
    const uint32_t was = gSpeed.exchange(speed);
    if (speed == 1 && was == 1) return;  // the real clocks stay
    // Back to 1 after a faster speed, the simulated clock goes on from where it is: time on
    // the air never runs backwards.
    sim::simulator().setClock(simulatedNowUs, speed);
    // A recorded session is stamped with the same clock, so its times are the box's.
    trace::setTraceClock(simulatedNowUs);
}

uint32_t speed() {
    return gSpeed.load();
}

}  // namespace mox::clock

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    usleep(mox::clock::slept(microseconds));
}

void pollWaitInterruptible(uint32_t microseconds, PollInterrupt& interrupt) {
    interrupt.waitFor(mox::clock::slept(microseconds));
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
