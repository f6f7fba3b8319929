// Start codes in a video PID's payloads, as a record filter's index reports them: MPEG-2
// sequence headers and I/P/B pictures, H.264 sequence parameter sets and I/P/B slices
// (DemuxScIndex), or HEVC's NAL unit groups (DemuxScHevcIndex). A code split between packets is
// found in the packet where it ends.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "demux/Limits.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxRecordScIndexType;

class StartCodeScanner {
  public:
    explicit StartCodeScanner(DemuxRecordScIndexType type) : mType(type) {}

    // The index bits of the codes this payload completes.
    uint32_t scan(const uint8_t* payload, size_t size);
    // The stream was interrupted: bytes carried over belong to nothing.
    void reset();

  private:
    // Bytes after a start code's prefix a code's meaning may need (an H.264 slice type).
    static constexpr size_t kLookahead = 6;
    static constexpr size_t kCarry = 3 + kLookahead;
    enum class Codec { kUnknown, kMpeg2, kH264 };

    uint32_t scOf(const uint8_t* code, size_t available);
    uint32_t hevcOf(const uint8_t* code, size_t available) const;

    const DemuxRecordScIndexType mType;
    Codec mCodec = Codec::kUnknown;
    std::array<uint8_t, kCarry + kTsPacketSize> mWindow{};
    size_t mCarried = 0;
};

}  // namespace mox::demux
