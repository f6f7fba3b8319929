// Host stand-in for libhidlbase's HidlTransportSupport.h. configureRpcThreadpool() sizes the pool
// that runs calls from other processes and oneway calls (see hidl/transport/Transport.h), and
// joinRpcThreadpool() parks the calling thread until the process is asked to stop.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstddef>

namespace android {
namespace hardware {

void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);

// Blocks until SIGINT or SIGTERM arrives (or requestRpcThreadpoolExit() is called), then returns.
void joinRpcThreadpool();

// Host only: makes joinRpcThreadpool() return, as a signal would.
void requestRpcThreadpoolExit();

}  // namespace hardware
}  // namespace android
