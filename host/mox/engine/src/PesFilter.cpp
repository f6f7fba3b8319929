#include "demux/PesFilter.h"

namespace mox::demux {
namespace {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterPesEvent;

// A stream_id is 8 bits: a setting beyond them (INVALID_STREAM_ID) takes every stream.
constexpr uint16_t kAnyStream = 0x100;

}  // namespace

PesFilter::PesFilter(const DemuxFilterPesDataSettings& settings, FilterOutput output,
                     FilterCounters& counters)
    : mSettings(settings), mOutput(output), mCounters(counters), mAssembler(kMaxPesPacketSize) {}

void PesFilter::packet(const TsPacket& received, const TsPacket* clear) {
    const Gate gate = gatePacket(received, clear, mContinuity, mCounters);
    if (gate.giveUp && mAssembler.lose() && gate.discontinuity) ++mCounters.continuityDrops;
    if (gate.take) mAssembler.push(*clear, *this, mCounters);
}

void PesFilter::reset() {
    mAssembler.lose();
    mContinuity.reset();
}

void PesFilter::pes(const uint8_t* data, size_t size) {
    const std::optional<PesHeader> header = parsePesHeader(data, size);
    if (!header) {
        ++mCounters.malformed;
        return;
    }
    if (mSettings.streamId < kAnyStream && header->streamId != mSettings.streamId) return;
    DemuxFilterPesEvent event{};
    event.streamId = header->streamId;
    event.dataLength = static_cast<uint16_t>(size);
    event.mpuSequenceNumber = 0;
    FilterEvent filterEvent;
    filterEvent.pes(event);
    mOutput.deliver(data, size, mSettings.isRaw ? nullptr : &filterEvent);
}

}  // namespace mox::demux
