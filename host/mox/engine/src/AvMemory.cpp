#include "demux/AvMemory.h"

#include <cstring>
#include <limits>

namespace mox::demux {

AvMemory::AvMemory(AvRegion region) : mRegion(region) {
    // Offsets are 32 bits in the client's event.
    if (mRegion.size > std::numeric_limits<uint32_t>::max()) mRegion.size = 0;
    if (mRegion.base == nullptr) mRegion.size = 0;
}

// Frames are held as one run round the region: new ones go after the newest, wrapping to the
// start when the end has no room, and must end before the oldest still held.
std::optional<uint32_t> AvMemory::placeFor(size_t size) const {
    if (size == 0 || size > mRegion.size) return std::nullopt;
    if (mFrames.empty()) return 0;
    const AvFrame& oldest = mFrames.front().frame;
    const AvFrame& newest = mFrames.back().frame;
    const size_t head = size_t{newest.offset} + newest.size;
    if (head > oldest.offset) {
        // Free space lies after the newest up to the end, and before the oldest.
        if (mRegion.size - head >= size) return static_cast<uint32_t>(head);
        if (oldest.offset >= size) return 0;
        return std::nullopt;
    }
    // Wrapped: free space lies between the newest and the oldest.
    if (oldest.offset - head >= size) return static_cast<uint32_t>(head);
    return std::nullopt;
}

std::optional<AvFrame> AvMemory::store(const uint8_t* data, size_t size) {
    if (mFrames.size() >= kMaxOutstandingAvFrames) return std::nullopt;
    const std::optional<uint32_t> offset = placeFor(size);
    if (!offset) return std::nullopt;
    std::memcpy(mRegion.base + *offset, data, size);
    AvFrame frame{mNextId++, *offset, static_cast<uint32_t>(size)};
    mFrames.push_back({frame, false});
    mHeldBytes += size;
    return frame;
}

bool AvMemory::release(uint64_t id) {
    for (Range& range : mFrames) {
        if (range.frame.id != id) continue;
        if (range.released) return false;
        range.released = true;
        mHeldBytes -= range.frame.size;
        // The run shrinks from its oldest end only: a frame released early keeps its place
        // until those before it are released too.
        while (!mFrames.empty() && mFrames.front().released) mFrames.pop_front();
        return true;
    }
    return false;
}

}  // namespace mox::demux
