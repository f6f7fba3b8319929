// The simulated driver stays well below a millisecond: loading the largest example installation
// (against reading the file alone), and answering a driver call (against filling the record by
// hand). "of_1ms" is the share of a millisecond the median takes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "Interleaved.h"
#include "simulator/Environment.h"
#include "simulator/SimulatedDriver.h"

namespace {

const std::string kLargestExample = std::string(EXAMPLES_DIR) + "/dish-two-satellites.json";

void BM_LoadInstallationFile(benchmark::State& state) {
    bench::interleaved(
            state, [] { benchmark::DoNotOptimize(mox::sim::loadEnvironmentFile(kLargestExample)); },
            [] {
                std::ifstream in(kLargestExample);
                std::stringstream text;
                text << in.rdbuf();
                benchmark::DoNotOptimize(text.str());
            },
            16);
    state.counters["of_1ms"] = state.counters["ns"] / 1e6;
}
BENCHMARK(BM_LoadInstallationFile)->Iterations(200);

void BM_DriverSignalRead(benchmark::State& state) {
    mox::sim::SimulatedDriver driver;
    const mox::sim::Environment env = mox::sim::loadEnvironmentFile(kLargestExample);
    uint64_t now = 0;
    driver.setClock([&now] { return now; });
    driver.setEnvironment(env.capability, env.air, env.misbehaviour);
    driver.setLnbMode(0, 1);
    MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBS, 0, 1612, 22000000, 0, 0};
    driver.scan(0, param);
    now = 10 * 1000 * 1000;
    bench::interleaved(
            state,
            [&] {
                MOX_TunerSignalInfo_t info;
                memset(&info, 0, sizeof(info));
                driver.getInfo(0, &info);
                benchmark::DoNotOptimize(info);
            },
            [&] {
                MOX_TunerSignalInfo_t info;
                memset(&info, 0, sizeof(info));
                info.lock = 1;
                info.snr = 9.5f;
                info.mer = 8.7f;
                benchmark::DoNotOptimize(info);
            });
    state.counters["of_1ms"] = state.counters["ns"] / 1e6;
}
BENCHMARK(BM_DriverSignalRead)->Iterations(2000);

}  // namespace
