// What 64 PID filters on one demux cost against one: the engine's pass over one second of the
// built-in box's DVB-S multiplex (38 Mbit/s, 19 PIDs) with 64 filters, against the same pass with
// one filter, the two taking turns in the same run ("ns"/"floor_ns": one pass; "ratio").
//
// A multiplex carries far fewer than 64 PIDs, so the 64 are: one on every PID it carries of the
// kind (the one filter among them), the rest on PIDs it does not carry, as a client that opened
// filters ahead of what the air sends has. /0: section filters on every PID that carries tables
// (PAT, CAT, NIT, SDT, EIT, TDT, the PMTs) against one on the PAT. /1: TS filters on every PID but
// the null packets' against one on the busiest (a video PID): the 64 then also copy three times
// the packets out, which "delivered_ratio" gives, so this one measures fan-out and output together
// ("ratio_per_delivered_byte" is the ratio over it).
// The sink copies what it is given into a ring the client drains at once.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "AirMultiplex.h"
#include "DemuxSettings.h"
#include "Interleaved.h"
#include "demux/DemuxEngine.h"

namespace {

using namespace mox::demux;
using ::android::hardware::hidl_vec;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterSectionBits;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterSectionSettings;

constexpr size_t kFilters = 64;
constexpr uint16_t kNullPid = 0x1FFF;

class RingSink : public FilterSink {
  public:
    bool write(const uint8_t* data, size_t size) override {
        if (size > mRing.size()) return false;
        if (mAt + size > mRing.size()) mAt = 0;
        std::memcpy(mRing.data() + mAt, data, size);
        mAt += size;
        bytes += size;
        return true;
    }
    size_t fill() const override { return 0; }
    void event(const FilterEvent&) override { ++events; }
    void status(DemuxFilterStatus) override {}

    uint64_t bytes = 0;
    uint64_t events = 0;

  private:
    std::vector<uint8_t> mRing = std::vector<uint8_t>(1 << 20);
    size_t mAt = 0;
};

// Every section of a PID, CRC checked.
DemuxTsFilterSettings anySection(uint16_t pid) {
    return demuxtest::sectionBits(pid, {0x00}, {0x00}, {0x00});
}

// PIDs whose units are PES packets (a unit's payload starts with 00 00 01).
std::vector<bool> pesPids(const std::vector<uint8_t>& packets) {
    std::vector<bool> pes(kPidCount, false);
    for (size_t at = 0; at + kTsPacketSize <= packets.size(); at += kTsPacketSize) {
        const uint8_t* p = &packets[at];
        if ((p[1] & 0x40) == 0 || (p[3] & 0x10) == 0) continue;
        const size_t start = (p[3] & 0x20) ? 5u + p[4] : 4u;
        if (start + 3 <= kTsPacketSize && p[start] == 0 && p[start + 1] == 0 && p[start + 2] == 1)
            pes[(p[1] & 0x1F) << 8 | p[2]] = true;
    }
    return pes;
}

// An engine with its filters started, and their sinks.
struct Demux {
    DemuxEngine engine;
    std::vector<std::unique_ptr<RingSink>> sinks;

    bool add(DemuxTsFilterType type, const DemuxTsFilterSettings& settings) {
        sinks.push_back(std::make_unique<RingSink>());
        FilterResources resources;
        resources.sink = sinks.back().get();
        resources.tracker = FilterStatusTracker::forCapacity(1 << 20);
        uint32_t id = 0;
        return engine.addFilter(type, settings, resources, id) == Result::SUCCESS &&
               engine.start(id) == Result::SUCCESS;
    }
    uint64_t delivered() const {
        uint64_t n = 0;
        for (const auto& s : sinks) n += s->bytes;
        return n;
    }
};

void BM_SixtyFourFiltersAgainstOne(benchmark::State& state) {
    const bench::AirMultiplex air = bench::dvbsMultiplex(1000000);
    if (air.packets.empty()) {
        state.SkipWithError("no DVB-S transponder on the built-in box");
        return;
    }
    const bool sections = state.range(0) == 0;
    const DemuxTsFilterType type = sections ? DemuxTsFilterType::SECTION : DemuxTsFilterType::TS;
    auto settings = [&](uint16_t pid) { return sections ? anySection(pid) : demuxtest::plain(pid); };
    const std::vector<bool> pes = pesPids(air.packets);

    // The carried PIDs of the kind, the one filter's first.
    std::vector<uint16_t> carried;
    uint16_t busiest = 0;
    for (const auto& [pid, count] : air.packetsPerPid) {
        if (pid == kNullPid || (sections && pes[pid])) continue;
        carried.push_back(pid);
        if (count > air.packetsPerPid.at(busiest)) busiest = pid;
    }
    const uint16_t single = sections ? uint16_t(0) : busiest;
    Demux one;
    Demux many;
    bool ok = one.add(type, settings(single)) && many.add(type, settings(single));
    for (uint16_t pid : carried) {
        if (pid != single) ok = ok && many.add(type, settings(pid));
    }
    for (uint16_t pid = 0x1000; ok && many.sinks.size() < kFilters; ++pid) {
        if (air.packetsPerPid.count(pid) == 0) ok = many.add(type, settings(pid));
    }
    if (!ok || many.engine.filterCount() != kFilters) {
        state.SkipWithError("a filter was refused");
        return;
    }
    bench::interleaved(
            state, [&] { many.engine.packets(air.packets.data(), air.packets.size()); },
            [&] { one.engine.packets(air.packets.data(), air.packets.size()); }, 2);
    const double packets = double(air.packets.size() / kTsPacketSize);
    state.counters["ns_per_packet"] = state.counters["ns"] / packets;
    state.counters["floor_ns_per_packet"] = state.counters["floor_ns"] / packets;
    state.counters["carried_pids"] = double(carried.size());
    const double delivered = double(many.delivered()) / double(one.delivered());
    state.counters["delivered_ratio"] = delivered;
    state.counters["ratio_per_delivered_byte"] = state.counters["ratio"] / delivered;
}
BENCHMARK(BM_SixtyFourFiltersAgainstOne)->Arg(0)->Arg(1)->Iterations(200);

}  // namespace
