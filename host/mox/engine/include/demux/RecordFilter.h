// A RECORD filter: the PID's packets as they came (scrambled or not) into the record's queue,
// and for each packet that shows an index the client asked for, a DemuxFilterTsRecordEvent:
// the header's and adaptation field's indicators and the video start codes it completes, at
// the packet's byte offset in the filter's output.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include "demux/PacketFilter.h"
#include "demux/StartCodeScanner.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterRecordSettings;

class RecordFilter final : public PacketFilter {
  public:
    RecordFilter(const DemuxFilterRecordSettings& settings, FilterOutput output,
                 FilterCounters& counters);

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void reset() override;
    void drained() override { mOutput.queueDrained(); }
    // Without indexes asked for, nothing is looked at in a packet (and no offset is told).
    FilterOutput* runOutput() override {
        return mSettings.tsIndexMask == 0 && mScanMask == 0 ? &mOutput : nullptr;
    }

    // The DemuxTsIndex bits a packet shows, whatever the mask; `previousScrambling` is the
    // PID's last transport_scrambling_control, or -1 before its first packet.
    static uint32_t tsIndexOf(const TsPacket& packet, int previousScrambling, bool first);

  private:
    const DemuxFilterRecordSettings mSettings;
    FilterOutput mOutput;
    FilterCounters& mCounters;
    StartCodeScanner mScanner;
    const uint32_t mScanMask;  // the start codes asked for; none: payloads are not scanned
    uint64_t mBytesOut = 0;
    int mScrambling = -1;
};

}  // namespace mox::demux
