// A recording across processes against a plain shared-memory relay, in the same run.
//
// Measured ("ns", "mbit_s"): one second of the built-in box's DVB-S multiplex (38 Mbit/s, every
// packet of it) goes from this process into a playback DVR of a demux of the service process (the
// service binary itself), through a record filter on each of the multiplex's PIDs (with the
// payload-unit-start index a recorder asks for in /1, sent to this process as filter events; none
// in /0), into a record DVR whose queue this process reads until all of it is back. The air cannot
// be used: it runs at its own pace on the simulated clock, so a playback DVR is the source and the
// stream moves as fast as the path lets it.
//
// Floor ("floor_ns", "floor_mbit_s"): the same bytes through the same kind of queues (a
// MessageQueue with its event flag, of the same sizes) to a forked process that moves them, a
// chunk of up to as many packets as the playback thread takes at once, into a second ring this
// process reads. Both cross between processes twice with one copy at each end and one in the
// middle; this process writes and reads the same way for both (as much as fits, at most 512
// packets a write, never more in flight than the return queue holds, a bounded wait on its flag
// when nothing moved). What the measured path adds is the service: its playback thread, the
// demux's engine, the record filters and the record DVR's queue and statuses, and the index
// events sent to this process. "ratio" is the medians' ratio, the two taking turns.
//
// Beside them, per pass: "service_cpu_ns" and "relay_cpu_ns", the CPU time the service process and
// the relay used (all their threads), which shows whether a path is bound by work or by waiting;
// "dvr_statuses" and "filter_statuses", the status callbacks a second of stream costs.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <hidl/HidlTransportSupport.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AirMultiplex.h"
#include "Demux.h"
#include "DemuxSettings.h"
#include "Interleaved.h"
#include "ProcessCpu.h"
#include "RingRelay.h"

extern char** environ;

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::EventFlag;
using ::android::hardware::hidl_vec;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using Clock = std::chrono::steady_clock;

constexpr size_t kPlaybackBytes = 1 << 20;
constexpr size_t kRecordBytes = 2 << 20;
constexpr size_t kWritePackets = 512;
using Implementation = ::android::hardware::tv::tuner::V1_0::implementation::Demux;
constexpr size_t kRelayPackets = Implementation::kPlaybackPackets;  // as the playback thread
constexpr int64_t kRelayWaitNs = Implementation::kPlaybackWaitNs;
constexpr int64_t kClientWaitNs = 5'000'000;
constexpr auto kGiveUp = std::chrono::seconds(20);  // a lost packet would never come back
constexpr uint32_t kDataReady = static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY);
constexpr uint32_t kDataConsumed = static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_CONSUMED);

std::string gDirectory;
bench::RingRelay gRelay;
pid_t gService = -1;

// The stream through a pair of queues and back: false when it did not all come back in time.
bool moveThrough(bench::ByteQueue& in, EventFlag* inFlag, bench::ByteQueue& out, EventFlag* outFlag,
                 const std::vector<uint8_t>& stream, std::vector<uint8_t>& back) {
    const size_t total = stream.size();
    const size_t inFlightCap = out.getQuantumCount() / 188 * 188;
    size_t written = 0;
    size_t received = 0;
    const auto deadline = Clock::now() + kGiveUp;
    while (received < total) {
        bool moved = false;
        while (written < total) {
            size_t n = std::min({in.availableToWrite(), inFlightCap - (written - received),
                                 kWritePackets * 188, total - written});
            n = n / 188 * 188;
            if (n == 0 || !in.write(&stream[written], n)) break;
            written += n;
            inFlag->wake(kDataReady);
            moved = true;
        }
        const size_t n = std::min(out.availableToRead(), total - received);
        if (n > 0 && out.read(&back[received], n)) {
            received += n;
            outFlag->wake(kDataConsumed);
            moved = true;
        }
        if (moved) continue;
        if (Clock::now() > deadline) return false;
        uint32_t state = 0;
        outFlag->wait(kDataReady, &state, kClientWaitNs, false);
    }
    return true;
}

class IndexEvents : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        events += event.events.size();
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override {
        ++statuses;
        return Void();
    }
    std::atomic<uint64_t> events{0};
    std::atomic<uint64_t> statuses{0};
};

class DvrStatuses : public IDvrCallback {
  public:
    Return<void> onRecordStatus(DemuxFilterStatus status) override {
        ++statuses;
        if (status == DemuxFilterStatus::OVERFLOW) ++overflows;
        return Void();
    }
    Return<void> onPlaybackStatus(PlaybackStatus) override { return Void(); }
    std::atomic<uint64_t> overflows{0};
    std::atomic<uint64_t> statuses{0};
};

struct OpenDvr {
    sp<IDvr> dvr;
    std::unique_ptr<bench::ByteQueue> queue;
    EventFlag* flag = nullptr;

    OpenDvr(const sp<IDemux>& demux, DvrType type, uint32_t bytes, const sp<IDvrCallback>& cb) {
        demux->openDvr(type, bytes, cb, [&](Result r, const sp<IDvr>& d) {
            if (r == Result::SUCCESS) dvr = d;
        });
        if (dvr == nullptr) return;
        const DvrSettings settings = demuxtest::dvrSettings(type, bytes);
        const Return<Result> configured = dvr->configure(settings);
        if (!configured.isOk() || configured != Result::SUCCESS) {
            dvr = nullptr;
            return;
        }
        dvr->getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& desc) {
            if (r == Result::SUCCESS) queue = std::make_unique<bench::ByteQueue>(desc, false);
        });
        if (!queue || !queue->isValid() ||
            EventFlag::createEventFlag(queue->getEventFlagWord(), &flag) != ::android::OK) {
            dvr = nullptr;
        }
    }
    ~OpenDvr() {
        if (flag != nullptr) EventFlag::deleteEventFlag(&flag);
    }
};

sp<ITuner> service() {
    static sp<ITuner> tuner = [] {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string log = gDirectory + "/service.log";
        posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        const char* argv[] = {SERVICE_BINARY, nullptr};
        const int spawned = posix_spawn(&gService, SERVICE_BINARY, &actions, nullptr,
                                        const_cast<char**>(argv), environ);
        posix_spawn_file_actions_destroy(&actions);
        sp<ITuner> t;
        if (spawned != 0) return t;
        ::android::hardware::configureRpcThreadpool(2, false);
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while ((t = ITuner::getService()) == nullptr && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return t;
    }();
    return tuner;
}

DemuxFilterSettings recordOn(uint16_t pid, bool index) {
    return demuxtest::asFilterSettings(demuxtest::record(
            pid, index ? static_cast<uint32_t>(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR) : 0));
}

void BM_DvrRecordAgainstRingRelay(benchmark::State& state) {
    const bench::AirMultiplex air = bench::dvbsMultiplex(1000000);
    const sp<ITuner> tuner = service();
    if (air.packets.empty() || tuner == nullptr || gRelay.pid <= 0) {
        state.SkipWithError("no multiplex, service or relay");
        return;
    }
    sp<IDemux> demux;
    tuner->openDemux([&](Result r, uint32_t, const sp<IDemux>& d) {
        if (r == Result::SUCCESS) demux = d;
    });
    if (demux == nullptr) {
        state.SkipWithError("openDemux");
        return;
    }
    sp<DvrStatuses> statuses = new DvrStatuses();
    OpenDvr playback(demux, DvrType::PLAYBACK, kPlaybackBytes, statuses);
    OpenDvr record(demux, DvrType::RECORD, kRecordBytes, statuses);
    sp<IndexEvents> index = new IndexEvents();
    std::vector<sp<IFilter>> filters;
    bool ok = playback.dvr != nullptr && record.dvr != nullptr;
    for (const auto& [pid, count] : air.packetsPerPid) {
        if (!ok) break;
        DemuxFilterType type{};
        type.mainType = DemuxFilterMainType::TS;
        type.subType.tsFilterType(DemuxTsFilterType::RECORD);
        sp<IFilter> filter;
        demux->openFilter(type, 64 * 1024, index, [&](Result r, const sp<IFilter>& f) {
            if (r == Result::SUCCESS) filter = f;
        });
        ok = filter != nullptr &&
             filter->configure(recordOn(pid, state.range(0) == 1)) == Result::SUCCESS &&
             record.dvr->attachFilter(filter) == Result::SUCCESS &&
             filter->start() == Result::SUCCESS;
        filters.push_back(filter);
    }
    ok = ok && record.dvr->start() == Result::SUCCESS && playback.dvr->start() == Result::SUCCESS;
    std::vector<uint8_t> back(air.packets.size());
    // Once before the timing, checked: the recording is the stream, byte for byte, both ways.
    ok = ok &&
         moveThrough(*playback.queue, playback.flag, *record.queue, record.flag, air.packets,
                     back) &&
         back == air.packets;
    ok = ok &&
         moveThrough(*gRelay.in, gRelay.inFlag, *gRelay.out, gRelay.outFlag, air.packets, back) &&
         back == air.packets;
    if (!ok) {
        state.SkipWithError("the recording is not the stream");
    } else {
        bool lost = false;
        const uint64_t serviceCpu0 = bench::processCpuNs(gService);
        const uint64_t relayCpu0 = bench::processCpuNs(gRelay.pid);
        bench::interleaved(
                state,
                [&] {
                    lost |= !moveThrough(*playback.queue, playback.flag, *record.queue, record.flag,
                                         air.packets, back);
                },
                [&] {
                    lost |= !moveThrough(*gRelay.in, gRelay.inFlag, *gRelay.out, gRelay.outFlag,
                                         air.packets, back);
                },
                1);
        if (lost) state.SkipWithError("packets were lost on the way");
        // Only the measured passes make the service work, only the floor's the relay.
        const double passes = double(state.iterations());
        state.counters["service_cpu_ns"] =
                double(bench::processCpuNs(gService) - serviceCpu0) / passes;
        state.counters["relay_cpu_ns"] =
                double(bench::processCpuNs(gRelay.pid) - relayCpu0) / passes;
        const double bits = double(air.packets.size()) * 8;
        state.counters["mbit_s"] = bits / state.counters["ns"] * 1000;
        state.counters["floor_mbit_s"] = bits / state.counters["floor_ns"] * 1000;
        state.counters["stream_mbit_s"] = double(air.bitRate) / 1e6;
        state.counters["index_events"] = double(index->events.load());
        state.counters["overflows"] = double(statuses->overflows.load());
        // Callbacks a second of the stream costs, each a message to this process.
        const double withCheck = double(state.iterations()) + 1;
        state.counters["dvr_statuses"] = double(statuses->statuses.load()) / withCheck;
        state.counters["filter_statuses"] = double(index->statuses.load()) / withCheck;
    }
    playback.dvr->stop();
    record.dvr->stop();
    for (auto& f : filters) {
        if (f != nullptr) f->close();
    }
    playback.dvr->close();
    record.dvr->close();
    demux->close();
}
BENCHMARK(BM_DvrRecordAgainstRingRelay)->Arg(0)->Arg(1)->Iterations(60)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // The relay is forked before this process has any thread.
    char dir[] = "/tmp/mox-demux-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    gDirectory = dir;
    setenv("MOX_HIDL_SERVICE_DIR", dir, 1);
    gRelay = bench::startRingRelay(kPlaybackBytes, kRecordBytes, kRelayPackets, kRelayWaitNs);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    bench::stopRingRelay(gRelay);
    if (gService > 0) {
        kill(gService, SIGTERM);
        waitpid(gService, nullptr, 0);
    }
    return 0;
}
