// The untyped half of <fmq/MessageQueue.h> (no part of libfmq's API): the shared memory of a new
// queue, the checks and mappings of a queue's grantors, and where a run of messages lies in the
// ring.
#pragma once

#include <cutils/native_handle.h>
#include <hidl/MQDescriptor.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace android {
namespace hardware {
namespace details {

// The largest ring a queue may have, made here or mapped from a peer's descriptor: a recording
// asks 16 MiB, and nothing a peer describes makes this process map more than this.
constexpr size_t kMaxQueueBytes = size_t(64) << 20;
// Descriptors a queue's handle may hold: the memory of the positions and, possibly, of the ring.
constexpr int kMaxQueueFds = 2;

// The shared memory of a new queue laid out as MQDescriptor(bufferSize, ...) lays it out: a
// memfd, sealed so that nobody can shrink or grow it under a mapping, in a handle of its own.
// Null when the size is out of bounds or the memory cannot be had.
native_handle_t* createQueueMemory(size_t ringBytes, bool eventFlagWord);

// Maps `length` bytes at `offset` in the memory of `fd`; null when that fails.
void* mapRegion(int fd, uint64_t offset, size_t length);
// Unmaps what mapRegion mapped (the address it returned and the same length).
void unmapRegion(void* address, size_t length);

// The mapped grantors of one queue, checked before anything is mapped: the handle's descriptors
// are sealed memfds large enough for their grantors; the positions, the ring and the event-flag
// word lie within them, aligned, without overlapping; the ring is 1 to kMaxQueueBytes long and a
// whole number of messages. Anything else maps nothing.
class QueueMapping {
  public:
    QueueMapping() = default;
    ~QueueMapping();
    QueueMapping(const QueueMapping&) = delete;
    QueueMapping& operator=(const QueueMapping&) = delete;

    bool map(const hidl_vec<GrantorDescriptor>& grantors, const native_handle_t* handle,
             size_t quantum);
    bool isMapped() const { return mRing != nullptr; }

    std::atomic<uint64_t>* readPosition() const { return mRead; }
    std::atomic<uint64_t>* writePosition() const { return mWrite; }
    uint8_t* ring() const { return mRing; }
    size_t ringBytes() const { return mRingBytes; }
    std::atomic<uint32_t>* eventFlagWord() const { return mEventFlagWord; }

  private:
    void unmapAll();

    std::atomic<uint64_t>* mRead = nullptr;
    std::atomic<uint64_t>* mWrite = nullptr;
    uint8_t* mRing = nullptr;
    size_t mRingBytes = 0;
    std::atomic<uint32_t>* mEventFlagWord = nullptr;
};

// Where `count` messages of `quantum` bytes from ring position `position` lie in a ring of
// `ringBytes`: positions grow for ever and the ring index is position % ringBytes; what does not
// fit before the ring's end continues at its start, and no message is split.
struct RingSpan {
    size_t firstOffset;
    size_t firstCount;
    size_t secondCount;
};
RingSpan ringSpan(uint64_t position, size_t ringBytes, size_t quantum, size_t count);

// Bytes between the positions that a reader may take, or -1 when the positions are not those of
// a synchronized queue of this ring (the writer ahead by more than the ring, or behind).
int64_t readableBytes(uint64_t readPosition, uint64_t writePosition, size_t ringBytes);

}  // namespace details
}  // namespace hardware
}  // namespace android
