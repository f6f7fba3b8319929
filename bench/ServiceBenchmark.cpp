// What the service's own work costs next to the cheapest way to do the same work: each pair runs
// in the same binary, and the service's benchmark reports its time as a multiple of the baseline
// ("ratio").
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>

#include "frontend/Frontend.h"
#include "simulator/SimulatedDriver.h"
#include "tuner/Tuner.h"

using ::android::sp;
using ::android::hardware::hidl_vec;
using namespace ::android::hardware::tv::tuner::V1_0;
using implementation::Frontend;
using implementation::Tuner;

namespace {

double gStatusBaselineNs = 0;
double gParamBaselineNs = 0;

const std::vector<FrontendStatusType> kMonitorTypes = {
        FrontendStatusType::DEMOD_LOCK,    FrontendStatusType::SNR, FrontendStatusType::BER,
        FrontendStatusType::PRE_BER,       FrontendStatusType::MER, FrontendStatusType::AGC,
        FrontendStatusType::SIGNAL_QUALITY};

sp<Frontend> lockedCableFrontend() {
    static sp<Frontend> frontend = [] {
        sp<Tuner> tuner = new Tuner();
        tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBC, MOX_TUNER_BW_8MHZ, 306, 6900000, 3, 2};
        mox::sim::simulator().setClock([] { return uint64_t{1} << 40; });  // long settled
        MOX_Tuner_Scan(2, param);
        return tuner->getFrontendById(2);
    }();
    return frontend;
}

using Clock = std::chrono::steady_clock;

// Wall time per iteration since start, for the ratio between the two benchmarks of a pair.
double nsPerIteration(const benchmark::State& state, Clock::time_point start) {
    const double elapsedNs = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    return elapsedNs / static_cast<double>(state.iterations());
}

// The baseline: one driver read and the conversions done by hand, no list, no union.
void BM_StatusDirectDriverRead(benchmark::State& state) {
    lockedCableFrontend();
    const auto start = Clock::now();
    for (auto _ : state) {
        MOX_TunerSignalInfo_t info;
        memset(&info, 0, sizeof(info));
        MOX_Tuner_GetInfo(2, &info);
        int32_t values[7] = {
                static_cast<int32_t>(info.lock != 0),     static_cast<int32_t>(info.snr * 1000.0f),
                static_cast<int32_t>(info.lber * 1e6f),   static_cast<int32_t>(info.ber * 1e6f),
                static_cast<int32_t>(info.mer * 1000.0f), static_cast<int32_t>(info.agc & 0xFF),
                static_cast<int32_t>(info.quality)};
        benchmark::DoNotOptimize(values);
    }
    gStatusBaselineNs = nsPerIteration(state, start);
}
BENCHMARK(BM_StatusDirectDriverRead);

void BM_StatusThroughGetStatus(benchmark::State& state) {
    sp<Frontend> frontend = lockedCableFrontend();
    const hidl_vec<FrontendStatusType> types(kMonitorTypes);
    const auto start = Clock::now();
    for (auto _ : state) {
        frontend->getStatus(types, [](Result r, const hidl_vec<FrontendStatus>& s) {
            benchmark::DoNotOptimize(r);
            benchmark::DoNotOptimize(s.data());
        });
    }
    const double ns = nsPerIteration(state, start);
    if (gStatusBaselineNs > 0) state.counters["ratio"] = ns / gStatusBaselineNs;
}
BENCHMARK(BM_StatusThroughGetStatus);

// The baseline: the six fields written directly.
void BM_TuningRecordByHand(benchmark::State& state) {
    const auto start = Clock::now();
    for (auto _ : state) {
        MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBC, MOX_TUNER_BW_8MHZ, 306, 6900000, 3, 2};
        benchmark::DoNotOptimize(param);
    }
    gParamBaselineNs = nsPerIteration(state, start);
}
BENCHMARK(BM_TuningRecordByHand);

void BM_TuningRecordThroughTranslation(benchmark::State& state) {
    FrontendDvbcSettings dvbc;
    dvbc.frequency = 306000000;
    dvbc.symbolRate = 6900000;
    dvbc.modulation = FrontendDvbcModulation::MOD_64QAM;
    dvbc.annex = FrontendDvbcAnnex::A;
    FrontendSettings settings;
    settings.dvbc(dvbc);
    const auto start = Clock::now();
    for (auto _ : state) {
        MOX_TunerParam_t param;
        memset(&param, 0, sizeof(param));
        Frontend::toMoxTunerParam(FrontendType::DVBC, settings, param);
        benchmark::DoNotOptimize(param);
    }
    const double ns = nsPerIteration(state, start);
    if (gParamBaselineNs > 0) state.counters["ratio"] = ns / gParamBaselineNs;
}
BENCHMARK(BM_TuningRecordThroughTranslation);

}  // namespace

int main(int argc, char** argv) {
    // The service logs every step; the benchmark measures the work, not the log.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
