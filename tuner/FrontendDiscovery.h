#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// Where discovery hands what it finds, in discovery order, as it finds it.
class DiscoverySink {
  public:
    // Frontend id (dense from 0), its delivery system and its information, which the sink owns.
    virtual void addFrontend(uint32_t id, FrontendType type, FrontendInfo&& info) = 0;
    // Called after addFrontend, with the frontend as the sink made it.
    virtual void frontendAdded(uint32_t id, size_t statusCaps) = 0;
    virtual void addLnb(int lnbIndex) = 0;

  protected:
    ~DiscoverySink() = default;
};

// Reads the driver's capability record and reports every channel of every entry as a frontend,
// and the LNBs of satellite entries. When the record cannot be read: one cable frontend with
// empty information.
void discoverFrontends(DiscoverySink& sink);

}  // namespace android::hardware::tv::tuner::V1_0::implementation
