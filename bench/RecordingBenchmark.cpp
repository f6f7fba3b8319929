// A driver call through the recording layer against the same call straight to the driver (the
// simulator), interleaved: what recording adds to a call, and that the caller never writes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "Interleaved.h"
#include "driver/MoxTuner.h"
#include "recorder/RealDriver.h"
#include "recorder/TraceRecorder.h"

namespace {

// Calls come in chunks of 64 with 2 ms between them (some 30 000 a second, more than a service
// makes): the writer keeps up, so every call measured is recorded, none dropped.
constexpr int kChunk = 64;
void pace() {
    usleep(2000);
}

void getInfoWrapped() {
    MOX_TunerSignalInfo_t info;
    memset(&info, 0, sizeof(info));
    benchmark::DoNotOptimize(MOX_Tuner_GetInfo(0, &info));
}

void getInfoDirect() {
    MOX_TunerSignalInfo_t info;
    memset(&info, 0, sizeof(info));
    benchmark::DoNotOptimize(__real_MOX_Tuner_GetInfo(0, &info));
}

long writesOfThisThread() {
    std::ifstream io("/proc/thread-self/io");
    std::string key;
    long value = 0;
    while (io >> key >> value) {
        if (key == "syscw:") return value;
    }
    return -1;
}

// The recorder writing to a scratch file for the length of one benchmark.
class Recording {
  public:
    Recording() {
        char path[] = "/tmp/recording-benchmark-XXXXXX";
        close(mkstemp(path));
        unlink(path);
        mPath = path;
        mRecorder = mox::trace::FileRecorder::open(mPath);
        mox::trace::setActiveSink(mRecorder);
    }
    ~Recording() {
        mox::trace::setActiveSink(nullptr);
        delete mRecorder;
        unlink(mPath.c_str());
    }
    uint64_t dropped() const { return mRecorder->dropped(); }

  private:
    std::string mPath;
    mox::trace::FileRecorder* mRecorder;
};

void BM_GetInfoRecordedVsDirect(benchmark::State& state) {
    Recording recording;
    const long writesBefore = writesOfThisThread();
    bench::interleaved(state, getInfoWrapped, getInfoDirect, kChunk, pace);
    state.counters["added_ns"] = state.counters["ns"] - state.counters["floor_ns"];
    state.counters["caller_writes"] = static_cast<double>(writesOfThisThread() - writesBefore);
    state.counters["dropped"] = static_cast<double>(recording.dropped());
}

void BM_IsLockedRecordedVsDirect(benchmark::State& state) {
    Recording recording;
    const long writesBefore = writesOfThisThread();
    bench::interleaved(
            state, [] { benchmark::DoNotOptimize(MOX_Tuner_IsLocked(0)); },
            [] { benchmark::DoNotOptimize(__real_MOX_Tuner_IsLocked(0)); }, kChunk, pace);
    state.counters["added_ns"] = state.counters["ns"] - state.counters["floor_ns"];
    state.counters["caller_writes"] = static_cast<double>(writesOfThisThread() - writesBefore);
    state.counters["dropped"] = static_cast<double>(recording.dropped());
}

// The layer linked in but not recording: what every call pays on a box that records nothing.
void BM_GetInfoNotRecordingVsDirect(benchmark::State& state) {
    mox::trace::setActiveSink(nullptr);
    bench::interleaved(state, getInfoWrapped, getInfoDirect);
    state.counters["added_ns"] = state.counters["ns"] - state.counters["floor_ns"];
}

BENCHMARK(BM_GetInfoRecordedVsDirect)->Iterations(1000);
BENCHMARK(BM_IsLockedRecordedVsDirect)->Iterations(1000);
BENCHMARK(BM_GetInfoNotRecordingVsDirect)->Iterations(2000);

}  // namespace

BENCHMARK_MAIN();
