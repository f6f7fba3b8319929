// Making the air's transport stream costs a sliver of a core: the built-in box's DVB-S multiplex
// (27.5 Msym/s QPSK 3/4, 38 Mbit/s, its generated services) produced 10 ms of stream at a time,
// against copying the same packets into the same buffer. "core_pct" is the share of one core the
// median takes per second of stream (the aim: at most 1 %), "floor_core_pct" the copy's.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "Interleaved.h"
#include "simulator/SimulatedDriver.h"
#include "simulator/stream/ElementaryStream.h"

namespace {

constexpr uint64_t kStepUs = 10000;

// The built-in box's DVB-S transponder, made as a tuner locked to it receives it.
std::unique_ptr<mox::air::TransportStreamSource> dvbsMultiplex(mox::sim::SimulatedDriver& d) {
    const std::vector<mox::sim::Transmitter> air = mox::sim::SimulatedDriver::defaultAir();
    for (size_t t = 0; t < air.size(); ++t) {
        if (air[t].system == MOX_TUNER_TYPE_DVBS) return d.transmitterStream(t);
    }
    return nullptr;
}

void BM_AirMultiplexProduce(benchmark::State& state) {
    mox::sim::SimulatedDriver driver;
    std::unique_ptr<mox::air::TransportStreamSource> source = dvbsMultiplex(driver);
    if (!source) {
        state.SkipWithError("no DVB-S transponder on the built-in box");
        return;
    }
    const uint64_t rate = source->bitRate();
    const size_t room = rate / 1504 / (1000000 / kStepUs) + 16;
    std::vector<uint8_t> out(room * mox::air::kPacketSize);
    std::vector<uint8_t> from(out.size(), 0x47);
    // The first step makes the tables, as after a tune.
    uint64_t untilUs = kStepUs;
    size_t produced = source->produce(untilUs, out.data(), room);  // what the floor copies
    uint64_t packets = 0;
    bench::interleaved(
            state,
            [&] {
                untilUs += kStepUs;
                produced = source->produce(untilUs, out.data(), room);
                packets += produced;
                benchmark::DoNotOptimize(out.data());
                benchmark::ClobberMemory();
            },
            [&] {
                std::memcpy(out.data(), from.data(), produced * mox::air::kPacketSize);
                benchmark::DoNotOptimize(out.data());
                benchmark::ClobberMemory();
            },
            64);
    // A step is 10 ms of stream: its nanoseconds over 10^7 are the share of a core.
    const double stepNs = kStepUs * 1000.0;
    state.counters["core_pct"] = state.counters["ns"] / stepNs * 100;
    state.counters["floor_core_pct"] = state.counters["floor_ns"] / stepNs * 100;
    state.counters["mbit_s"] = double(rate) / 1e6;
    state.counters["packets_per_step"] =
            double(packets) / (static_cast<double>(state.iterations()) * 64);
}
BENCHMARK(BM_AirMultiplexProduce)->Iterations(300);

// The same transponder as a locked tuner reads it from the driver, on a clock the benchmark moves:
// the multiplexer and reception's pass over the packets, under the driver's lock.
void BM_AirTunerRead(benchmark::State& state) {
    mox::sim::SimulatedDriver driver;
    uint64_t now = 0;
    driver.setClock([&now] { return now; });
    driver.setLnbMode(0, 1);
    MOX_TunerParam_t param{MOX_TUNER_TYPE_DVBS, 0, 1318, 27500000, 0, 0};
    driver.scan(2, param);
    now = 2000000;  // locked and under way
    const size_t room = 40000000 / 1504 / (1000000 / kStepUs) + 16;
    std::vector<uint8_t> out(room * mox::air::kPacketSize);
    std::vector<uint8_t> from(out.size(), 0x47);
    uint64_t readUntil = now;
    size_t produced = driver.readStream(2, 0, now, out.data(), room);
    if (produced == 0) {
        state.SkipWithError("the DVB-S transponder does not lock");
        return;
    }
    bench::interleaved(
            state,
            [&] {
                now += kStepUs;
                produced = driver.readStream(2, readUntil, now, out.data(), room);
                readUntil = now;
                benchmark::DoNotOptimize(out.data());
                benchmark::ClobberMemory();
            },
            [&] {
                std::memcpy(out.data(), from.data(), produced * mox::air::kPacketSize);
                benchmark::DoNotOptimize(out.data());
                benchmark::ClobberMemory();
            },
            64);
    const double stepNs = kStepUs * 1000.0;
    state.counters["core_pct"] = state.counters["ns"] / stepNs * 100;
    state.counters["floor_core_pct"] = state.counters["floor_ns"] / stepNs * 100;
}
BENCHMARK(BM_AirTunerRead)->Iterations(300);

}  // namespace
