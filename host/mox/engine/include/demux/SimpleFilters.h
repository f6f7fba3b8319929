// The filters that take packets whole: TS (the PID's packets into the queue, as they came) and
// PCR (the PID's program clock, for AV sync and the time filter; no output of its own).
#pragma once

#include <cstdint>
#include <optional>

#include "demux/PacketFilter.h"

namespace mox::demux {

class TsFilter final : public PacketFilter {
  public:
    TsFilter(FilterOutput output, FilterCounters& counters)
        : mOutput(output), mCounters(counters) {}

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void drained() override { mOutput.queueDrained(); }
    FilterOutput* runOutput() override { return &mOutput; }

  private:
    FilterOutput mOutput;
    FilterCounters& mCounters;
};

class PcrFilter final : public PacketFilter {
  public:
    explicit PcrFilter(FilterCounters& counters) : mCounters(counters) {}

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void reset() override { mLatest.reset(); }
    void drained() override {}

    // The last PCR the PID carried, in 27 MHz ticks; nothing before the first.
    std::optional<uint64_t> latest27MHz() const { return mLatest; }

  private:
    FilterCounters& mCounters;
    std::optional<uint64_t> mLatest;
};

}  // namespace mox::demux
