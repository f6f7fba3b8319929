#include <fmq/EventFlag.h>
#include <fmq/QueueMapping.h>
#include <linux/futex.h>
#include <log/log.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace android {
namespace hardware {
namespace {

constexpr int64_t kNanosPerSecond = 1000000000;

int64_t monotonicNanos() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * kNanosPerSecond + now.tv_nsec;
}

long futex(std::atomic<uint32_t>* word, int op, uint32_t value, const timespec* timeout,
           uint32_t bitmask) {
    return syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), op, value, timeout, nullptr,
                   bitmask);
}

}  // namespace

status_t EventFlag::createEventFlag(int fd, off_t offset, EventFlag** ef) {
    if (ef == nullptr) return BAD_VALUE;
    *ef = nullptr;
    if (offset < 0) return BAD_VALUE;
    void* word = details::mapRegion(fd, uint64_t(offset), sizeof(std::atomic<uint32_t>));
    if (word == nullptr) return BAD_VALUE;
    *ef = new (std::nothrow) EventFlag(static_cast<std::atomic<uint32_t>*>(word), true);
    if (*ef != nullptr) return NO_ERROR;
    details::unmapRegion(word, sizeof(std::atomic<uint32_t>));
    return NO_MEMORY;
}

status_t EventFlag::createEventFlag(std::atomic<uint32_t>* fwAddr, EventFlag** ef) {
    if (ef == nullptr) return BAD_VALUE;
    *ef = nullptr;
    if (fwAddr == nullptr) return BAD_VALUE;
    *ef = new (std::nothrow) EventFlag(fwAddr, false);
    return *ef != nullptr ? NO_ERROR : NO_MEMORY;
}

status_t EventFlag::deleteEventFlag(EventFlag** ef) {
    if (ef == nullptr || *ef == nullptr) return BAD_VALUE;
    delete *ef;
    *ef = nullptr;
    return NO_ERROR;
}

EventFlag::~EventFlag() {
    if (mEfWordNeedsUnmapping) details::unmapRegion(mEfWordPtr, sizeof(std::atomic<uint32_t>));
}

status_t EventFlag::wake(uint32_t bitmask) {
    if (bitmask == 0) return NO_ERROR;
    const uint32_t old = mEfWordPtr->fetch_or(bitmask);
    // A bit that was set already has a wake pending: nobody waits for it now.
    if ((~old & bitmask) == 0) return NO_ERROR;
    if (futex(mEfWordPtr, FUTEX_WAKE_BITSET, INT_MAX, nullptr, bitmask) == -1) {
        const int error = errno;
        ALOGE("event flag wake failed: %s", strerror(error));
        return -error;
    }
    return NO_ERROR;
}

status_t EventFlag::waitOnce(uint32_t bitmask, uint32_t* efState, int64_t timeoutNanoSeconds) {
    const uint32_t old = mEfWordPtr->fetch_and(~bitmask);
    if ((old & bitmask) != 0) {
        *efState = old & bitmask;
        return NO_ERROR;
    }
    // Sleeps only while the word still holds what it held: a wake in between makes it EAGAIN.
    timespec deadline{};
    const timespec* until = nullptr;
    if (timeoutNanoSeconds > 0) {
        const int64_t at = monotonicNanos() + timeoutNanoSeconds;
        deadline.tv_sec = time_t(at / kNanosPerSecond);
        deadline.tv_nsec = long(at % kNanosPerSecond);
        until = &deadline;
    }
    if (futex(mEfWordPtr, FUTEX_WAIT_BITSET, old & ~bitmask, until, bitmask) == -1) {
        *efState = 0;
        return -errno;
    }
    *efState = mEfWordPtr->fetch_and(~bitmask) & bitmask;
    return *efState != 0 ? NO_ERROR : -EINTR;  // woken for a bit another waiter took
}

status_t EventFlag::wait(uint32_t bitmask, uint32_t* efState, int64_t timeoutNanoSeconds,
                         bool retry) {
    if (bitmask == 0 || efState == nullptr) return BAD_VALUE;
    const bool bounded = timeoutNanoSeconds != 0;
    const int64_t deadline = bounded ? monotonicNanos() + timeoutNanoSeconds : 0;
    for (;;) {
        int64_t left = 0;
        if (bounded) {
            left = deadline - monotonicNanos();
            if (left <= 0) {
                *efState = 0;
                return TIMED_OUT;
            }
        }
        const status_t status = waitOnce(bitmask, efState, left);
        if (status == -ETIMEDOUT) return TIMED_OUT;
        if (!retry || (status != -EAGAIN && status != -EINTR)) return status;
    }
}

}  // namespace hardware
}  // namespace android
