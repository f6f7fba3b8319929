// Calls to the service process against their floors, measured in one run, call by call, the three
// taking turns in runs of 16: "ns"/"p99_ns" is the call through the interface to the service process,
// "handoff_ns" a Unix-socket round trip of the same request and reply sizes to a process whose
// reading thread hands each request to a pool thread that replies, "raw_ns" the same round trip
// answered by the reading thread. "ratio" is the call's median over the handoff floor's. Each runs
// unpinned (/0) and with every thread of the three processes pinned to one core (/1).
// "allocs" and "service_allocs" are heap allocations per call in this process and in the service.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Passthrough.h>
#include <hidl/transport/Transport.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <tunerWire.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "FloorServer.h"
#include "Frame.h"
#include "Interleaved.h"

extern char** environ;
extern "C" ::android::hardware::tv::tuner::V1_0::ITuner* HIDL_FETCH_ITuner(const char* name);

using ::android::sp;
using ::android::hardware::hidl_vec;
using namespace ::android::hardware::tv::tuner::V1_0;
using Clock = std::chrono::steady_clock;

namespace {

std::string gDirectory;
pid_t gFloorPid = -1;

// The service binary in a process of its own, for as long as the benchmarks run.
struct ServiceProcess {
    pid_t pid = -1;
    std::string probe;
    sp<ITuner> remote;
    sp<ITuner> local;

    ServiceProcess() {
        probe = gDirectory + "/allocations";
        setenv("MOX_ALLOCATION_PROBE", probe.c_str(), 1);
        const char* argv[] = {SERVICE_BINARY, nullptr};
        if (posix_spawn(&pid, SERVICE_BINARY, nullptr, nullptr, const_cast<char**>(argv),
                        environ) != 0) {
            abort();
        }
        unsetenv("MOX_ALLOCATION_PROBE");
        ::android::hardware::configureRpcThreadpool(8, false);
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while ((remote = ITuner::getService()) == nullptr) {
            if (Clock::now() > deadline) abort();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        local = ::android::hardware::details::wrapPassthrough(
                sp<ITuner>(HIDL_FETCH_ITuner("default")));
        remote->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        local->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
    }
    // The service's allocations so far, as its probe reports them.
    uint64_t allocations() const {
        unlink(probe.c_str());
        kill(pid, SIGUSR1);
        for (int i = 0; i < 1000; ++i) {
            std::ifstream in(probe);
            uint64_t count = 0;
            if (in >> count) return count;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return 0;
    }
};

ServiceProcess& service() {
    static ServiceProcess* instance = new ServiceProcess();
    return *instance;
}

// Every thread of a process on the given cores (threads made later inherit their maker's).
void pinProcess(pid_t pid, const cpu_set_t& cores) {
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    if (DIR* dir = opendir(tasks.c_str())) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            sched_setaffinity(pid_t(atoi(entry->d_name)), sizeof(cores), &cores);
        }
        closedir(dir);
    }
}

void pinAll(bool oneCore) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    const int n = oneCore ? 1 : int(std::thread::hardware_concurrency());
    for (int i = 0; i < n; ++i) CPU_SET(i, &cores);
    pinProcess(getpid(), cores);
    pinProcess(service().pid, cores);
    pinProcess(gFloorPid, cores);
}

// The bytes on the wire of a call's request or reply, as the transport frames them.
template <typename Fill>
size_t frameBytes(Fill fill) {
    capnp::MallocMessageBuilder message;
    const bool empty = fill(message);
    ::android::hardware::details::FrameHeader header{};
    ::android::hardware::details::OutgoingFrame frame;
    frame.build(header, empty ? nullptr : &message);
    return frame.bytes();
}

struct Trip {
    size_t request;
    size_t reply;
};

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// The call and its two floors, one after the other, call by call.
template <typename Call>
void againstFloors(benchmark::State& state, Call call, const std::vector<Trip>& trips) {
    pinAll(state.range(0) == 1);
    bench::FloorClient raw(gDirectory + "/floor", bench::FloorKind::kRaw);
    bench::FloorClient handoff(gDirectory + "/floor", bench::FloorKind::kHandoff);
    auto timed = [](auto&& f) {
        const auto t0 = Clock::now();
        f();
        return std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
    };
    std::vector<double> callNs, rawNs, handoffNs;
    uint64_t allocations = 0;
    const uint64_t serviceBefore = service().allocations();
    // Runs of kRun calls of each kind take turns, so all three meet the cores in the same states.
    constexpr int kRun = 16;
    for (auto _ : state) {
        for (int i = 0; i < kRun; ++i) {
            rawNs.push_back(timed([&] {
                for (const Trip& t : trips) raw.roundTrip(t.request, t.reply);
            }));
        }
        for (int i = 0; i < kRun; ++i) {
            handoffNs.push_back(timed([&] {
                for (const Trip& t : trips) handoff.roundTrip(t.request, t.reply);
            }));
        }
        const uint64_t a0 = bench::allocations();
        for (int i = 0; i < kRun; ++i) callNs.push_back(timed(call));
        allocations += bench::allocations() - a0;
    }
    const uint64_t serviceAllocations = service().allocations() - serviceBefore;
    pinAll(false);
    const double calls = double(state.iterations()) * kRun;
    state.counters["ns"] = percentile(callNs, 0.5);
    state.counters["p99_ns"] = percentile(callNs, 0.99);
    state.counters["handoff_ns"] = percentile(handoffNs, 0.5);
    state.counters["handoff_p99_ns"] = percentile(handoffNs, 0.99);
    state.counters["raw_ns"] = percentile(rawNs, 0.5);
    state.counters["raw_p99_ns"] = percentile(rawNs, 0.99);
    state.counters["ratio"] = percentile(callNs, 0.5) / percentile(handoffNs, 0.5);
    state.counters["allocs"] = double(allocations) / calls;
    // The probe's own reads cost the service nothing: it answers from a signal handler.
    state.counters["service_allocs"] = double(serviceAllocations) / calls;
}

FrontendInfo localInfo() {
    FrontendInfo info{};
    service().local->getFrontendInfo(0, [&](Result, const FrontendInfo& i) { info = i; });
    return info;
}

void BM_GetFrontendInfo(benchmark::State& state) {
    const FrontendInfo info = localInfo();
    const Trip trip{
            frameBytes([](capnp::MessageBuilder& m) {
                m.initRoot<::wire::tuner::ITunerGetFrontendInfoParams>().setFrontendId(0);
                return false;
            }),
            frameBytes([&](capnp::MessageBuilder& m) {
                ::wire::tuner::toWire(
                        info, m.initRoot<::wire::tuner::ITunerGetFrontendInfoResults>().initInfo());
                return false;
            })};
    const sp<ITuner> remote = service().remote;
    againstFloors(state,
                  [&] {
                      remote->getFrontendInfo(0, [](Result r, const FrontendInfo& i) {
                          benchmark::DoNotOptimize(r);
                          benchmark::DoNotOptimize(i.type);
                      });
                  },
                  {trip});
    state.counters["request_bytes"] = double(trip.request);
    state.counters["reply_bytes"] = double(trip.reply);
}
BENCHMARK(BM_GetFrontendInfo)->Arg(0)->Arg(1)->Iterations(400);

sp<IFrontend> frontend(const sp<ITuner>& tuner) {
    sp<IFrontend> f;
    tuner->openFrontendById(2, [&](Result, const sp<IFrontend>& opened) { f = opened; });
    return f;
}

hidl_vec<FrontendStatusType> allStatusTypes() {
    std::vector<FrontendStatusType> types;
    for (FrontendStatusType t : ::android::hardware::hidl_enum_range<FrontendStatusType>()) {
        types.push_back(t);
    }
    return types;
}

void BM_GetStatusAllTypes(benchmark::State& state) {
    const hidl_vec<FrontendStatusType> types = allStatusTypes();
    hidl_vec<FrontendStatus> statuses;
    frontend(service().local)->getStatus(types, [&](Result, const hidl_vec<FrontendStatus>& s) {
        statuses = s;
    });
    const Trip trip{
            frameBytes([&](capnp::MessageBuilder& m) {
                auto list = m.initRoot<::wire::tuner::IFrontendGetStatusParams>().initStatusTypes(
                        unsigned(types.size()));
                for (unsigned i = 0; i < types.size(); ++i) list.set(i, int32_t(types[i]));
                return false;
            }),
            frameBytes([&](capnp::MessageBuilder& m) {
                auto list = m.initRoot<::wire::tuner::IFrontendGetStatusResults>().initStatuses(
                        unsigned(statuses.size()));
                for (unsigned i = 0; i < statuses.size(); ++i) {
                    ::wire::tuner::toWire(statuses[i], list[i]);
                }
                return false;
            })};
    const sp<IFrontend> remote = frontend(service().remote);
    againstFloors(state,
                  [&] {
                      remote->getStatus(types, [](Result r, const hidl_vec<FrontendStatus>& s) {
                          benchmark::DoNotOptimize(r);
                          benchmark::DoNotOptimize(s.data());
                      });
                  },
                  {trip});
    state.counters["types"] = double(types.size());
}
BENCHMARK(BM_GetStatusAllTypes)->Arg(0)->Arg(1)->Iterations(400);

void BM_OpenAndCloseDemux(benchmark::State& state) {
    const size_t empty = frameBytes([](capnp::MessageBuilder&) { return true; });
    const Trip open{empty, frameBytes([](capnp::MessageBuilder& m) {
                        auto r = m.initRoot<::wire::tuner::ITunerOpenDemuxResults>();
                        r.setDemuxId(1);
                        r.setDemux(2);
                        return false;
                    })};
    const Trip close{empty, frameBytes([](capnp::MessageBuilder& m) {
                         m.initRoot<::wire::tuner::IDemuxCloseResults>();
                         return false;
                     })};
    const sp<ITuner> remote = service().remote;
    againstFloors(state,
                  [&] {
                      sp<IDemux> demux;
                      remote->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
                      if (demux != nullptr) demux->close();
                  },
                  {open, close});
}
BENCHMARK(BM_OpenAndCloseDemux)->Arg(0)->Arg(1)->Iterations(200);

// A scan message from the service to a client's callback: a oneway call, delivered on the
// client's pool. Across: a proxy of the callback over a socket to this process's own stub (the
// full transport path, both directions in one process); in process: the passthrough wrapper.
// Each sample is the time until the last of a burst of 64 messages has arrived.
struct CountingCallback : IFrontendCallback {
    std::mutex lock;
    std::condition_variable arrived;
    uint64_t count = 0;
    ::android::hardware::Return<void> onEvent(FrontendEventType) override {
        return ::android::hardware::Void();
    }
    ::android::hardware::Return<void> onScanMessage(FrontendScanMessageType,
                                                    const FrontendScanMessage&) override {
        std::lock_guard<std::mutex> guard(lock);
        ++count;
        arrived.notify_all();
        return ::android::hardware::Void();
    }
    void waitFor(uint64_t n) {
        std::unique_lock<std::mutex> guard(lock);
        arrived.wait(guard, [&] { return count >= n; });
    }
};

void BM_ScanMessageDelivery(benchmark::State& state) {
    constexpr int kBurst = 64;
    sp<CountingCallback> acrossTarget = new CountingCallback();
    sp<CountingCallback> localTarget = new CountingCallback();
    using ::android::hardware::details::connectToService;
    using ::android::hardware::details::publishService;
    if (publishService(acrossTarget, IFrontendCallback::descriptor, "bench") != ::android::OK) {
        state.SkipWithError("publish");
        return;
    }
    sp<IFrontendCallback> across =
            IFrontendCallback::castFrom(connectToService(IFrontendCallback::descriptor, "bench"));
    sp<IFrontendCallback> local =
            ::android::hardware::details::wrapPassthrough(sp<IFrontendCallback>(localTarget));
    FrontendScanMessage message;
    message.progressPercent(42);
    uint64_t acrossSent = 0;
    uint64_t localSent = 0;
    bench::interleaved(
            state,
            [&] {
                for (int i = 0; i < kBurst; ++i) {
                    across->onScanMessage(FrontendScanMessageType::PROGRESS_PERCENT, message);
                }
                acrossTarget->waitFor(acrossSent += kBurst);
            },
            [&] {
                for (int i = 0; i < kBurst; ++i) {
                    local->onScanMessage(FrontendScanMessageType::PROGRESS_PERCENT, message);
                }
                localTarget->waitFor(localSent += kBurst);
            },
            4);
    state.counters["burst"] = kBurst;
}
BENCHMARK(BM_ScanMessageDelivery)->Iterations(100);

// getFrontendInfo from 1, 8 and 16 client threads at once, in rounds that take turns: calls per
// second of all threads together, medians over the rounds, and the gain over one thread.
double callsPerSecond(int threads, std::chrono::milliseconds span) {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> calls{0};
    std::vector<std::thread> clients;
    const sp<ITuner> remote = service().remote;
    for (int i = 0; i < threads; ++i) {
        clients.emplace_back([&] {
            uint64_t mine = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                remote->getFrontendInfo(0, [](Result, const FrontendInfo&) {});
                ++mine;
            }
            calls += mine;
        });
    }
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(span);
    stop = true;
    for (auto& c : clients) c.join();
    return double(calls) / std::chrono::duration<double>(Clock::now() - t0).count();
}

void BM_GetFrontendInfoThreads(benchmark::State& state) {
    std::vector<double> one, eight, sixteen;
    for (auto _ : state) {
        one.push_back(callsPerSecond(1, std::chrono::milliseconds(300)));
        eight.push_back(callsPerSecond(8, std::chrono::milliseconds(300)));
        sixteen.push_back(callsPerSecond(16, std::chrono::milliseconds(300)));
    }
    state.counters["calls_per_s_1"] = bench::median(one);
    state.counters["calls_per_s_8"] = bench::median(eight);
    state.counters["calls_per_s_16"] = bench::median(sixteen);
    state.counters["gain_8"] = bench::median(eight) / bench::median(one);
    state.counters["gain_16"] = bench::median(sixteen) / bench::median(one);
}
BENCHMARK(BM_GetFrontendInfoThreads)->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // The floor process is forked before this one has any thread.
    char dir[] = "/tmp/mox-hidl-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    gDirectory = dir;
    setenv("MOX_HIDL_SERVICE_DIR", dir, 1);
    gFloorPid = bench::startFloorServer(gDirectory + "/floor");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    kill(service().pid, SIGTERM);
    kill(gFloorPid, SIGTERM);
    waitpid(service().pid, nullptr, 0);
    waitpid(gFloorPid, nullptr, 0);
    return 0;
}
