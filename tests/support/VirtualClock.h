// Virtual time for tests: the frontend's poll wait advances this clock instead of sleeping, and
// the simulated driver can read it, so a 3 s tune or a long sweep takes no real time.
#pragma once

#include <cstdint>
#include <functional>

namespace vt {

uint64_t nowUs();
// Number of poll waits since the last reset, and the microseconds they asked for in all.
int waitCount();
uint64_t waitedUs();
void reset();
// Lets time pass without a poll wait, as between two client calls.
void advance(uint64_t us);
// Runs on the waiting thread after each wait, with the new time.
void setWaitHook(std::function<void(uint64_t nowUs)> hook);

}  // namespace vt
