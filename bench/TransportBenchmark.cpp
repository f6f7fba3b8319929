// Calls across processes against the same calls in process, pairs interleaved in one run (see
// Interleaved.h): "ns" is the call to the service process, "floor_ns" the call to a service in
// this process through the passthrough wrapper, "ratio" their quotient.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <benchmark/benchmark.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Passthrough.h>
#include <hidl/transport/Transport.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "Interleaved.h"

extern char** environ;
extern "C" ::android::hardware::tv::tuner::V1_0::ITuner* HIDL_FETCH_ITuner(const char* name);

using ::android::sp;
using ::android::hardware::hidl_vec;
using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// The service binary in a process of its own, for as long as the benchmarks run.
struct ServiceProcess {
    pid_t pid = -1;
    sp<ITuner> remote;
    sp<ITuner> local;

    ServiceProcess() {
        char dir[] = "/tmp/mox-hidl-bench-XXXXXX";
        if (mkdtemp(dir) == nullptr) abort();
        setenv("MOX_HIDL_SERVICE_DIR", dir, 1);
        const char* argv[] = {SERVICE_BINARY, nullptr};
        if (posix_spawn(&pid, SERVICE_BINARY, nullptr, nullptr, const_cast<char**>(argv),
                        environ) != 0) {
            abort();
        }
        ::android::hardware::configureRpcThreadpool(8, false);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while ((remote = ITuner::getService()) == nullptr) {
            if (std::chrono::steady_clock::now() > deadline) abort();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        local = ::android::hardware::details::wrapPassthrough(
                sp<ITuner>(HIDL_FETCH_ITuner("default")));
        remote->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        local->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
    }
    ~ServiceProcess() {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
};

ServiceProcess& service() {
    static ServiceProcess* instance = new ServiceProcess();  // ended by an atexit below
    return *instance;
}

const bool kStopAtExit = [] {
    atexit([] { kill(service().pid, SIGTERM); });
    return true;
}();

void BM_GetFrontendInfo(benchmark::State& state) {
    auto consume = [](Result r, const FrontendInfo& info) {
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(info.type);
    };
    bench::interleaved(
            state, [&] { service().remote->getFrontendInfo(0, consume); },
            [&] { service().local->getFrontendInfo(0, consume); }, 32);
}
BENCHMARK(BM_GetFrontendInfo)->Iterations(200);

sp<IFrontend> frontend(const sp<ITuner>& tuner) {
    sp<IFrontend> f;
    tuner->openFrontendById(2, [&](Result, const sp<IFrontend>& opened) { f = opened; });
    return f;
}

void BM_GetStatusAllTypes(benchmark::State& state) {
    hidl_vec<FrontendStatusType> types;
    for (FrontendStatusType t : ::android::hardware::hidl_enum_range<FrontendStatusType>()) {
        types = [&] {
            std::vector<FrontendStatusType> v = types;
            v.push_back(t);
            return hidl_vec<FrontendStatusType>(v);
        }();
    }
    const sp<IFrontend> remote = frontend(service().remote);
    const sp<IFrontend> local = frontend(service().local);
    auto consume = [](Result r, const hidl_vec<FrontendStatus>& s) {
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(s.data());
    };
    bench::interleaved(
            state, [&] { remote->getStatus(types, consume); },
            [&] { local->getStatus(types, consume); }, 32);
    state.counters["types"] = static_cast<double>(types.size());
}
BENCHMARK(BM_GetStatusAllTypes)->Iterations(200);

void openAndClose(const sp<ITuner>& tuner) {
    sp<IDemux> demux;
    tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
    if (demux != nullptr) demux->close();
}

void BM_OpenAndCloseDemux(benchmark::State& state) {
    bench::interleaved(
            state, [&] { openAndClose(service().remote); }, [&] { openAndClose(service().local); },
            32);
}
BENCHMARK(BM_OpenAndCloseDemux)->Iterations(200);

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

// getFrontendInfo across processes from 1 and from 8 client threads at once: calls per second
// of all threads together (the service runs up to 8 at a time).
void BM_GetFrontendInfoThreads(benchmark::State& state) {
    const sp<ITuner> remote = service().remote;
    auto consume = [](Result r, const FrontendInfo& info) {
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(info.type);
    };
    for (auto _ : state) remote->getFrontendInfo(0, consume);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetFrontendInfoThreads)->Threads(1)->Threads(8)->UseRealTime()->MinTime(1.0);

}  // namespace
BENCHMARK_MAIN();
