// The statuses of a bounded queue as it fills and drains: DATA_READY when data arrives in an
// empty queue, HIGH_WATER when the fill rises to the high threshold, OVERFLOW when data is
// refused, LOW_WATER when the fill falls back to the low threshold after a HIGH_WATER or an
// OVERFLOW. Each is reported once per crossing, and only when the mask asks for it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::demux {

class FilterStatusTracker {
  public:
    static constexpr uint8_t kAllStatuses = 0x0F;

    // Thresholds in bytes of fill; low < high.
    FilterStatusTracker(size_t lowThreshold, size_t highThreshold,
                        uint8_t statusMask = kAllStatuses);
    // At the default shares (25 % and 75 %) of a queue of this many bytes.
    static FilterStatusTracker forCapacity(size_t capacity);

    // The fill after a write or a read: the DemuxFilterStatus bits to report now.
    uint8_t filled(size_t fill);
    // A write was refused: the bits to report now.
    uint8_t refused();

  private:
    uint8_t masked(uint8_t bits) const { return bits & mMask; }

    size_t mLow;
    size_t mHigh;
    uint8_t mMask;
    size_t mFill = 0;
    bool mHighReported = false;
    bool mOverflowReported = false;
};

}  // namespace mox::demux
