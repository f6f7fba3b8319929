#include "demux/PacketFilter.h"

namespace mox::demux {

void FilterOutput::report(uint8_t bits) {
    if (bits == 0) return;  // most packets change nothing
    for (uint8_t b = 1; b != 0 && b <= FilterStatusTracker::kAllStatuses; b <<= 1) {
        if (bits & b) mSink.status(static_cast<DemuxFilterStatus>(b));
    }
}

bool FilterOutput::deliver(const uint8_t* data, size_t size, const FilterEvent* event) {
    if (!mSink.write(data, size)) {
        ++mCounters.overflowDrops;
        refused();
        return false;
    }
    ++mCounters.delivered;
    uint8_t bits = mTracker.filled(mSink.fill());
    if (event != nullptr) {
        mSink.event(*event);
    } else {
        // Raw output: the status stands for the event, one per unit.
        bits |= static_cast<uint8_t>(DemuxFilterStatus::DATA_READY);
    }
    report(bits);
    return true;
}

bool FilterOutput::deliverData(const uint8_t* data, size_t size) {
    if (!mSink.write(data, size)) {
        ++mCounters.overflowDrops;
        refused();
        return false;
    }
    ++mCounters.delivered;
    report(mTracker.filled(mSink.fill()));
    return true;
}

void FilterOutput::deliverEvent(const FilterEvent& event, size_t fill) {
    ++mCounters.delivered;
    mSink.event(event);
    report(mTracker.filled(fill));
}

void FilterOutput::deliveredRun(uint64_t units) {
    mCounters.delivered += units;
    report(mTracker.filled(mSink.fill()));
}

void FilterOutput::refused() {
    report(mTracker.refused());
}

void FilterOutput::drained(size_t fill) {
    report(mTracker.filled(fill));
}

Gate gatePacket(const TsPacket& received, const TsPacket* clear, Continuity& continuity,
                FilterCounters& counters) {
    if (received.transportError) {
        ++counters.transportErrors;
        continuity.reset();
        return {false, true, false};
    }
    if (clear == nullptr) {
        ++counters.scrambledDrops;
        return {false, true, false};
    }
    switch (continuity.check(*clear)) {
        case Continuity::Verdict::kDuplicate:
            return {false, false, false};
        case Continuity::Verdict::kLost:
            return {true, true, true};
        case Continuity::Verdict::kNext:
            break;
    }
    return {true, false, false};
}

}  // namespace mox::demux
