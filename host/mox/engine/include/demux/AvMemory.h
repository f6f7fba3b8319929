// A media filter's frames in a fixed region of memory the client maps: each frame one
// contiguous range, handed out in order round the region and held until the client releases
// its id. A frame that would overlap a range still held is refused, never written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "demux/Limits.h"

namespace mox::demux {

struct AvRegion {
    uint8_t* base = nullptr;  // not owned: the wiring's mapping of the shared memory
    size_t size = 0;
};

struct AvFrame {
    uint64_t id = 0;  // avDataId, from 1
    uint32_t offset = 0;
    uint32_t size = 0;
};

class AvMemory {
  public:
    explicit AvMemory(AvRegion region);

    // Copies a frame in; nothing when it does not fit beside the frames still held (or more than
    // kMaxOutstandingAvFrames are held).
    std::optional<AvFrame> store(const uint8_t* data, size_t size);
    // The client is done with a frame: false for an id not held.
    bool release(uint64_t id);
    // Bytes held by frames not yet released.
    size_t held() const { return mHeldBytes; }
    size_t capacity() const { return mRegion.size; }
    size_t heldFrames() const { return mFrames.size(); }

  private:
    struct Range {
        AvFrame frame;
        bool released = false;
    };
    std::optional<uint32_t> placeFor(size_t size) const;

    AvRegion mRegion;
    std::deque<Range> mFrames;  // in the order they were stored, oldest first
    size_t mHeldBytes = 0;
    uint64_t mNextId = 1;
};

}  // namespace mox::demux
