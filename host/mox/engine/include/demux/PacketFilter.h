// One filter of the demux behind the packet-sink interface every type shares, with its counters
// and the output every type reports through (the sink, the queue's statuses, the drops).
#pragma once

#include <cstddef>
#include <cstdint>

#include "demux/FilterSink.h"
#include "demux/FilterStatusTracker.h"
#include "demux/TsPacket.h"

namespace mox::demux {

// What a filter delivered and what it dropped, by cause.
struct FilterCounters {
    uint64_t packets = 0;            // packets of its PID it was given
    uint64_t delivered = 0;          // sections, PES packets, frames or packets handed on
    uint64_t overflowDrops = 0;      // refused by a full queue
    uint64_t continuityDrops = 0;    // partial units given up on a counter discontinuity
    uint64_t transportErrors = 0;    // packets with transport_error_indicator set
    uint64_t scrambledDrops = 0;     // packets still scrambled, not decodable
    uint64_t malformed = 0;          // pointer fields, lengths or headers that lie
    uint64_t oversizeDrops = 0;      // units past the filter's bound
    uint64_t crcErrors = 0;          // sections with a wrong CRC, when checked
    uint64_t avMemoryFull = 0;       // frames refused by the media memory
    uint64_t passthroughFrames = 0;  // frames sent straight to the decoder
};

// The sink with the queue's statuses and the counts of what it refused.
class FilterOutput {
  public:
    FilterOutput(FilterSink& sink, FilterStatusTracker tracker, FilterCounters& counters)
        : mSink(sink), mTracker(tracker), mCounters(counters) {}

    // Bytes to the queue with the event that describes them (none for raw output, which
    // reports DATA_READY instead). False when the queue refused them: nothing was delivered.
    bool deliver(const uint8_t* data, size_t size, const FilterEvent* event);
    // Bytes to the queue with no event of their own: DATA_READY only as an empty queue fills.
    bool deliverData(const uint8_t* data, size_t size);
    // An event about bytes already in the queue.
    void event(const FilterEvent& event) { mSink.event(event); }
    // An event whose data is elsewhere (media memory), and that memory's fill.
    void deliverEvent(const FilterEvent& event, size_t fill);
    // Something was refused for want of room: OVERFLOW, once until the queue drains.
    void refused();
    // The client read from the queue: statuses as it drains.
    void queueDrained() { drained(mSink.fill()); }
    // The client released media memory, which now holds this many bytes.
    void drained(size_t fill);

    // A run of whole packets (see PacketFilter::runOutput) to the queue at once, all or none,
    // without counts or statuses: deliveredRun() gives each filter of the run its share.
    bool writeRun(const uint8_t* data, size_t size) { return mSink.writeRun(data, size); }
    void deliveredRun(uint64_t units);
    const void* destination() const { return mSink.destination(); }

  private:
    void report(uint8_t bits);

    FilterSink& mSink;
    FilterStatusTracker mTracker;
    FilterCounters& mCounters;
};

// What an assembling filter (section, PES, media) does with a packet of its PID: a packet with
// transport_error_indicator, one still scrambled or a counter discontinuity give up the unit
// under way; a repeated packet is skipped.
struct Gate {
    bool take = false;           // assemble the packet's payload
    bool giveUp = false;         // first give up the unit under way
    bool discontinuity = false;  // ... because packets were lost
};
Gate gatePacket(const TsPacket& received, const TsPacket* clear, Continuity& continuity,
                FilterCounters& counters);

class PacketFilter {
  public:
    virtual ~PacketFilter() = default;
    // A packet of the filter's PID, without transport or adaptation errors of form. `clear` is
    // the same packet with its payload descrambled (the packet itself when it came clear), or
    // nullptr when it stays scrambled.
    virtual void packet(const TsPacket& received, const TsPacket* clear) = 0;
    // Units under way are given up (flush, stop).
    virtual void reset() {}
    // The client drained the filter's queue or released media memory.
    virtual void drained() = 0;
    // A filter that hands on each packet as it came and does nothing else for it (TS, RECORD
    // without indexes) gives its output here: the engine writes runs of consecutive packets
    // through it at once and counts their transport errors itself. Null: packet() for each.
    virtual FilterOutput* runOutput() { return nullptr; }
};

}  // namespace mox::demux
