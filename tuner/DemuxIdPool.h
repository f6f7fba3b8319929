#pragma once

#include <utils/Mutex.h>

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// Demux ids 1..40; the lowest free id always wins.
class DemuxIdPool {
  public:
    DemuxIdPool();
    ~DemuxIdPool();
    DemuxIdPool(const DemuxIdPool&) = delete;
    DemuxIdPool& operator=(const DemuxIdPool&) = delete;

    // The lowest free id, now taken; -1 when every id is taken.
    int32_t allocate();
    // Frees an id in 1..40; any other value is ignored.
    void release(int32_t id);

  private:
    // Taken alone: no other lock is ever taken while it is held.
    ::android::Mutex mIdLock;
    uint8_t* mUsed PT_GUARDED_BY(mIdLock);  // mCapacity + 1 flags, index 0 unused
    const int32_t mCapacity = 40;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
