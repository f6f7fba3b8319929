// How long stopScan takes to return, in real time on the simulated driver with the device's poll
// wait: scans on all three paths (DVB-T and DVB-S that never lock, a DVB-C blind sweep) stopped at
// points spread over their first poll waits, including the moment a wait has just begun. The
// floor, interleaved with each stop, is a stopScan with no scan to stop.
#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>

#include "Interleaved.h"
#include "frontend/Frontend.h"
#include "simulator/SimulatedDriver.h"
#include "tuner/Tuner.h"

using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;
using namespace ::android::hardware::tv::tuner::V1_0;
using implementation::Frontend;
using implementation::Tuner;

namespace {

using Clock = std::chrono::steady_clock;

class SilentCallback : public IFrontendCallback {
  public:
    Return<void> onEvent(FrontendEventType) override { return Void(); }
    Return<void> onScanMessage(FrontendScanMessageType, const FrontendScanMessage&) override {
        return Void();
    }
};

struct Path {
    uint32_t frontendId;
    FrontendSettings settings;
    FrontendScanType type;
};

std::vector<Path> paths() {
    FrontendDvbtSettings t{};
    t.frequency = 530000000;  // nothing on the air there
    t.bandwidth = FrontendDvbtBandwidth::BANDWIDTH_8MHZ;
    t.standard = FrontendDvbtStandard::T;
    FrontendDvbcSettings c{};
    c.frequency = 600000000;
    FrontendDvbsSettings s{};
    s.frequency = 1700000000;
    s.symbolRate = 27500000;
    s.standard = FrontendDvbsStandard::S2;
    std::vector<Path> out(3);
    out[0].frontendId = 0;
    out[0].settings.dvbt(t);
    out[0].type = FrontendScanType::SCAN_AUTO;
    out[1].frontendId = 3;
    out[1].settings.dvbs(s);
    out[1].type = FrontendScanType::SCAN_AUTO;
    out[2].frontendId = 2;
    out[2].settings.dvbc(c);
    out[2].type = FrontendScanType::SCAN_BLIND;
    return out;
}

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(p * static_cast<double>(values.size() - 1))];
}

void BM_StopScanLatency(benchmark::State& state) {
    sp<Tuner> tuner = new Tuner();
    tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
    const sp<IFrontendCallback> callback = new SilentCallback();
    // Microseconds after scan(): before the thread runs, early in the first wait, just before,
    // at and just after its end (the second wait has just begun), and later.
    const uint32_t stopPointsUs[] = {0,      50,     200,    1000,   5000,   20000,
                                     100000, 199000, 200000, 200200, 201000, 230000};
    std::vector<double> stopsMs;
    std::vector<double> floorsMs;
    for (auto _ : state) {
        for (const Path& path : paths()) {
            const sp<Frontend> frontend = tuner->getFrontendById(path.frontendId);
            frontend->setCallback(callback);
            for (uint32_t pointUs : stopPointsUs) {
                auto start = Clock::now();
                frontend->stopScan();
                floorsMs.push_back(msSince(start));
                frontend->scan(path.settings, path.type);
                std::this_thread::sleep_for(std::chrono::microseconds(pointUs));
                start = Clock::now();
                frontend->stopScan();
                stopsMs.push_back(msSince(start));
            }
        }
    }
    state.counters["stops"] = static_cast<double>(stopsMs.size());
    state.counters["p50_ms"] = percentile(stopsMs, 0.5);
    state.counters["p99_ms"] = percentile(stopsMs, 0.99);
    state.counters["max_ms"] = percentile(stopsMs, 1.0);
    state.counters["floor_p50_ms"] = percentile(floorsMs, 0.5);
    state.counters["ratio"] = percentile(stopsMs, 0.5) / percentile(floorsMs, 0.5);
}
BENCHMARK(BM_StopScanLatency)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
