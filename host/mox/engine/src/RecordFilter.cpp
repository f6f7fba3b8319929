#include "demux/RecordFilter.h"

namespace mox::demux {
namespace {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterTsRecordEvent;
using ::android::hardware::tv::tuner::V1_0::DemuxTsIndex;

constexpr uint32_t bit(DemuxTsIndex index) {
    return static_cast<uint32_t>(index);
}

uint32_t scanMask(const DemuxFilterRecordSettings& settings) {
    using Mask = DemuxFilterRecordSettings::ScIndexMask;
    switch (settings.scIndexType) {
        case DemuxRecordScIndexType::SC:
            return settings.scIndexMask.getDiscriminator() == Mask::hidl_discriminator::sc
                           ? settings.scIndexMask.sc()
                           : 0;
        case DemuxRecordScIndexType::SC_HEVC:
            return settings.scIndexMask.getDiscriminator() == Mask::hidl_discriminator::scHevc
                           ? settings.scIndexMask.scHevc()
                           : 0;
        default:
            return 0;
    }
}

}  // namespace

RecordFilter::RecordFilter(const DemuxFilterRecordSettings& settings, FilterOutput output,
                           FilterCounters& counters)
    : mSettings(settings),
      mOutput(output),
      mCounters(counters),
      mScanner(settings.scIndexType),
      mScanMask(scanMask(settings)) {}

uint32_t RecordFilter::tsIndexOf(const TsPacket& p, int previousScrambling, bool first) {
    uint32_t bits = 0;
    if (first) bits |= bit(DemuxTsIndex::FIRST_PACKET);
    if (p.unitStart) bits |= bit(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR);
    if (previousScrambling != p.scrambling) {
        if (p.scrambling == 0) bits |= bit(DemuxTsIndex::CHANGE_TO_NOT_SCRAMBLED);
        if (p.scrambling == 2) bits |= bit(DemuxTsIndex::CHANGE_TO_EVEN_SCRAMBLED);
        if (p.scrambling == 3) bits |= bit(DemuxTsIndex::CHANGE_TO_ODD_SCRAMBLED);
    }
    if (p.discontinuity) bits |= bit(DemuxTsIndex::DISCONTINUITY_INDICATOR);
    if (p.randomAccess) bits |= bit(DemuxTsIndex::RANDOM_ACCESS_INDICATOR);
    if (p.esPriority) bits |= bit(DemuxTsIndex::PRIORITY_INDICATOR);
    if (p.hasPcr) bits |= bit(DemuxTsIndex::PCR_FLAG);
    if (p.hasOpcr) bits |= bit(DemuxTsIndex::OPCR_FLAG);
    if (p.splicingPoint) bits |= bit(DemuxTsIndex::SPLICING_POINT_FLAG);
    if (p.privateData) bits |= bit(DemuxTsIndex::PRIVATE_DATA);
    if (p.adaptationExtension) bits |= bit(DemuxTsIndex::ADAPTATION_EXTENSION_FLAG);
    return bits;
}

void RecordFilter::reset() {
    mScanner.reset();
}

void RecordFilter::packet(const TsPacket& received, const TsPacket* clear) {
    if (received.transportError) ++mCounters.transportErrors;
    const uint64_t offset = mBytesOut;
    const bool first = mBytesOut == 0;
    if (!mOutput.deliverData(received.bytes, kTsPacketSize)) return;
    mBytesOut += kTsPacketSize;
    const uint32_t ts = tsIndexOf(received, mScrambling, first) & mSettings.tsIndexMask;
    mScrambling = received.scrambling;
    // Start codes are looked for in what can be read: a clear payload, without errors.
    uint32_t sc = 0;
    if (mScanMask != 0 && clear != nullptr && !received.transportError && clear->hasPayload()) {
        sc = mScanner.scan(clear->payload, clear->payloadSize) & mScanMask;
    } else {
        mScanner.reset();
    }
    if (ts == 0 && sc == 0) return;
    DemuxFilterTsRecordEvent event{};
    event.pid.tPid(received.pid);
    event.tsIndexMask = ts;
    if (mSettings.scIndexType == DemuxRecordScIndexType::SC_HEVC) {
        event.scIndexMask.scHevc(sc);
    } else {
        event.scIndexMask.sc(sc);
    }
    event.byteNumber = offset;
    FilterEvent filterEvent;
    filterEvent.tsRecord(event);
    mOutput.event(filterEvent);
}

}  // namespace mox::demux
