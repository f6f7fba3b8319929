// The transport streams on the simulated air, read back by an independent checker (libdvbv5's
// parsers and the TR 101 290 measurements): every multiplex of the built-in box and of the
// example installations, what reception and the stream faults do, and the received stream's
// dependence on the lock.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "simulator/Environment.h"
#include "simulator/SimulatedDriver.h"
#include "simulator/stream/MultiplexStream.h"
#include "streamcheck/StreamChecker.h"

namespace {

using namespace mox::sim;
using mox::streamcheck::StreamChecker;
using mox::streamcheck::StreamReport;

// Reads seconds of a stream through the checker, a second at a time.
StreamReport readAir(mox::air::TransportStreamSource& source, uint64_t seconds) {
    StreamChecker checker({source.bitRate(), 5});
    std::vector<uint8_t> buffer(source.bitRate() / 1504 * 188 + 188 * 16);
    for (uint64_t s = 1; s <= seconds; ++s) {
        const size_t n = source.produce(s * 1000000, buffer.data(), buffer.size() / 188);
        checker.packets(buffer.data(), n * 188);
    }
    return checker.report();
}

void expectHealthy(const StreamReport& r, uint64_t bitRate, double seconds) {
    EXPECT_EQ(r.first.tsSyncLoss + r.first.syncByteError, 0u);
    EXPECT_EQ(r.first.patError, 0u);
    EXPECT_EQ(r.first.continuityCountError, 0u);
    EXPECT_EQ(r.first.pmtError, 0u);
    EXPECT_EQ(r.first.pidError, 0u);
    EXPECT_EQ(r.second.transportError, 0u);
    EXPECT_EQ(r.second.crcError, 0u);
    EXPECT_EQ(r.second.pcrRepetitionError, 0u);
    EXPECT_EQ(r.second.pcrAccuracyError, 0u);
    EXPECT_EQ(r.second.ptsError, 0u);
    EXPECT_EQ(r.second.catError, 0u);
    EXPECT_EQ(r.third.nitActualError, 0u);
    EXPECT_EQ(r.third.sdtActualError, 0u);
    EXPECT_EQ(r.third.eitActualError, 0u);
    EXPECT_EQ(r.third.tdtError, 0u);
    // PAT and PMT every 100 ms or so, as networks send them.
    EXPECT_LE(r.repetitions.pat.largestSeconds, 0.15);
    for (const auto& [pid, interval] : r.repetitions.pmt)
        EXPECT_LE(interval.largestSeconds, 0.15) << pid;
    for (const auto& [pid, interval] : r.repetitions.pcr)
        EXPECT_LE(interval.largestSeconds, 0.040) << pid;
    for (const auto& [pid, interval] : r.repetitions.pts)
        EXPECT_LE(interval.largestSeconds, 0.7) << pid;
    EXPECT_LE(r.repetitions.sdtActual.largestSeconds, 2.0);
    EXPECT_LE(r.repetitions.nitActual.largestSeconds, 10.0);
    EXPECT_LE(r.repetitions.tdt.largestSeconds, 30.0);
    EXPECT_GE(r.repetitions.tdt.count, 2u);
    for (const auto& [sid, interval] : r.repetitions.eitPresentFollowingActual) {
        EXPECT_LE(interval.largestSeconds, 2.0) << sid;
    }
    const double rate = double(r.totalPackets) * 1504 / seconds;
    EXPECT_NEAR(rate, double(bitRate), bitRate * 0.01);
}

// Every multiplex: 30 s that pass the checks, and tables that name what the installation holds.
void checkInstallation(SimulatedDriver& driver) {
    const std::string world = driver.describe();
    for (size_t t = 0; t < driver.transmitterCount(); ++t) {
        SCOPED_TRACE("transmitter " + std::to_string(t));
        auto source = driver.transmitterStream(t);
        ASSERT_TRUE(source);
        const StreamReport r = readAir(*source, 30);
        expectHealthy(r, source->bitRate(), 30);
        ASSERT_TRUE(r.tables.sdtActual.has_value());
        ASSERT_TRUE(r.tables.nitActual.has_value());
        ASSERT_TRUE(r.tables.pat.has_value());
        EXPECT_EQ(r.tables.pmts.size(), r.tables.sdtActual->services.size());
        EXPECT_EQ(r.tables.eitPresentFollowingActual.size(), r.tables.sdtActual->services.size());
        for (const auto& [sid, service] : r.tables.sdtActual->services) {
            EXPECT_FALSE(service.name.empty()) << sid;
            EXPECT_NE(world.find("\"name\":\"" + service.name + "\""), std::string::npos)
                    << service.name;
        }
    }
}

// The tables of each multiplex say what the installation holds: the NIT names every multiplex
// of its network, the SDT each service with its provider and whether it is scrambled, each PMT its
// components' stream types, PIDs and languages, and a CAT comes where a service is scrambled.
void expectTablesDescribe(SimulatedDriver& driver, std::vector<Transmitter> air) {
    completeAir(air);
    ASSERT_EQ(air.size(), driver.transmitterCount());
    for (size_t t = 0; t < air.size(); ++t) {
        const mox::air::MultiplexContent& content = air[t].content;
        if (!air[t].tsFile.empty()) continue;
        SCOPED_TRACE("transmitter " + std::to_string(t));
        auto source = driver.transmitterStream(t);
        ASSERT_TRUE(source);
        const StreamReport r = readAir(*source, 6);
        ASSERT_TRUE(r.tables.nitActual.has_value());
        EXPECT_EQ(r.tables.nitActual->networkId, content.networkId);
        EXPECT_EQ(r.tables.nitActual->name, content.networkName);
        std::set<uint16_t> network;
        for (const Transmitter& tx : air) {
            if (tx.tsFile.empty() && tx.content.networkId == content.networkId)
                network.insert(tx.content.transportStreamId);
        }
        std::set<uint16_t> announced;
        for (const auto& [tsid, info] : r.tables.nitActual->transportStreams)
            announced.insert(tsid);
        EXPECT_EQ(announced, network);
        EXPECT_EQ(r.tables.sdtOther.size(), network.size() - 1);
        ASSERT_TRUE(r.tables.sdtActual.has_value());
        EXPECT_EQ(r.tables.sdtActual->transportStreamId, content.transportStreamId);
        EXPECT_EQ(r.tables.sdtActual->originalNetworkId, content.originalNetworkId);
        ASSERT_EQ(r.tables.sdtActual->services.size(), content.services.size());
        bool scrambled = false;
        for (const mox::air::Service& s : content.services) {
            SCOPED_TRACE("service " + std::to_string(s.id));
            scrambled = scrambled || s.scrambled;
            ASSERT_EQ(r.tables.sdtActual->services.count(s.id), 1u);
            const auto& described = r.tables.sdtActual->services.at(s.id);
            EXPECT_EQ(described.name, s.name);
            EXPECT_EQ(described.provider, s.provider);
            EXPECT_EQ(described.type, s.type);
            EXPECT_EQ(described.freeCaMode, s.scrambled);
            ASSERT_EQ(r.tables.pmts.count(s.id), 1u);
            const auto& pmt = r.tables.pmts.at(s.id);
            EXPECT_EQ(pmt.pid, s.pmtPid);
            EXPECT_EQ(pmt.pcrPid, s.pcrPid);
            ASSERT_EQ(pmt.streams.size(), s.components.size());
            for (size_t c = 0; c < s.components.size(); ++c) {
                EXPECT_EQ(pmt.streams[c].type, s.components[c].streamType) << c;
                EXPECT_EQ(pmt.streams[c].pid, s.components[c].pid) << c;
                EXPECT_EQ(pmt.streams[c].language, s.components[c].language) << c;
            }
        }
        EXPECT_EQ(r.tables.catSeen, scrambled);
    }
}

TEST(AirStreamTest, EveryMultiplexOfTheBuiltInBoxPassesTheChecks) {
    SimulatedDriver driver;
    checkInstallation(driver);
    expectTablesDescribe(driver, SimulatedDriver::defaultAir());
}

class ExampleAirTest : public testing::TestWithParam<const char*> {};

TEST_P(ExampleAirTest, EveryMultiplexPassesTheChecks) {
    const Environment env = loadEnvironmentFile(std::string(EXAMPLES_DIR) + "/" + GetParam());
    SimulatedDriver driver;
    driver.setEnvironment(env.capability, env.air, env.misbehaviour);
    checkInstallation(driver);
}

// Each example spells out its networks and services: the tables carry them as written, and the
// file has what a scanner should meet (a network of several multiplexes, a scrambled service).
TEST_P(ExampleAirTest, TheTablesCarryWhatTheFileSays) {
    const Environment env = loadEnvironmentFile(std::string(EXAMPLES_DIR) + "/" + GetParam());
    SimulatedDriver driver;
    driver.setEnvironment(env.capability, env.air, env.misbehaviour);
    expectTablesDescribe(driver, env.air);
    std::map<uint16_t, size_t> multiplexes;
    bool scrambled = false;
    for (const Transmitter& tx : env.air) {
        ASSERT_FALSE(tx.content.services.empty()) << tx.frequencyMHz << " MHz: generated content";
        ++multiplexes[tx.content.networkId];
        for (const mox::air::Service& s : tx.content.services) scrambled = scrambled || s.scrambled;
    }
    EXPECT_TRUE(scrambled);
    EXPECT_TRUE(std::any_of(multiplexes.begin(), multiplexes.end(),
                            [](const auto& network) { return network.second > 1; }));
}

INSTANTIATE_TEST_SUITE_P(Examples, ExampleAirTest,
                         testing::Values("cable-network.json", "terrestrial-region.json",
                                         "dish-two-satellites.json", "misbehaving-board.json"));

// The default box's DVB-T 650 MHz multiplex on tuner 0, on a clock the test moves.
struct Received {
    uint64_t now = 1000000;
    SimulatedDriver driver;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(200000 * 188);
    uint64_t readUntil = 0;

    Received() {
        driver.setClock([this] { return now; });
        driver.setEnvironment(SimulatedDriver::defaultCapabilities(), SimulatedDriver::defaultAir());
        MOX_TunerParam_t param{};
        param.eTunerType = MOX_TUNER_TYPE_DVBT;
        param.uiFreqMHz = 650;
        param.eBandwidth = MOX_TUNER_BW_8MHZ;
        driver.scan(0, param);
    }
    void change(const std::string& words) {
        WorldChange c;
        std::string error;
        ASSERT_TRUE(parseWorldChange(words, c, error)) << error;
        ASSERT_TRUE(driver.change(c, error)) << error;
    }
    // Moves the clock on and reads what arrived.
    StreamReport read(uint64_t seconds, uint64_t bitRate) {
        StreamChecker checker({bitRate, 5});
        for (uint64_t s = 0; s < seconds; ++s) {
            now += 1000000;
            const size_t n = driver.readStream(0, readUntil, now, buffer.data(), 200000);
            readUntil = now;
            checker.packets(buffer.data(), n * 188);
        }
        return checker.report();
    }
};

TEST(AirStreamTest, NothingArrivesWithoutLock) {
    Received air;
    // 800 ms to lock: nothing yet.
    air.now += 500000;
    EXPECT_EQ(air.driver.readStream(0, 0, air.now, air.buffer.data(), 1000), 0u);
    const StreamReport locked = air.read(2, 0);
    EXPECT_GT(locked.totalPackets, 0u);
    air.change("transmitter 650MHz off");
    EXPECT_EQ(air.read(1, 0).totalPackets, 0u);
}

TEST(AirStreamTest, FaultsDoExactlyTheDamageAsked) {
    Received air;
    const uint64_t rate = air.driver.transmitterStream(3)->bitRate();
    air.read(2, rate);  // locked and under way
    air.change("stream 650MHz continuity-errors 2/s");
    air.change("stream 650MHz crc-errors 1/s");
    StreamReport r = air.read(30, rate);
    EXPECT_NEAR(double(r.first.continuityCountError), 60, 1);
    EXPECT_NEAR(double(r.second.crcError), 30, 1);
    EXPECT_EQ(r.second.transportError, 0u);

    air.change("stream 650MHz clean");
    air.change("stream 650MHz without SDT");
    r = air.read(10, rate);
    EXPECT_EQ(r.repetitions.sdtActual.count, 0u);
    EXPECT_GT(r.third.sdtActualError, 0u);
    EXPECT_EQ(r.first.continuityCountError, 0u);
    EXPECT_EQ(r.second.crcError, 0u);
}

// Content asking 10 % more than the multiplex carries: no room is left for null packets, the
// tables and clocks keep their pace, and the elementary streams lose what does not fit.
TEST(AirStreamTest, AnOverflowDropsWhatTheMultiplexCannotCarry) {
    SimulatedDriver driver;
    WorldChange c;
    std::string error;
    ASSERT_TRUE(parseWorldChange("stream 650MHz overflow 10%", c, error)) << error;
    ASSERT_TRUE(driver.change(c, error)) << error;
    auto source = driver.transmitterStream(3);
    auto* mux = dynamic_cast<mox::air::MultiplexStream*>(source.get());
    ASSERT_NE(mux, nullptr);
    const double seconds = 10;
    const StreamReport r = readAir(*mux, 10);

    const double packets = double(r.totalPackets);
    EXPECT_LT(double(r.packetsPerPid.count(0x1FFF) ? r.packetsPerPid.at(0x1FFF) : 0),
              packets * 0.001);
    EXPECT_GT(r.first.continuityCountError, 0u);
    EXPECT_EQ(r.first.patError + r.first.pmtError, 0u);
    EXPECT_EQ(r.second.pcrRepetitionError + r.second.pcrAccuracyError, 0u);
    EXPECT_LE(r.repetitions.pat.largestSeconds, 0.15);

    // What the streams asked for is what arrived plus what was dropped.
    double delivered = 0;
    for (const auto& [program, pmt] : r.tables.pmts) {
        for (const auto& es : pmt.streams) delivered += double(r.packetsPerPid.at(es.pid));
    }
    for (const auto& [pid, interval] : r.repetitions.pcr) delivered -= double(interval.count);
    const double asked = 1.10 * double(mux->bitRate()) / 1504 * seconds;
    EXPECT_NEAR(delivered + double(mux->overflowDrops()), asked, asked * 0.01);
    EXPECT_GT(double(mux->overflowDrops()), asked * 0.10 / 1.10);
}

// Rates too small to ever come due are faults that never happen, not arithmetic that overflows.
TEST(AirStreamTest, FaultRatesTooRareToComeDoNoDamage) {
    const Environment env = parseEnvironment(R"({
      "frontends": [{"systems": ["DVB-C"], "channels": 1, "frequencyMHz": {"min": 47, "max": 862}}],
      "transmitters": [{"system": "DVB-C", "frequencyMHz": 306, "symbolRate": 6900000,
                        "modulation": "64QAM",
                        "streamFaults": {"continuityErrorsPerS": 1e-300, "crcErrorsPerS": 1e-300}}]
    })",
                                             "rare.json");
    SimulatedDriver driver;
    driver.setEnvironment(env.capability, env.air, env.misbehaviour);
    auto source = driver.transmitterStream(0);
    const StreamReport r = readAir(*source, 3);
    EXPECT_EQ(r.second.crcError, 0u);
    EXPECT_GT(r.totalPackets, 0u);

    // Packets lost on the way, live, as a locked tuner receives them.
    Received air;
    const uint64_t rate = air.driver.transmitterStream(3)->bitRate();
    air.change("stream 650MHz continuity-errors 1e-300/s");
    EXPECT_EQ(air.read(3, rate).first.continuityCountError, 0u);
}

TEST(AirStreamTest, ARenamedServiceComesWithTheSdtsNextVersion) {
    Received air;
    const uint64_t rate = air.driver.transmitterStream(3)->bitRate();
    StreamReport before = air.read(3, rate);
    ASSERT_TRUE(before.tables.sdtActual.has_value());
    const uint16_t sid = before.tables.sdtActual->services.begin()->first;
    air.change("stream 650MHz rename " + std::to_string(sid) + " Late Night TV");
    air.change("stream 650MHz add-service 4000 radio New Radio");
    const StreamReport after = air.read(3, rate);
    ASSERT_TRUE(after.tables.sdtActual.has_value());
    EXPECT_EQ(after.tables.sdtActual->services.at(sid).name, "Late Night TV");
    EXPECT_EQ(after.tables.sdtActual->services.at(4000).name, "New Radio");
    EXPECT_EQ(after.tables.sdtActual->version, (before.tables.sdtActual->version + 1) % 32);
    EXPECT_EQ(after.tables.pat->programs.count(4000), 1u);
    EXPECT_EQ(after.first.continuityCountError, 0u);
}

TEST(AirStreamTest, BelowTheNeededCnPacketsBreakAtTheRateTheBerGives) {
    Received air;
    const uint64_t rate = air.driver.transmitterStream(3)->bitRate();
    air.read(2, rate);
    air.change("transmitter 650MHz cn 14");  // 64QAM 2/3 needs about 16 dB
    const StreamReport r = air.read(10, rate);
    const double ber = std::pow(10.0, -14.0 / 4.0);
    const double expected = 1.0 - std::pow(1.0 - ber, 1504.0);
    EXPECT_NEAR(double(r.second.transportError) / double(r.totalPackets), expected, 0.01);
}

}  // namespace
