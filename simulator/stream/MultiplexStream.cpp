#include "simulator/stream/MultiplexStream.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

namespace mox::air {
namespace {

constexpr uint64_t kPcrWrap = (uint64_t{1} << 33) * 300;
constexpr uint32_t kDefaultAudioRate = 192000;
constexpr uint32_t kDefaultAc3Rate = 384000;
// Of the multiplex, what its services' components share by default; the rest is tables, PCR
// and null packets, as a statistical multiplexer leaves headroom.
constexpr double kContentShare = 0.85;
// How far behind its schedule a component may fall before its packets are dropped.
constexpr uint64_t kMaxLagMs = 100;

bool hasCrc(Table kind) {
    return kind != Table::kTdt;
}

// Bit rates of each component, in the order of the services and their components: given ones
// as they are, the others sharing what the multiplex leaves.
std::vector<uint32_t> componentRates(const MultiplexContent& content, uint64_t bitRate) {
    std::vector<uint32_t> rates;
    uint64_t fixed = 0;
    size_t shared = 0;
    for (const Service& s : content.services) {
        for (const Component& c : s.components) {
            uint32_t rate = c.bitRate;
            if (rate == 0 && !c.isVideo()) rate = c.ac3 ? kDefaultAc3Rate : kDefaultAudioRate;
            if (rate == 0) ++shared;
            fixed += rate;
            rates.push_back(rate);
        }
    }
    const double budget = bitRate * kContentShare;
    const double left = std::max(0.0, budget - double(fixed));
    for (uint32_t& rate : rates) {
        if (rate == 0) rate = static_cast<uint32_t>(std::max(64000.0, left / double(shared)));
    }
    return rates;
}

// An overflow is counted in packets: the streams, their PES headers and part-filled packets
// included, ask for exactly that much more than the multiplex's packets. Each frame is whole
// packets, so the rates move in steps; a few rounds bring the total within a thousandth.
void fitOverflow(const MultiplexContent& content, double slotsPerSecond, uint32_t overflowPercent,
                 std::vector<uint32_t>& rates) {
    const double wanted = slotsPerSecond * (1.0 + overflowPercent / 100.0);
    for (int round = 0; round < 8; ++round) {
        double total = 0;
        size_t r = 0;
        for (const Service& s : content.services) {
            for (const Component& c : s.components)
                total += ElementaryStream(c, rates[r++], slotsPerSecond, nullptr).packetsPerSecond();
        }
        if (total <= 0 || std::abs(total - wanted) < wanted * 0.001) return;
        for (uint32_t& rate : rates) rate = static_cast<uint32_t>(rate * wanted / total);
    }
}

}  // namespace

struct MultiplexStream::TableEntry {
    TableEntry(mox::air::Table k, uint16_t p, size_t s, uint64_t periodMs, uint64_t phaseMs)
        : kind(k), pid(p), service(s), periodMs(periodMs), phaseMs(phaseMs) {}
    mox::air::Table kind;
    uint16_t pid;
    size_t service;     // PMT, EIT: index in the services; SDT other: in the other multiplexes
    uint64_t periodMs;  // of the whole table
    uint64_t phaseMs;
    uint64_t nextDue = 0;
    uint64_t periodSlots = 1;  // between two of its sections
    std::vector<Section> sections;
    size_t cursor = 0;
    uint8_t version = 0;
    bool stale = true;  // its content changed since its sections were made
};

MultiplexStream::MultiplexStream(MultiplexSetup setup, uint64_t bitRate, time_t utcAtStart)
    : mSetup(std::move(setup)),
      mBitRate(std::max<uint64_t>(bitRate, 1504 * 100)),
      mUtcAtStart(utcAtStart),
      mPcrStart((static_cast<uint64_t>(utcAtStart) * 27000000ull) % kPcrWrap) {
    build();
}

MultiplexStream::~MultiplexStream() = default;

uint64_t MultiplexStream::slotsFor(uint64_t ms) const {
    return std::max<uint64_t>(1, slotAt(ms * 1000, mBitRate));
}

time_t MultiplexStream::utcAt(uint64_t slot) const {
    return mUtcAtStart + static_cast<time_t>(slotTicks(slot, mBitRate, 1));
}

uint64_t MultiplexStream::pcrAt(uint64_t slot) const {
    return (mPcrStart + slotTicks(slot, mBitRate, 27000000)) % kPcrWrap;
}

void MultiplexStream::build() {
    const MultiplexContent& content = mSetup.content;
    const size_t n = content.services.size();
    mTables.clear();
    auto add = [&](Table kind, uint16_t pid, size_t service, uint64_t periodMs, uint64_t phaseMs) {
        mTables.push_back(std::make_unique<MultiplexStream::TableEntry>(kind, pid, service,
                                                                        periodMs, phaseMs));
    };
    add(Table::kPat, PAT_PID, 0, kPatPeriodMs, 0);
    const bool scrambled = std::any_of(content.services.begin(), content.services.end(),
                                       [](const Service& s) { return s.scrambled; });
    if (scrambled) add(Table::kCat, CAT_PID, 0, kCatPeriodMs, 0);  // before any scrambled packet
    for (size_t i = 0; i < n; ++i) {
        add(Table::kPmt, content.services[i].pmtPid, i, kPmtPeriodMs,
            (i + 1) * kPmtPeriodMs / (n + 1));
    }
    add(Table::kNit, NIT_PID, 0, kNitPeriodMs, 50);
    add(Table::kSdt, SDT_PID, 0, kSdtPeriodMs, 20);
    for (size_t o = 0; o < mSetup.others.size(); ++o) {
        add(Table::kSdtOther, SDT_PID, o, kSdtOtherPeriodMs,
            520 + o * kSdtOtherPeriodMs / mSetup.others.size());
    }
    const uint64_t eitPeriod = std::max(kEitPfPeriodMs, 2 * n * kSectionSpacingMs);
    for (size_t i = 0; i < n; ++i)
        add(Table::kEit, EIT_PID, i, eitPeriod, 10 + i * eitPeriod / (2 * n));
    add(Table::kTdt, TDT_PID, 0, kTdtPeriodMs, 1000);
    add(Table::kTot, TOT_PID, 0, kTotPeriodMs, 3500);
    for (auto& table : mTables) table->nextDue = mSlot + slotsFor(table->phaseMs) - 1;
    mNextTableDue = mSlot;

    // Components and their PCRs.
    const double slotsPerSecond = double(mBitRate) / 1504.0;
    std::vector<uint32_t> rates = componentRates(content, mBitRate);
    if (mSetup.faults.overflowPercent > 0)
        fitOverflow(content, slotsPerSecond, mSetup.faults.overflowPercent, rates);
    mStreams.clear();
    mPcrs.clear();
    size_t r = 0;
    for (size_t i = 0; i < n; ++i) {
        const Service& s = content.services[i];
        const std::array<uint8_t, 8> key = serviceControlWord(s.id);
        int pcrStream = -1;
        for (const Component& c : s.components) {
            if (c.pid == s.pcrPid) pcrStream = static_cast<int>(mStreams.size());
            mStreams.emplace_back(c, rates[r++], slotsPerSecond, s.scrambled ? &key : nullptr);
            mStreams.back().skipTo(mSlot);
        }
        mPcrs.push_back({s.pcrPid, pcrStream, mSlot + slotsFor(i * kPcrPeriodMs / n) - 1});
    }
    mNextPcrDue = mSlot;
    mMaxLagSlots = slotsFor(kMaxLagMs);
    mNextCrcError = mSetup.faults.crcErrorsPerS > 0
                            ? mSlot + slotsBetween(mBitRate, mSetup.faults.crcErrorsPerS)
                            : UINT64_MAX;
}

void MultiplexStream::update(MultiplexSetup setup) {
    const bool sameLayout = [&] {
        if (setup.content.services.size() != mSetup.content.services.size()) return false;
        if (setup.others.size() != mSetup.others.size()) return false;
        if (setup.faults.overflowPercent != mSetup.faults.overflowPercent) return false;
        for (size_t i = 0; i < setup.content.services.size(); ++i) {
            const Service& a = setup.content.services[i];
            const Service& b = mSetup.content.services[i];
            if (a.pmtPid != b.pmtPid || a.pcrPid != b.pcrPid || a.scrambled != b.scrambled ||
                a.components.size() != b.components.size()) {
                return false;
            }
        }
        return true;
    }();
    const double oldCrcRate = mSetup.faults.crcErrorsPerS;
    mPreviousSetup = std::move(mSetup);
    mSetup = std::move(setup);
    for (auto& table : mTables) table->stale = true;
    if (!sameLayout) {
        // Tables go on from their versions and counters from where they were, so a receiver
        // sees each table change and no counter jump.
        std::vector<std::unique_ptr<TableEntry>> old = std::move(mTables);
        std::vector<std::pair<uint16_t, uint8_t>> counters;
        for (const ElementaryStream& s : mStreams) counters.push_back({s.pid(), s.lastCc()});
        build();
        for (auto& t : mTables) {
            for (auto& o : old) {
                if (tableKey(*o, false) == tableKey(*t, true)) {
                    t->version = o->version;
                    t->sections = std::move(o->sections);
                }
            }
        }
        for (ElementaryStream& s : mStreams) {
            for (const auto& [pid, cc] : counters) {
                if (pid == s.pid()) s.setNextCc(static_cast<uint8_t>((cc + 1) & 0xF));
            }
        }
    } else if (mSetup.faults.crcErrorsPerS != oldCrcRate) {
        mNextCrcError = mSetup.faults.crcErrorsPerS > 0
                                ? mSlot + slotsBetween(mBitRate, mSetup.faults.crcErrorsPerS)
                                : UINT64_MAX;
    }
}

// What a table is across a change of the layout: its kind and PID, and the service or the
// multiplex it describes.
std::tuple<Table, uint16_t, uint16_t> MultiplexStream::tableKey(const TableEntry& t,
                                                                bool current) const {
    const MultiplexSetup& setup = current ? mSetup : mPreviousSetup;
    uint16_t which = 0;
    if (t.kind == Table::kPmt || t.kind == Table::kEit) {
        which = setup.content.services[t.service].id;
    } else if (t.kind == Table::kSdtOther) {
        which = setup.others[t.service].transportStreamId;
    }
    return {t.kind, t.pid, which};
}

std::vector<Section> MultiplexStream::sectionsOf(const TableEntry& t, uint8_t version) const {
    const MultiplexContent& c = mSetup.content;
    switch (t.kind) {
        case Table::kPat:
            return {patSection(c, version)};
        case Table::kCat:
            return {catSection(version)};
        case Table::kPmt:
            return {pmtSection(c.services[t.service], version)};
        case Table::kNit:
            return nitSections(mSetup.network, version);
        case Table::kSdt:
            return sdtSections(c, true, version);
        case Table::kSdtOther:
            return sdtSections(mSetup.others[t.service], false, version);
        case Table::kEit:
            return eitPfSections(c, c.services[t.service], utcAt(mSlot), version);
        case Table::kTdt:
            return {tdtSection(utcAt(mSlot))};
        case Table::kTot:
            return {totSection(utcAt(mSlot))};
    }
    return {};
}

void MultiplexStream::queueDueTables() {
    uint64_t next = UINT64_MAX;
    for (auto& tp : mTables) {
        TableEntry& t = *tp;
        if (t.nextDue <= mSlot) {
            if (t.cursor == 0) {
                // A table is made anew at the start of each round: content that changed goes
                // out with the next version, so receivers take it.
                const bool timed =
                        t.kind == Table::kEit || t.kind == Table::kTdt || t.kind == Table::kTot;
                if (timed || t.stale || t.sections.empty()) {
                    std::vector<Section> fresh = sectionsOf(t, t.version);
                    if (!t.sections.empty() && fresh != t.sections && hasCrc(t.kind) &&
                        t.kind != Table::kTot) {
                        t.version = (t.version + 1) & 0x1F;
                        fresh = sectionsOf(t, t.version);
                    }
                    t.sections = std::move(fresh);
                    t.stale = false;
                }
                t.periodSlots = std::max<uint64_t>(1, slotsFor(t.periodMs) / t.sections.size());
            }
            if (!mSetup.faults.missing[static_cast<size_t>(t.kind)] && !t.sections.empty()) {
                bool damage = false;
                if (hasCrc(t.kind) && mSlot >= mNextCrcError) {
                    damage = true;
                    mNextCrcError += slotsBetween(mBitRate, mSetup.faults.crcErrorsPerS);
                }
                queueSection(t.sections[t.cursor], t.pid, damage);
            }
            t.cursor = (t.cursor + 1) % std::max<size_t>(1, t.sections.size());
            t.nextDue += t.periodSlots;
        }
        next = std::min(next, t.nextDue);
    }
    mNextTableDue = next;
}

void MultiplexStream::queueSection(const Section& section, uint16_t pid, bool damage) {
    Section copy;
    const Section* s = &section;
    if (damage) {
        copy = section;
        copy.back() ^= 0xFF;  // the CRC's last byte
        s = &copy;
    }
    if (mPsiHead == mPsiQueue.size()) {
        mPsiQueue.clear();
        mPsiHead = 0;
    }
    uint16_t sectionOffset = 0;
    const uint16_t size = static_cast<uint16_t>(s->size());
    while (sectionOffset < size) {
        std::array<uint8_t, kPacketSize> packet{};
        uint8_t tsOffset = 0;
        psi_split_section(packet.data(), &tsOffset, s->data(), &sectionOffset);
        psi_split_end(packet.data(), &tsOffset);
        ts_set_pid(packet.data(), pid);
        ts_set_cc(packet.data(), mPsiCc[pid]);
        mPsiCc[pid] = (mPsiCc[pid] + 1) & 0xF;
        mPsiQueue.push_back(packet);
    }
}

void MultiplexStream::writePcr(uint8_t* p, Pcr& pcr) {
    ts_init(p);
    ts_set_pid(p, pcr.pid);
    ts_set_cc(p, pcr.stream >= 0 ? mStreams[pcr.stream].lastCc() : 0);
    ts_set_adaptation(p, kPacketSize - 5);
    const uint64_t value = pcrAt(mSlot);
    tsaf_set_pcr(p, value / 300);
    tsaf_set_pcrext(p, static_cast<uint16_t>(value % 300));
    pcr.nextDue += slotsFor(kPcrPeriodMs);
}

void MultiplexStream::fill(uint8_t* p) {
    if (mNextTableDue <= mSlot) queueDueTables();
    if (mPsiHead < mPsiQueue.size()) {
        std::memcpy(p, mPsiQueue[mPsiHead++].data(), kPacketSize);
        return;
    }
    if (mNextPcrDue <= mSlot) {
        uint64_t next = UINT64_MAX;
        bool written = false;
        for (Pcr& pcr : mPcrs) {
            if (!written && pcr.nextDue <= mSlot) {
                writePcr(p, pcr);
                written = true;
            }
            next = std::min(next, pcr.nextDue);
        }
        mNextPcrDue = next;
        if (written) return;
    }
    ElementaryStream* due = nullptr;
    for (ElementaryStream& s : mStreams) {
        if (due == nullptr || s.nextDue() < due->nextDue()) due = &s;
    }
    if (due != nullptr && due->nextDue() <= double(mSlot)) {
        // A multiplex given more than it carries falls behind and drops what is too late.
        while (due->nextDue() + double(mMaxLagSlots) < double(mSlot)) {
            due->drop();
            ++mOverflowDrops;
        }
        due->next(p, pcrAt(0) / 300);
        return;
    }
    ts_pad(p);
}

size_t MultiplexStream::produce(uint64_t untilUs, uint8_t* out, size_t maxPackets) {
    const uint64_t end = slotAt(untilUs, mBitRate);
    size_t count = 0;
    for (; mSlot < end && count < maxPackets; ++mSlot, ++count) fill(out + count * kPacketSize);
    return count;
}

void MultiplexStream::skipTo(uint64_t us) {
    const uint64_t slot = slotAt(us, mBitRate);
    if (slot <= mSlot) return;
    mSlot = slot;
    for (ElementaryStream& s : mStreams) s.skipTo(slot);
    for (Pcr& pcr : mPcrs) pcr.nextDue = std::max(pcr.nextDue, slot);
    mNextPcrDue = std::min(mNextPcrDue, slot);
    mPsiQueue.clear();
    mPsiHead = 0;
    for (auto& t : mTables) {
        if (t->nextDue < slot)
            t->nextDue = slot + (t->nextDue % std::max<uint64_t>(1, t->periodSlots));
    }
    mNextTableDue = slot;
    if (mNextCrcError != UINT64_MAX && mNextCrcError < slot) mNextCrcError = slot;
}

}  // namespace mox::air
