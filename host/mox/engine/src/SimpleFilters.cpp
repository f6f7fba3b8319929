#include "demux/SimpleFilters.h"

namespace mox::demux {

void TsFilter::packet(const TsPacket& received, const TsPacket*) {
    // Scrambled or damaged, the packet goes on as it came: the client reads the stream.
    if (received.transportError) ++mCounters.transportErrors;
    mOutput.deliverData(received.bytes, kTsPacketSize);
}

void PcrFilter::packet(const TsPacket& received, const TsPacket*) {
    if (received.transportError) {
        ++mCounters.transportErrors;
        return;
    }
    if (!received.hasPcr) return;
    mLatest = received.pcr27MHz();
    ++mCounters.delivered;
}

}  // namespace mox::demux
