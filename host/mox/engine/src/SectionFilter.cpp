#include "demux/SectionFilter.h"

#include <algorithm>

#include "demux/Crc32.h"

namespace mox::demux {
namespace {

using Condition = DemuxFilterSectionSettings::Condition;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterSectionEvent;

// The long header: extension, version, numbers, and a CRC after the body.
constexpr size_t kLongHeaderSize = 8;
constexpr size_t kCrcSize = 4;
// A table-info version past the field's 5 bits selects every version.
constexpr uint16_t kMaxVersion = 0x1F;

bool hasLongHeader(const uint8_t* section) {
    return (section[1] & 0x80) != 0;
}

uint8_t byteAt(const ::android::hardware::hidl_vec<uint8_t>& bytes, size_t i) {
    return i < bytes.size() ? bytes[i] : 0;
}

}  // namespace

std::unique_ptr<SectionFilter> SectionFilter::create(const DemuxFilterSectionSettings& settings,
                                                     FilterOutput output, FilterCounters& counters) {
    const Condition& condition = settings.condition;
    if (condition.getDiscriminator() == Condition::hidl_discriminator::sectionBits) {
        const auto& bits = condition.sectionBits();
        if (bits.filter.size() > kSectionFilterBytes || bits.mask.size() > kSectionFilterBytes ||
            bits.mode.size() > kSectionFilterBytes) {
            return nullptr;
        }
    } else if (condition.tableInfo().tableId > 0xFF) {
        return nullptr;
    }
    return std::unique_ptr<SectionFilter>(new SectionFilter(settings, output, counters));
}

SectionFilter::SectionFilter(const DemuxFilterSectionSettings& settings, FilterOutput output,
                             FilterCounters& counters)
    : mSettings(settings), mOutput(output), mCounters(counters) {}

void SectionFilter::packet(const TsPacket& received, const TsPacket* clear) {
    const Gate gate = gatePacket(received, clear, mContinuity, mCounters);
    if (gate.giveUp && mAssembler.lose() && gate.discontinuity) ++mCounters.continuityDrops;
    if (gate.take) mCounters.malformed += mAssembler.push(*clear, *this);
}

void SectionFilter::reset() {
    mAssembler.lose();
    mContinuity.reset();
}

void SectionFilter::drained() {
    mOutput.queueDrained();
}

bool SectionFilter::matches(const uint8_t* s, size_t size) const {
    const Condition& condition = mSettings.condition;
    if (condition.getDiscriminator() == Condition::hidl_discriminator::tableInfo) {
        const auto& info = condition.tableInfo();
        if (s[0] != info.tableId) return false;
        if (info.version > kMaxVersion) return true;
        return hasLongHeader(s) && size >= kLongHeaderSize && ((s[5] >> 1) & 0x1F) == info.version;
    }
    // Filter byte 0 is the table id, byte i > 0 the section's byte i + 2: the two length bytes
    // are skipped. Bits whose mode is 0 must equal the filter's; of the bits whose mode is 1, at
    // least one must differ.
    const auto& bits = condition.sectionBits();
    const size_t count = std::max({bits.filter.size(), bits.mask.size(), bits.mode.size()});
    bool negative = false;
    bool differs = false;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t mask = byteAt(bits.mask, i);
        if (mask == 0) continue;
        const size_t at = i == 0 ? 0 : i + 2;
        if (at >= size) return false;
        const uint8_t mode = byteAt(bits.mode, i);
        const uint8_t different = (byteAt(bits.filter, i) ^ s[at]) & mask;
        if (different & ~mode) return false;
        if (mask & mode) {
            negative = true;
            if (different & mode) differs = true;
        }
    }
    return !negative || differs;
}

SectionFilter::Seen SectionFilter::keyOf(const uint8_t* s, size_t size) {
    Seen seen{s[0], 0, 0, 0};
    if (hasLongHeader(s) && size >= kLongHeaderSize) {
        seen.extension = static_cast<uint16_t>((s[3] << 8) | s[4]);
        seen.version = (s[5] >> 1) & 0x1F;
        seen.number = s[6];
    }
    return seen;
}

std::deque<SectionFilter::Seen>::iterator SectionFilter::find(const Seen& seen) {
    return std::find_if(mSeen.begin(), mSeen.end(), [&](const Seen& known) {
        return known.tableId == seen.tableId && known.extension == seen.extension &&
               known.number == seen.number;
    });
}

bool SectionFilter::isNew(const Seen& seen) {
    const auto known = find(seen);
    return known == mSeen.end() || known->version != seen.version;
}

void SectionFilter::remember(const Seen& seen) {
    const auto known = find(seen);
    if (known != mSeen.end()) {
        known->version = seen.version;
        return;
    }
    if (mSeen.size() == kMaxRememberedSections) mSeen.pop_front();
    mSeen.push_back(seen);
}

void SectionFilter::section(const uint8_t* s, size_t size) {
    const bool longHeader = hasLongHeader(s);
    if (longHeader && size < kLongHeaderSize + kCrcSize) {
        ++mCounters.malformed;
        return;
    }
    if (!matches(s, size)) return;
    // Only sections with the long header carry a CRC to check.
    if (mSettings.isCheckCrc && longHeader && crc32Mpeg2(s, size) != 0) {
        ++mCounters.crcErrors;
        return;
    }
    const Seen key = keyOf(s, size);
    if (!mSettings.isRepeat && !isNew(key)) return;
    DemuxFilterSectionEvent event{};
    event.tableId = s[0];
    if (longHeader) {
        event.version = (s[5] >> 1) & 0x1F;
        event.sectionNum = s[6];
    }
    event.dataLength = static_cast<uint16_t>(size);
    FilterEvent filterEvent;
    filterEvent.section(event);
    // A section the queue refused counts as not delivered: it comes again with the table.
    if (mOutput.deliver(s, size, mSettings.isRaw ? nullptr : &filterEvent) && !mSettings.isRepeat) {
        remember(key);
    }
}

}  // namespace mox::demux
