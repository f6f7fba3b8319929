#include "demux/MediaFilter.h"

namespace mox::demux {
namespace {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterMediaEvent;

// private_stream_1 and private_stream_2 carry data other than MPEG audio or video (AC-3 ...).
bool isPrivateStream(uint8_t streamId) {
    return streamId == 0xBD || streamId == 0xBF;
}

}  // namespace

MediaFilter::MediaFilter(bool video, const DemuxFilterAvSettings& settings, AvRegion memory,
                         FilterOutput output, FilterCounters& counters)
    : mSettings(settings),
      mMemory(memory),
      mOutput(output),
      mCounters(counters),
      mAssembler(video ? kMaxVideoFrameSize : kMaxAudioFrameSize) {}

void MediaFilter::packet(const TsPacket& received, const TsPacket* clear) {
    const Gate gate = gatePacket(received, clear, mContinuity, mCounters);
    if (gate.giveUp && mAssembler.lose() && gate.discontinuity) ++mCounters.continuityDrops;
    if (gate.take) mAssembler.push(*clear, *this, mCounters);
}

void MediaFilter::reset() {
    mAssembler.lose();
    mContinuity.reset();
}

bool MediaFilter::release(uint64_t avDataId) {
    if (!mMemory.release(avDataId)) return false;
    drained();
    return true;
}

void MediaFilter::pes(const uint8_t* data, size_t size) {
    const std::optional<PesHeader> header = parsePesHeader(data, size);
    if (!header) {
        ++mCounters.malformed;
        return;
    }
    const uint8_t* es = data + header->payloadStart;
    const size_t esSize = size - header->payloadStart;
    if (esSize == 0) return;
    if (mSettings.isPassthrough) {
        // The decoder takes the frame from the demux itself: nothing for the client.
        ++mCounters.passthroughFrames;
        return;
    }
    const std::optional<AvFrame> frame = mMemory.store(es, esSize);
    if (!frame) {
        ++mCounters.avMemoryFull;
        mOutput.refused();
        return;
    }
    DemuxFilterMediaEvent event{};
    event.streamId = header->streamId;
    event.isPtsPresent = header->hasPts;
    event.pts = header->pts;
    event.dataLength = frame->size;
    event.offset = frame->offset;
    event.isSecureMemory = false;
    event.avDataId = frame->id;
    event.mpuSequenceNumber = 0;
    event.isPesPrivateData = isPrivateStream(header->streamId);
    FilterEvent filterEvent;
    filterEvent.media(event);
    mOutput.deliverEvent(filterEvent, mMemory.held());
}

}  // namespace mox::demux
