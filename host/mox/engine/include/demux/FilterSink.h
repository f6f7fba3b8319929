// Where a filter's output goes, and the descrambler packets pass through: the narrow interfaces
// the demux's wiring implements (a fast message queue and the filter's callback; the CAS
// session's descrambler).
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <cstddef>
#include <cstdint>

namespace mox::demux {

using FilterEvent = ::android::hardware::tv::tuner::V1_0::DemuxFilterEvent::Event;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterStatus;

class FilterSink {
  public:
    virtual ~FilterSink() = default;
    // Puts the bytes in the filter's queue, all of them or none; false when they do not fit.
    virtual bool write(const uint8_t* data, size_t size) = 0;
    // The same for a run of packets the caller writes one by one if this fails: a refusal here
    // is no loss, and nothing counts it.
    virtual bool writeRun(const uint8_t* data, size_t size) { return write(data, size); }
    // Bytes in the queue now: written and not yet read by the client.
    virtual size_t fill() const = 0;
    // An event for the client, after the bytes it describes are in the queue.
    virtual void event(const FilterEvent& event) = 0;
    // A status for the client (one bit of DemuxFilterStatus).
    virtual void status(DemuxFilterStatus status) = 0;
    // Where the bytes end up: sinks that answer the same write to one queue, in the order
    // written (record filters of one DVR).
    virtual const void* destination() const { return this; }
};

class PacketDescrambler {
  public:
    virtual ~PacketDescrambler() = default;
    // Clears the payload of a scrambled packet (transport_scrambling_control 10 or 11) in place
    // and sets that field to 00; returns false and leaves the packet scrambled when it cannot.
    virtual bool descramble(uint16_t pid, uint8_t* packet) = 0;
};

}  // namespace mox::demux
