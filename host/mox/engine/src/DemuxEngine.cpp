#include "demux/DemuxEngine.h"

#include <cstring>

#include "demux/MediaFilter.h"
#include "demux/PesFilter.h"
#include "demux/RecordFilter.h"
#include "demux/SectionFilter.h"
#include "demux/SimpleFilters.h"

namespace mox::demux {
namespace {

using Settings = DemuxTsFilterSettings::FilterSettings;
using Kind = Settings::hidl_discriminator;

}  // namespace

DemuxEngine::DemuxEngine(PacketDescrambler* descrambler) : mDescrambler(descrambler) {}

DemuxEngine::~DemuxEngine() = default;

DemuxEngine::Slot* DemuxEngine::slot(uint32_t id) {
    return id < mSlots.size() && mSlots[id].filter ? &mSlots[id] : nullptr;
}

const DemuxEngine::Slot* DemuxEngine::slot(uint32_t id) const {
    return id < mSlots.size() && mSlots[id].filter ? &mSlots[id] : nullptr;
}

Result DemuxEngine::addFilter(DemuxTsFilterType type, const DemuxTsFilterSettings& settings,
                              FilterResources resources, uint32_t& id) {
    const bool wholeStream = type == DemuxTsFilterType::TS || type == DemuxTsFilterType::RECORD;
    if (settings.tpid > (wholeStream ? kWholeStreamPid : kPidCount - 1)) {
        return Result::INVALID_ARGUMENT;
    }
    const Kind kind = settings.filterSettings.getDiscriminator();
    // Every filter but PCR reports through its sink (media filters their events).
    if (resources.sink == nullptr && type != DemuxTsFilterType::PCR)
        return Result::INVALID_ARGUMENT;
    size_t free = mSlots.size();
    for (size_t i = 0; i < mSlots.size(); ++i) {
        if (!mSlots[i].filter) {
            free = i;
            break;
        }
    }
    if (free == mSlots.size()) return Result::UNAVAILABLE;

    Slot* s = &mSlots[free];
    *s = Slot{};
    s->type = type;
    s->pid = settings.tpid;
    auto output = [&] { return FilterOutput(*resources.sink, resources.tracker, s->counters); };
    switch (type) {
        case DemuxTsFilterType::SECTION:
            if (kind != Kind::section) return Result::INVALID_ARGUMENT;
            s->filter =
                    SectionFilter::create(settings.filterSettings.section(), output(), s->counters);
            break;
        case DemuxTsFilterType::PES:
            if (kind != Kind::pesData) return Result::INVALID_ARGUMENT;
            s->filter = std::make_unique<PesFilter>(settings.filterSettings.pesData(), output(),
                                                    s->counters);
            break;
        case DemuxTsFilterType::AUDIO:
        case DemuxTsFilterType::VIDEO:
            if (kind != Kind::av) return Result::INVALID_ARGUMENT;
            // Passthrough frames never reach the client's memory: it may have none.
            if (!settings.filterSettings.av().isPassthrough &&
                (resources.avMemory.base == nullptr || resources.avMemory.size == 0)) {
                return Result::INVALID_ARGUMENT;
            }
            s->filter = std::make_unique<MediaFilter>(type == DemuxTsFilterType::VIDEO,
                                                      settings.filterSettings.av(),
                                                      resources.avMemory, output(), s->counters);
            break;
        case DemuxTsFilterType::TS:
            if (kind != Kind::noinit) return Result::INVALID_ARGUMENT;
            s->filter = std::make_unique<TsFilter>(output(), s->counters);
            break;
        case DemuxTsFilterType::PCR:
            if (kind != Kind::noinit) return Result::INVALID_ARGUMENT;
            s->filter = std::make_unique<PcrFilter>(s->counters);
            break;
        case DemuxTsFilterType::RECORD:
            if (kind != Kind::record) return Result::INVALID_ARGUMENT;
            s->filter = std::make_unique<RecordFilter>(settings.filterSettings.record(), output(),
                                                       s->counters);
            break;
        default:
            return Result::INVALID_ARGUMENT;
    }
    if (!s->filter) return Result::INVALID_ARGUMENT;
    // Runs pay where packets come back to back to one place: a whole stream, or the record
    // filters of one DVR. A TS filter's single PID seldom has two packets in a row on the air.
    if (type == DemuxTsFilterType::RECORD || s->pid == kWholeStreamPid)
        s->runOutput = s->filter->runOutput();
    mPidTable[s->pid].set(free);
    id = static_cast<uint32_t>(free);
    return Result::SUCCESS;
}

Result DemuxEngine::removeFilter(uint32_t id) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_ARGUMENT;
    mPidTable[s->pid].reset(id);
    mRunning.reset(id);
    *s = Slot{};
    return Result::SUCCESS;
}

Result DemuxEngine::start(uint32_t id) {
    if (slot(id) == nullptr) return Result::INVALID_ARGUMENT;
    mRunning.set(id);
    return Result::SUCCESS;
}

Result DemuxEngine::stop(uint32_t id) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_ARGUMENT;
    mRunning.reset(id);
    s->filter->reset();
    return Result::SUCCESS;
}

Result DemuxEngine::flush(uint32_t id) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_ARGUMENT;
    s->filter->reset();
    return Result::SUCCESS;
}

Result DemuxEngine::drained(uint32_t id) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_ARGUMENT;
    s->filter->drained();
    return Result::SUCCESS;
}

Result DemuxEngine::releaseAvHandle(uint32_t id, uint64_t avDataId) {
    Slot* s = slot(id);
    if (s == nullptr ||
        (s->type != DemuxTsFilterType::AUDIO && s->type != DemuxTsFilterType::VIDEO)) {
        return Result::INVALID_ARGUMENT;
    }
    return static_cast<MediaFilter&>(*s->filter).release(avDataId) ? Result::SUCCESS
                                                                   : Result::INVALID_ARGUMENT;
}

std::optional<uint64_t> DemuxEngine::latestPcr(uint32_t id) const {
    const Slot* s = slot(id);
    if (s == nullptr || s->type != DemuxTsFilterType::PCR) return std::nullopt;
    return static_cast<const PcrFilter&>(*s->filter).latest27MHz();
}

const FilterCounters* DemuxEngine::counters(uint32_t id) const {
    const Slot* s = slot(id);
    return s != nullptr ? &s->counters : nullptr;
}

size_t DemuxEngine::filterCount() const {
    size_t n = 0;
    for (const auto& s : mSlots) n += s.filter ? 1 : 0;
    return n;
}

void DemuxEngine::packets(const uint8_t* data, size_t size) {
    for (; size >= kTsPacketSize; data += kTsPacketSize, size -= kTsPacketSize) packet(data);
    endRun();
    if (size > 0) ++mInput.syncErrors;
}

void DemuxEngine::addToRun(const uint8_t* bytes, size_t slotIndex, FilterOutput& output) {
    if (mRun.packets > 0 &&
        (mRun.packets == kMaxRunPackets || mRun.start + mRun.packets * kTsPacketSize != bytes ||
         (&output != mRun.output && output.destination() != mRun.destination))) {
        endRun();
    }
    if (mRun.packets == 0) {
        mRun.start = bytes;
        mRun.destination = output.destination();
        mRun.output = &output;
        mRun.shared = false;
    }
    mRun.shared |= mRun.output != &output;
    mRun.slots[mRun.packets++] = static_cast<uint8_t>(slotIndex);
}

void DemuxEngine::endRun() {
    if (mRun.packets == 0) return;
    const size_t packets = mRun.packets;
    mRun.packets = 0;
    if (mRun.output->writeRun(mRun.start, packets * kTsPacketSize)) {
        if (!mRun.shared) {
            mSlots[mRun.slots[0]].runOutput->deliveredRun(packets);
            return;
        }
        std::array<uint32_t, kMaxFiltersPerDemux> counts{};
        uint64_t filters = 0;
        for (size_t i = 0; i < packets; ++i) {
            ++counts[mRun.slots[i]];
            filters |= uint64_t{1} << mRun.slots[i];
        }
        for (; filters != 0; filters &= filters - 1) {
            const auto i = static_cast<size_t>(__builtin_ctzll(filters));
            mSlots[i].runOutput->deliveredRun(counts[i]);
        }
        return;
    }
    // Short of room: packet by packet, as many as fit, each refusal counted.
    for (size_t i = 0; i < packets; ++i)
        mSlots[mRun.slots[i]].runOutput->deliverData(mRun.start + i * kTsPacketSize, kTsPacketSize);
}

void DemuxEngine::packet(const uint8_t* bytes) {
    ++mInput.packets;
    TsPacket received;
    switch (parseTsPacket(bytes, received)) {
        case PacketError::kSyncByte:
            ++mInput.syncErrors;
            return;
        case PacketError::kAdaptationLength:
            ++mInput.malformed;
            return;
        case PacketError::kNone:
            break;
    }
    const std::bitset<kMaxFiltersPerDemux> targets =
            (mPidTable[received.pid] | mPidTable[kWholeStreamPid]) & mRunning;
    if (targets.none()) return;
    static_assert(kMaxFiltersPerDemux == 64, "one machine word of filter bits");
    // One filter that takes the packet as it came: into the run.
    const uint64_t targetBits = targets.to_ullong();
    if (!received.isScrambled() && (targetBits & (targetBits - 1)) == 0) {
        const auto i = static_cast<size_t>(__builtin_ctzll(targetBits));
        Slot& s = mSlots[i];
        if (s.runOutput != nullptr) {
            ++s.counters.packets;
            if (received.transportError) ++s.counters.transportErrors;
            addToRun(bytes, i, *s.runOutput);
            return;
        }
    }
    endRun();

    const TsPacket* clear = &received;
    if (received.isScrambled()) {
        clear = nullptr;
        if (mDescrambler != nullptr && !received.transportError) {
            std::memcpy(mClear.data(), bytes, kTsPacketSize);
            if (mDescrambler->descramble(received.pid, mClear.data()) &&
                parseTsPacket(mClear.data(), mDescrambled) == PacketError::kNone &&
                !mDescrambled.isScrambled()) {
                clear = &mDescrambled;
            }
        }
        if (clear == nullptr) ++mInput.unscrambled;
    }
    // Only the filters on the PID, lowest slot first.
    for (uint64_t bits = targetBits; bits != 0; bits &= bits - 1) {
        Slot& s = mSlots[static_cast<size_t>(__builtin_ctzll(bits))];
        ++s.counters.packets;
        s.filter->packet(received, clear);
        if (s.type == DemuxTsFilterType::PCR && received.hasPcr && !received.transportError) {
            mLatestPcr = received.pcr27MHz();
        }
    }
}

}  // namespace mox::demux
