// The packet-processing core of the host's demux: whole 188-byte packets in, routed by PID
// through one table to the filters registered on it (any number may share a PID, at most
// kMaxFiltersPerDemux in all), each filter type a PacketFilter. Scrambled packets pass the
// descrambler before section, PES and media filters; TS and record filters take them as they
// came.
//
// Pure and single-threaded: the demux's input thread owns an engine, and whoever shares it
// with binder threads guards it with one lock.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "demux/AvMemory.h"
#include "demux/FilterSink.h"
#include "demux/FilterStatusTracker.h"
#include "demux/Limits.h"
#include "demux/PacketFilter.h"
#include "demux/TsPacket.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxTsFilterSettings;
using ::android::hardware::tv::tuner::V1_0::DemuxTsFilterType;
using ::android::hardware::tv::tuner::V1_0::Result;

// What a filter needs besides its settings: where its output goes, the statuses of that queue,
// and, for AUDIO and VIDEO, the memory its frames go to.
struct FilterResources {
    FilterSink* sink = nullptr;
    FilterStatusTracker tracker = FilterStatusTracker::forCapacity(0);
    AvRegion avMemory;
};

// Packets the engine could not read at all.
struct InputCounters {
    uint64_t packets = 0;      // whole packets given
    uint64_t syncErrors = 0;   // no sync byte, or bytes short of a whole packet
    uint64_t malformed = 0;    // adaptation_field_length past the packet
    uint64_t unscrambled = 0;  // scrambled packets the descrambler could not clear
};

class DemuxEngine {
  public:
    // The descrambler may be null: scrambled packets then stay scrambled.
    explicit DemuxEngine(PacketDescrambler* descrambler = nullptr);
    ~DemuxEngine();
    DemuxEngine(const DemuxEngine&) = delete;
    DemuxEngine& operator=(const DemuxEngine&) = delete;

    // A configured, stopped filter; its id in `id`. TS and RECORD filters also take
    // kWholeStreamPid. INVALID_ARGUMENT for settings the type does not take or missing resources,
    // UNAVAILABLE when kMaxFiltersPerDemux are open.
    Result addFilter(DemuxTsFilterType type, const DemuxTsFilterSettings& settings,
                     FilterResources resources, uint32_t& id);
    Result removeFilter(uint32_t id);
    Result start(uint32_t id);
    Result stop(uint32_t id);   // also gives up units under way
    Result flush(uint32_t id);  // gives up units under way
    // The client read from the filter's queue.
    Result drained(uint32_t id);
    // The client is done with a media filter's frame.
    Result releaseAvHandle(uint32_t id, uint64_t avDataId);

    // Whole packets back to back; bytes after the last whole packet count as a sync error.
    void packets(const uint8_t* data, size_t size);

    // The latest PCR of a PCR filter, 27 MHz; nothing before its first, or for another filter.
    std::optional<uint64_t> latestPcr(uint32_t id) const;
    // The latest PCR any PCR filter saw (the demux's source time), 27 MHz.
    std::optional<uint64_t> latestPcr() const { return mLatestPcr; }

    const FilterCounters* counters(uint32_t id) const;
    const InputCounters& input() const { return mInput; }
    size_t filterCount() const;

  private:
    // A filter and what the engine keeps of it, in place: the packet path reaches it without
    // another pointer. Free while `filter` is null.
    struct Slot {
        DemuxTsFilterType type = DemuxTsFilterType::UNDEFINED;
        uint16_t pid = 0;
        FilterCounters counters;
        std::unique_ptr<PacketFilter> filter;
        FilterOutput* runOutput = nullptr;  // the filter's, when it takes runs
    };
    // Consecutive packets, each taken by one run-taking filter alone and all bound for one
    // destination: written at once when the run ends (before any other output, and at the end
    // of packets()), which spares every packet a write, a fill and a status check of its own.
    static constexpr size_t kMaxRunPackets = 1024;
    struct Run {
        const uint8_t* start = nullptr;
        size_t packets = 0;
        const void* destination = nullptr;
        FilterOutput* output = nullptr;  // the first packet's filter's: the run goes through it
        bool shared = false;             // other filters' packets are in it too
        std::array<uint8_t, kMaxRunPackets> slots{};  // each packet's filter
    };
    void addToRun(const uint8_t* bytes, size_t slotIndex, FilterOutput& output);
    void endRun();
    Slot* slot(uint32_t id);
    const Slot* slot(uint32_t id) const;
    void packet(const uint8_t* bytes);

    PacketDescrambler* const mDescrambler;
    std::array<Slot, kMaxFiltersPerDemux> mSlots;
    // One bit per filter slot for each PID: the filters registered on it; the last entry
    // (kWholeStreamPid) holds the filters that take every packet.
    std::array<std::bitset<kMaxFiltersPerDemux>, kPidCount + 1> mPidTable{};
    std::bitset<kMaxFiltersPerDemux> mRunning;
    std::array<uint8_t, kTsPacketSize> mClear{};  // a scrambled packet after the descrambler
    TsPacket mDescrambled;                        // ... as read
    InputCounters mInput;
    std::optional<uint64_t> mLatestPcr;
    Run mRun;
};

}  // namespace mox::demux
