// Linked into the host's service binary: its clock speed comes from the environment
// (MOX_CLOCK_SPEED, absent: real time). A value that is no speed ends the process at start with
// one line and exit code 2, as a bad installation file does.
#include <cstdio>
#include <cstdlib>

#include "host/clock/ClockSpeed.h"

namespace {

const bool gSpeedSet = [] {
    const char* text = std::getenv(mox::clock::kSpeedVariable);
    if (text == nullptr || *text == '\0') return false;
    const std::optional<uint32_t> speed = mox::clock::parseSpeed(text);
    if (!speed) {
        std::fprintf(stderr, "%s=%s: the clock speed is a whole number from 1 to %u\n",
                     mox::clock::kSpeedVariable, text, mox::clock::kMaxSpeed);
        std::exit(2);
    }
    mox::clock::setSpeed(*speed);
    return true;
}();

}  // namespace
