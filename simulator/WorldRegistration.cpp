// Linked into the host's service binaries: the simulated world is registered beside the tuner as
// the process starts, so clients reach it the way they reach the tuner, and the process's log is
// kept for them (tunerctl -v).
#include "simulator/ServiceLogTap.h"
#include "simulator/World.h"

namespace {
const bool kWorldRegistered = [] {
    mox::sim::installServiceLogTap();
    mox::sim::registerWorld();
    return true;
}();
}  // namespace
