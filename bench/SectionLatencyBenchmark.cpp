// How long a section takes from the demux to its client: the built-in box's DVB-S multiplex
// (38 Mbit/s) handed to a demux of the service, in process, in the pieces its input reads
// (1024 packets, /1024) and in small ones (/64), with a section filter on every PID that carries
// tables. A section's time runs from the moment the piece holding its last packet is handed to
// the demux to the moment its client's callback has read the section's bytes from the filter's
// queue: "p50_us"/"p99_us". The floor, piece by piece in the same run: the demux's packet engine
// alone, with the same filters, from the same hand-over until its sink has the section
// ("floor_p50_us"/"floor_p99_us"); "direct_call_ns" is the client's callback called directly with
// a section event. "within_1ms" is 1 when the p99 is at most a millisecond.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <benchmark/benchmark.h>
#include <fmq/MessageQueue.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <vector>

#include "AirMultiplex.h"
#include "Demux.h"
#include "DemuxSettings.h"
#include "demux/DemuxEngine.h"

extern "C" ::android::hardware::tv::tuner::V1_0::ITuner* HIDL_FETCH_ITuner(const char* name);

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using Clock = std::chrono::steady_clock;
using Queue = MessageQueue<uint8_t, kSynchronizedReadWrite>;

constexpr uint32_t kQueueBytes = 1 << 20;

// Each section's arrival: its bytes read from the queue, then the time taken.
class ArrivalClock : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        for (const auto& e : event.events) {
            if (e.getDiscriminator() != DemuxFilterEvent::Event::hidl_discriminator::section)
                continue;
            const size_t n = e.section().dataLength;
            if (queue == nullptr || n > mBytes.size() || !queue->read(mBytes.data(), n)) {
                ++lost;
                continue;
            }
            arrivals.push_back(Clock::now());
        }
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }

    std::unique_ptr<Queue> queue;
    std::vector<Clock::time_point> arrivals;
    uint64_t lost = 0;

  private:
    std::vector<uint8_t> mBytes = std::vector<uint8_t>(4096);
};

// The engine's side of the floor: the time each section is in the sink.
class TimingSink : public mox::demux::FilterSink {
  public:
    bool write(const uint8_t*, size_t) override { return true; }
    size_t fill() const override { return 0; }
    void event(const mox::demux::FilterEvent&) override { arrivals->push_back(Clock::now()); }
    void status(DemuxFilterStatus) override {}
    std::vector<Clock::time_point>* arrivals = nullptr;
};

// Every section of a PID, CRC checked.
DemuxTsFilterSettings anySection(uint16_t pid) {
    return demuxtest::sectionBits(pid, {0x00}, {0x00}, {0x00});
}

// PIDs that carry tables: a unit start whose payload is not a PES packet's.
std::vector<uint16_t> tablePids(const std::vector<uint8_t>& packets) {
    std::vector<int> kind(mox::demux::kPidCount, 0);  // 1 tables, 2 PES
    for (size_t at = 0; at + 188 <= packets.size(); at += 188) {
        const uint8_t* p = &packets[at];
        const uint16_t pid = uint16_t((p[1] & 0x1F) << 8 | p[2]);
        if ((p[1] & 0x40) == 0 || (p[3] & 0x10) == 0 || pid == 0x1FFF) continue;
        const size_t start = (p[3] & 0x20) ? 5u + p[4] : 4u;
        const bool pes = start + 3 <= 188 && p[start] == 0 && p[start + 1] == 0 && p[start + 2] == 1;
        if (kind[pid] == 0) kind[pid] = pes ? 2 : 1;
    }
    std::vector<uint16_t> pids;
    for (uint16_t pid = 0; pid < mox::demux::kPidCount; ++pid) {
        if (kind[pid] == 1) pids.push_back(pid);
    }
    return pids;
}

double percentileUs(std::vector<double> ns, double p) {
    if (ns.empty()) return 0;
    std::sort(ns.begin(), ns.end());
    return ns[std::min(ns.size() - 1, size_t(p * double(ns.size())))] / 1000;
}

using Implementation = ::android::hardware::tv::tuner::V1_0::implementation::Demux;

void BM_SectionLatency(benchmark::State& state) {
    const size_t piece = size_t(state.range(0)) * 188;
    const bench::AirMultiplex air = bench::dvbsMultiplex(1000000);
    static sp<ITuner> tuner = HIDL_FETCH_ITuner("default");
    sp<IDemux> opened;
    if (tuner != nullptr) {
        tuner->openDemux([&](Result r, uint32_t, const sp<IDemux>& d) {
            if (r == Result::SUCCESS) opened = d;
        });
    }
    if (air.packets.empty() || opened == nullptr) {
        state.SkipWithError("no multiplex or no demux");
        return;
    }
    // This benchmark measures the demux itself: it is the service's class, in process.
    Implementation* demux = static_cast<Implementation*>(opened.get());

    const std::vector<uint16_t> pids = tablePids(air.packets);
    std::vector<sp<ArrivalClock>> clocks;
    std::vector<sp<IFilter>> filters;
    std::vector<Clock::time_point> floorArrivals;
    std::vector<std::unique_ptr<TimingSink>> sinks;
    mox::demux::DemuxEngine engine;
    for (uint16_t pid : pids) {
        sp<ArrivalClock> clock = new ArrivalClock();
        DemuxFilterType type{};
        type.mainType = DemuxFilterMainType::TS;
        type.subType.tsFilterType(DemuxTsFilterType::SECTION);
        sp<IFilter> filter;
        opened->openFilter(type, kQueueBytes, clock, [&](Result r, const sp<IFilter>& f) {
            if (r == Result::SUCCESS) filter = f;
        });
        DemuxFilterSettings settings;
        settings.ts(anySection(pid));
        if (filter == nullptr || filter->configure(settings) != Result::SUCCESS) break;
        filter->getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& desc) {
            if (r == Result::SUCCESS) clock->queue = std::make_unique<Queue>(desc, false);
        });
        if (filter->start() != Result::SUCCESS || !clock->queue || !clock->queue->isValid()) break;
        clocks.push_back(clock);
        filters.push_back(filter);

        sinks.push_back(std::make_unique<TimingSink>());
        sinks.back()->arrivals = &floorArrivals;
        mox::demux::FilterResources resources;
        resources.sink = sinks.back().get();
        resources.tracker = mox::demux::FilterStatusTracker::forCapacity(kQueueBytes);
        uint32_t id = 0;
        if (engine.addFilter(DemuxTsFilterType::SECTION, anySection(pid), resources, id) !=
                    Result::SUCCESS ||
            engine.start(id) != Result::SUCCESS) {
            break;
        }
    }
    if (clocks.size() != pids.size() || pids.empty()) {
        state.SkipWithError("a filter was refused");
        return;
    }

    std::vector<double> latencyNs, floorNs;
    auto collect = [](std::vector<Clock::time_point>& arrivals, Clock::time_point handed,
                      std::vector<double>& into) {
        for (const auto& at : arrivals) {
            into.push_back(std::chrono::duration<double, std::nano>(at - handed).count());
        }
        arrivals.clear();
    };
    for (auto _ : state) {
        for (size_t at = 0; at < air.packets.size(); at += piece) {
            const size_t n = std::min(piece, air.packets.size() - at);
            const auto t0 = Clock::now();
            engine.packets(&air.packets[at], n);
            collect(floorArrivals, t0, floorNs);
            const auto t1 = Clock::now();
            demux->feedForTest(&air.packets[at], n);
            for (auto& clock : clocks) collect(clock->arrivals, t1, latencyNs);
        }
    }
    uint64_t lost = 0;
    for (auto& clock : clocks) lost += clock->lost;
    // The callback alone, called directly with a section event.
    DemuxFilterEvent event{};
    event.events.resize(1);
    DemuxFilterSectionEvent section{};
    section.tableId = 0;
    section.dataLength = 0;
    event.events[0].section(section);
    std::vector<double> directNs;
    for (int i = 0; i < 1000; ++i) {
        const auto t0 = Clock::now();
        clocks[0]->onFilterEvent(event);
        directNs.push_back(std::chrono::duration<double, std::nano>(Clock::now() - t0).count());
    }
    for (auto& filter : filters) filter->close();
    opened->close();

    const double p99 = percentileUs(latencyNs, 0.99);
    state.counters["sections"] = double(latencyNs.size());
    state.counters["floor_sections"] = double(floorNs.size());
    state.counters["lost"] = double(lost);
    state.counters["p50_us"] = percentileUs(latencyNs, 0.5);
    state.counters["p99_us"] = p99;
    state.counters["floor_p50_us"] = percentileUs(floorNs, 0.5);
    state.counters["floor_p99_us"] = percentileUs(floorNs, 0.99);
    state.counters["direct_call_ns"] = percentileUs(directNs, 0.5) * 1000;
    state.counters["ratio_p99"] = p99 / percentileUs(floorNs, 0.99);
    state.counters["within_1ms"] = p99 <= 1000 ? 1 : 0;
    state.counters["table_pids"] = double(pids.size());
}
BENCHMARK(BM_SectionLatency)->Arg(1024)->Arg(64)->Iterations(30);

}  // namespace
