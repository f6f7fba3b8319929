// A PES filter: whole PES packets of its PID (of one stream_id, or of any when the setting is
// past 8 bits) into the queue, each with a DemuxFilterPesEvent (or DATA_READY for raw output).
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include "demux/PacketFilter.h"
#include "demux/PesAssembler.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterPesDataSettings;

class PesFilter final : public PacketFilter, private PesAssembler::Handler {
  public:
    PesFilter(const DemuxFilterPesDataSettings& settings, FilterOutput output,
              FilterCounters& counters);

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void reset() override;
    void drained() override { mOutput.queueDrained(); }

  private:
    void pes(const uint8_t* data, size_t size) override;

    const DemuxFilterPesDataSettings mSettings;
    FilterOutput mOutput;
    FilterCounters& mCounters;
    PesAssembler mAssembler;
    Continuity mContinuity;
};

}  // namespace mox::demux
