#include "frontend/ScanControl.h"

#include <chrono>
#include <utility>

#include "frontend/PollWait.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

thread_local int tClientCodeDepth = 0;

}  // namespace

bool ScanControl::launchLocked(Entry entry, void* args, uint64_t generation) {
    pthread_t thread;
    // The run before ends now, and the new one counts as running before its thread exists; the
    // new thread waits for its turn behind the one before.
    mRunning = generation;
    mChanged.broadcast();
    if (pthread_create(&thread, nullptr, entry, args) != 0) {
        mRunning = 0;
        return false;
    }
    // The name is longer than the 15 characters a thread name holds: the request fails and the
    // thread keeps the name it inherited. Named while still joinable, so the handle is valid.
    pthread_setname_np(thread, "frontend_scan_thread");
    pthread_detach(thread);
    mStarted = generation;
    return true;
}

void ScanControl::stop(std::function<void()> release) {
    Mutex::Autolock guard(mLock);
    mRunning = 0;
    mChanged.broadcast();
    const uint64_t target = mStarted;
    if (!runningClientCode()) {
        while (mFinished < target) mChanged.wait(mLock);
    }
    if (mFinished >= target) {
        release();
    } else {
        mOwedReleases.emplace_back(target, std::move(release));
    }
}

void ScanControl::endRun(uint64_t generation) {
    uint64_t expected = generation;
    mRunning.compare_exchange_strong(expected, 0);
}

void ScanControl::ifRunning(uint64_t generation, const std::function<void()>& action) {
    Mutex::Autolock guard(mLock);
    if (isRunning(generation)) action();
}

void ScanControl::waitBeforePoll(uint64_t generation, uint32_t microseconds) {
    struct RunInterrupt : PollInterrupt {
        RunInterrupt(ScanControl& c, uint64_t g) : control(c), generation(g) {}
        bool waitFor(uint32_t us) override { return control.waitWhileRunning(generation, us); }
        ScanControl& control;
        const uint64_t generation;
    } interrupt(*this, generation);
    if (pollWaitInterruptible != nullptr) {
        pollWaitInterruptible(microseconds, interrupt);
    } else {
        pollWait(microseconds);
    }
}

bool ScanControl::waitWhileRunning(uint64_t generation, uint32_t microseconds) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(microseconds);
    Mutex::Autolock guard(mLock);
    while (isRunning(generation)) {
        const auto left = deadline - Clock::now();
        if (left <= Clock::duration::zero()) return true;
        mChanged.waitRelative(mLock,
                              std::chrono::duration_cast<std::chrono::nanoseconds>(left).count());
    }
    return false;
}

ScanControl::Turn::Turn(ScanControl& control, uint64_t generation)
    : mControl(control), mGeneration(generation) {
    Mutex::Autolock guard(mControl.mLock);
    while (mControl.mFinished + 1 < mGeneration) mControl.mChanged.wait(mControl.mLock);
}

ScanControl::Turn::~Turn() {
    Mutex::Autolock guard(mControl.mLock);
    auto& owed = mControl.mOwedReleases;
    for (auto it = owed.begin(); it != owed.end();) {
        if (it->first > mGeneration) {
            ++it;
            continue;
        }
        it->second();
        it = owed.erase(it);
    }
    mControl.mFinished = mGeneration;
    mControl.mChanged.broadcast();
}

ScanControl::ClientCodeScope::ClientCodeScope() {
    ++tClientCodeDepth;
}

ScanControl::ClientCodeScope::~ClientCodeScope() {
    --tClientCodeDepth;
}

bool ScanControl::runningClientCode() {
    return tClientCodeDepth > 0;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
