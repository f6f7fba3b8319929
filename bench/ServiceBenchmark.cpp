// What the service's own work costs next to the cheapest way to do the same work, pairs
// interleaved in one run (see Interleaved.h).
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cstring>

#include "Interleaved.h"
#include "common/ServiceLog.h"
#include "frontend/Frontend.h"
#include "simulator/SimulatedDriver.h"
#include "tuner/Tuner.h"

using ::android::sp;
using ::android::hardware::hidl_vec;
using namespace ::android::hardware::tv::tuner::V1_0;
using implementation::Frontend;
using implementation::Tuner;

namespace {

constexpr uint8_t kCableTuner = 2;

const std::vector<FrontendStatusType> kMonitorTypes = {
        FrontendStatusType::DEMOD_LOCK,    FrontendStatusType::SNR, FrontendStatusType::BER,
        FrontendStatusType::PRE_BER,       FrontendStatusType::MER, FrontendStatusType::AGC,
        FrontendStatusType::SIGNAL_QUALITY};

// The simulated box's cable frontend, tuned to a multiplex on the air and locked.
sp<Frontend> lockedCableFrontend() {
    static uint64_t nowUs = 0;
    static sp<Frontend> frontend = [] {
        mox::sim::simulator().setClock([] { return nowUs; });
        sp<Tuner> tuner = new Tuner();
        tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBC, MOX_TUNER_BW_8MHZ, 306, 6900000, 3, 2};
        MOX_Tuner_Scan(kCableTuner, param);
        nowUs = 60 * 1000 * 1000;  // long past the lock delay
        MOX_TunerSignalInfo_t info{};
        MOX_Tuner_GetInfo(kCableTuner, &info);
        if (info.lock != 1) abort();
        return tuner->getFrontendById(kCableTuner);
    }();
    return frontend;
}

void consume(Result r, const hidl_vec<FrontendStatus>& s) {
    benchmark::DoNotOptimize(r);
    benchmark::DoNotOptimize(s.data());
}

// getStatus for the seven types a signal monitor asks for, against the same answer built
// directly from the same two driver reads.
void BM_GetStatus(benchmark::State& state) {
    const sp<Frontend> frontend = lockedCableFrontend();
    const hidl_vec<FrontendStatusType> types(kMonitorTypes);
    // Both answers go out through the interface's callback type.
    const IFrontend::getStatus_cb callback = consume;
    bench::interleaved(
            state, [&] { frontend->getStatus(types, callback); },
            [&] {
                MOX_TunerSignalInfo_t info;
                MOX_TunerParamInfo_t param;
                memset(&info, 0, sizeof(info));
                memset(&param, 0, sizeof(param));
                MOX_Tuner_GetInfo(kCableTuner, &info);
                MOX_Tuner_GetParamInfo(kCableTuner, &param);
                hidl_vec<FrontendStatus> s;
                s.resize(7);
                s[0].isDemodLocked(info.lock != 0);
                s[1].snr(static_cast<int32_t>(info.snr * 1000.0f));
                s[2].ber(static_cast<uint32_t>(info.lber * 1e6f));
                s[3].preBer(static_cast<uint32_t>(info.ber * 1e6f));
                s[4].mer(static_cast<int32_t>(info.mer * 1000.0f));
                s[5].agc(static_cast<uint8_t>(info.agc & 0xFF));
                s[6].signalQuality(info.quality);
                callback(Result::SUCCESS, s);
            });
}
BENCHMARK(BM_GetStatus)->Iterations(2000);

// Settings translation against the six fields written directly.
void BM_SettingsTranslation(benchmark::State& state) {
    FrontendDvbcSettings dvbc{};
    dvbc.frequency = 306000000;
    dvbc.symbolRate = 6900000;
    dvbc.modulation = FrontendDvbcModulation::MOD_64QAM;
    dvbc.annex = FrontendDvbcAnnex::A;
    FrontendSettings settings;
    settings.dvbc(dvbc);
    bench::interleaved(
            state,
            [&] {
                MOX_TunerParam_t param;
                memset(&param, 0, sizeof(param));
                Frontend::toMoxTunerParam(FrontendType::DVBC, settings, param);
                benchmark::DoNotOptimize(param);
            },
            [&] {
                MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBC,
                                       MOX_TUNER_BW_8MHZ,
                                       dvbc.frequency / 1000000,
                                       dvbc.symbolRate,
                                       3,
                                       2};
                benchmark::DoNotOptimize(param);
            });
}
BENCHMARK(BM_SettingsTranslation)->Iterations(2000);

// The floor of a log line that is filtered out: a call that does nothing with the same arguments.
__attribute__((noinline)) void emptyLogCall(int priority, const char* tag, const char* fmt,
                                            const char* function, int line, uint32_t id,
                                            const char* lock, float snr) {
    benchmark::DoNotOptimize(priority);
    benchmark::DoNotOptimize(tag);
    benchmark::DoNotOptimize(fmt);
    benchmark::DoNotOptimize(function);
    benchmark::DoNotOptimize(line);
    benchmark::DoNotOptimize(id);
    benchmark::DoNotOptimize(lock);
    benchmark::DoNotOptimize(snr);
}

// A debug line of the tune's poll, with the log at its default priority (debug lines filtered).
void BM_FilteredLogLine(benchmark::State& state) {
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    uint32_t id = 0;
    float snr = 21.5f;
    benchmark::DoNotOptimize(snr);
    bench::interleaved(
            state,
            [&] {
                SERVICE_LOG(ANDROID_LOG_DEBUG, TUNER_LOG_TAG_PREFIX "Frontend", "Frontend",
                            "Tuner:%u lock:%s snr=%.1fdB", id, "true", snr);
            },
            [&] {
                emptyLogCall(ANDROID_LOG_DEBUG, TUNER_LOG_TAG_PREFIX "Frontend",
                             "[Frontend::%s:%d]: Tuner:%u lock:%s snr=%.1fdB", __func__, __LINE__,
                             id, "true", snr);
            });
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
}
BENCHMARK(BM_FilteredLogLine)->Iterations(2000);

}  // namespace

int main(int argc, char** argv) {
    // The service logs every step; the benchmarks measure the work, not the log.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
