// Host stand-in for libfmq's EventFlag: a 32-bit word in memory that both ends of a queue map,
// and a futex on it. wake() sets bits and wakes the waiters on any of them; wait() returns the
// awaited bits that are set and clears them, sleeping until one is set.
#pragma once

#include <sys/types.h>
#include <time.h>
#include <utils/Errors.h>

#include <atomic>
#include <cstdint>

namespace android {
namespace hardware {

struct EventFlag {
    // An event flag over the word at `offset` in the memory of `fd` (mapped here, unmapped when
    // deleted; the caller keeps the fd). NO_ERROR, or BAD_VALUE when the word cannot be mapped.
    static status_t createEventFlag(int fd, off_t offset, EventFlag** ef);
    // An event flag over a word the caller keeps mapped. BAD_VALUE for a null word.
    static status_t createEventFlag(std::atomic<uint32_t>* fwAddr, EventFlag** ef);
    static status_t deleteEventFlag(EventFlag** ef);

    // Sets the bits and wakes the threads that wait on any of them. NO_ERROR for an empty mask.
    status_t wake(uint32_t bitmask);

    // Waits until a bit of `bitmask` is set (at once if one is), clears the awaited bits that are
    // set and returns them in efState. A timeout of 0 waits for ever; TIMED_OUT once the time is
    // over. With `retry`, a spurious wake-up or a word that changed under the wait waits again (for
    // what is left of the time); without, it returns -EAGAIN or -EINTR.
    status_t wait(uint32_t bitmask, uint32_t* efState, int64_t timeoutNanoSeconds = 0,
                  bool retry = true);

  private:
    explicit EventFlag(std::atomic<uint32_t>* word, bool mapped)
        : mEfWordPtr(word), mEfWordNeedsUnmapping(mapped) {}
    ~EventFlag();
    EventFlag(const EventFlag&) = delete;
    EventFlag& operator=(const EventFlag&) = delete;

    status_t waitOnce(uint32_t bitmask, uint32_t* efState, int64_t timeoutNanoSeconds);

    std::atomic<uint32_t>* mEfWordPtr;
    bool mEfWordNeedsUnmapping;
};

}  // namespace hardware
}  // namespace android
