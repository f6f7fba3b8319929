#include "ServiceLog.h"

#include <vendor/mox/simulator/1.0/IWorld.h>

#include <cstdint>
#include <iostream>
#include <limits>

#include "ServiceCalls.h"

namespace tunerctl {

namespace {

using ::vendor::mox::simulator::V1_0::IWorld;

int gPriority = 0;
bool gStarted = false;
uint64_t gFirst = 0;  // the newest record before the command began
::android::sp<IWorld> gWorld;

}  // namespace

void setServiceLogPriority(int priority) {
    gPriority = priority;
}

void startServiceLog() {
    if (gPriority == 0 || gStarted) return;
    gStarted = true;
    {
        CallDeadline deadline("connecting to the world");
        gWorld = IWorld::getService("default");
    }
    if (gWorld == nullptr) return;
    // Asking for nothing yet (after the largest number) learns where the log stands, and keeps
    // records of this priority from now on.
    const bool answered = gWorld->log(std::numeric_limits<uint64_t>::max(), gPriority,
                                      [](uint64_t newest, const auto&) { gFirst = newest; })
                                  .isOk();
    if (!answered) gWorld = nullptr;
}

void showServiceLog() {
    if (gWorld == nullptr) return;
    CallDeadline deadline("reading the service's log");
    const bool answered = gWorld->log(gFirst, gPriority, [](uint64_t, const auto& lines) {
                                    for (const auto& line : lines)
                                        std::cerr << line.c_str() << "\n";
                                }).isOk();
    // A service that died meanwhile (a watch that went on with a new instance) has no log of
    // this command to give; the command said what happened to it.
    if (!answered) gWorld = nullptr;
    std::cerr << std::flush;
}

}  // namespace tunerctl
