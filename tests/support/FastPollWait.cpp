// The clock of the service binary the multi-process tests start: the host's poll wait at speed
// fifty, whatever the environment says. Each pause is fifty times shorter in real time and the
// simulated driver's clock runs on by the whole pause, so a tune or scan across processes sees
// the device's timing in milliseconds.
#include "host/clock/ClockSpeed.h"

namespace {

const bool kClockSet = [] {
    mox::clock::setSpeed(50);
    return true;
}();

}  // namespace
