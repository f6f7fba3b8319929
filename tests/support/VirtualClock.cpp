#include "VirtualClock.h"

#include <utils/Mutex.h>

#include <thread>

#include "frontend/PollWait.h"

namespace vt {
namespace {

struct State {
    ::android::Mutex lock;
    uint64_t nowUs GUARDED_BY(lock) = 0;
    int waits GUARDED_BY(lock) = 0;
    uint64_t waitedUs GUARDED_BY(lock) = 0;
    std::function<void(uint64_t)> hook GUARDED_BY(lock);
};

State& state() {
    static State* instance = new State();  // outlives scan threads that end after main
    return *instance;
}

}  // namespace

uint64_t nowUs() {
    ::android::Mutex::Autolock guard(state().lock);
    return state().nowUs;
}

int waitCount() {
    ::android::Mutex::Autolock guard(state().lock);
    return state().waits;
}

uint64_t waitedUs() {
    ::android::Mutex::Autolock guard(state().lock);
    return state().waitedUs;
}

void reset() {
    ::android::Mutex::Autolock guard(state().lock);
    state().nowUs = 0;
    state().waits = 0;
    state().waitedUs = 0;
    state().hook = nullptr;
}

void advance(uint64_t us) {
    ::android::Mutex::Autolock guard(state().lock);
    state().nowUs += us;
}

void setWaitHook(std::function<void(uint64_t)> hook) {
    ::android::Mutex::Autolock guard(state().lock);
    state().hook = std::move(hook);
}

}  // namespace vt

namespace android::hardware::tv::tuner::V1_0::implementation {

void pollWait(uint32_t microseconds) {
    std::function<void(uint64_t)> hook;
    uint64_t now;
    {
        ::android::Mutex::Autolock guard(vt::state().lock);
        vt::state().nowUs += microseconds;
        vt::state().waits += 1;
        vt::state().waitedUs += microseconds;
        now = vt::state().nowUs;
        hook = vt::state().hook;
    }
    std::this_thread::yield();  // lets other threads interleave, as a real sleep would
    if (hook) hook(now);
}

// Only pollWait is replaced: a scan's wait falls back to it, in virtual time, where a wait never
// blocks and there is nothing for a stop to cut short.

}  // namespace android::hardware::tv::tuner::V1_0::implementation
