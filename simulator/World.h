// The simulated world as a service: IWorld over this process's simulated driver.
#pragma once

#include <vendor/mox/simulator/1.0/IWorld.h>

namespace mox::sim {

class World : public ::vendor::mox::simulator::V1_0::IWorld {
  public:
    ::android::hardware::Return<void> describe(describe_cb _hidl_cb) override;
    ::android::hardware::Return<void> change(const ::android::hardware::hidl_string& change,
                                             change_cb _hidl_cb) override;
    ::android::hardware::Return<void> log(uint64_t after, int32_t priority,
                                          log_cb _hidl_cb) override;
};

// Registers the world as "default" beside the process's tuner; logs why when it cannot.
void registerWorld();

}  // namespace mox::sim

// The world of this process, for a client that runs its own simulated driver (tunerctl
// --in-process), as HIDL_FETCH_ITuner is the tuner's.
extern "C" ::vendor::mox::simulator::V1_0::IWorld* HIDL_FETCH_IWorld(const char* name);
