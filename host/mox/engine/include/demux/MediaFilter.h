// An AUDIO or VIDEO filter: each PES packet's elementary stream bytes into the filter's media
// memory, described by a DemuxFilterMediaEvent; in passthrough the frames go to the decoder
// and the client gets no event.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include "demux/AvMemory.h"
#include "demux/PacketFilter.h"
#include "demux/PesAssembler.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterAvSettings;

class MediaFilter final : public PacketFilter, private PesAssembler::Handler {
  public:
    MediaFilter(bool video, const DemuxFilterAvSettings& settings, AvRegion memory,
                FilterOutput output, FilterCounters& counters);

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void reset() override;
    void drained() override { mOutput.drained(mMemory.held()); }

    // The client is done with a frame: false for an id it does not hold.
    bool release(uint64_t avDataId);
    const AvMemory& memory() const { return mMemory; }

  private:
    void pes(const uint8_t* data, size_t size) override;

    const DemuxFilterAvSettings mSettings;
    AvMemory mMemory;
    FilterOutput mOutput;
    FilterCounters& mCounters;
    PesAssembler mAssembler;
    Continuity mContinuity;
};

}  // namespace mox::demux
