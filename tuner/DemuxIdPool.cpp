#include "tuner/DemuxIdPool.h"

#include <cstdlib>
#include <new>

namespace android::hardware::tv::tuner::V1_0::implementation {

DemuxIdPool::DemuxIdPool() : mUsed(nullptr) {
    // One flag more than the capacity, so that the highest id has one.
    mUsed = static_cast<uint8_t*>(calloc(static_cast<size_t>(mCapacity) + 1, 1));
    if (mUsed == nullptr) throw std::bad_alloc();
}

DemuxIdPool::~DemuxIdPool() {
    free(mUsed);
}

int32_t DemuxIdPool::allocate() {
    ::android::Mutex::Autolock guard(mIdLock);
    for (int32_t id = 1; id <= mCapacity; ++id) {
        if (mUsed[id] == 0) {
            mUsed[id] = 1;
            return id;
        }
    }
    return -1;
}

void DemuxIdPool::release(int32_t id) {
    ::android::Mutex::Autolock guard(mIdLock);
    if (id >= 1 && id <= mCapacity) mUsed[id] = 0;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
