// A recorded transport stream as a transmitter's content: a capture the test writes from one of
// the built-in box's multiplexes comes back from the air with the same payload pass after pass,
// its counters, PCRs and timestamps going on across each wrap; and the installation file finds
// the capture beside itself.
#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/ts.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "simulator/Environment.h"
#include "simulator/SimulatedDriver.h"
#include "simulator/stream/CapturedStream.h"
#include "streamcheck/StreamChecker.h"

namespace {

using namespace mox::sim;
using Packets = std::vector<uint8_t>;

constexpr size_t kTerrestrial650 = 3;  // the built-in box's DVB-T multiplex on 650 MHz

class TempDir {
  public:
    TempDir() {
        char path[] = "/tmp/captured-air-XXXXXX";
        if (mkdtemp(path) != nullptr) mPath = path;
    }
    ~TempDir() {
        for (const std::string& f : mFiles) unlink(f.c_str());
        if (!mPath.empty()) rmdir(mPath.c_str());
    }
    std::string file(const std::string& name) {
        mFiles.push_back(mPath + "/" + name);
        return mFiles.back();
    }
    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
    std::vector<std::string> mFiles;
};

Packets produce(mox::air::TransportStreamSource& source, uint64_t untilUs) {
    Packets out(source.bitRate() / 1504 * 188 * (untilUs / 1000000 + 1));
    const size_t n = source.produce(untilUs, out.data(), out.size() / 188);
    out.resize(n * 188);
    return out;
}

std::vector<const uint8_t*> withoutNulls(const Packets& packets) {
    std::vector<const uint8_t*> kept;
    for (size_t i = 0; i < packets.size(); i += 188) {
        if (ts_get_pid(&packets[i]) != 0x1FFF) kept.push_back(&packets[i]);
    }
    return kept;
}

uint64_t timestampAt(const uint8_t* t) {
    return (uint64_t(t[0] & 0x0E) << 29) | (uint64_t(t[1]) << 22) | (uint64_t(t[2] & 0xFE) << 14) |
           (uint64_t(t[3]) << 7) | (t[4] >> 1);
}

// The PES header of a packet that starts one with a PTS, or null.
const uint8_t* pesWithPts(const uint8_t* p) {
    if (!ts_get_unitstart(p) || !ts_has_payload(p)) return nullptr;
    const uint8_t* pes = p + 4 + (ts_has_adaptation(p) ? 1 + ts_get_adaptation(p) : 0);
    if (p + 188 - pes < PES_HEADER_SIZE_PTSDTS || pes[0] != 0 || pes[1] != 0 || pes[2] != 1)
        return nullptr;
    return (pes[7] & 0x80) ? pes : nullptr;
}

// A packet with what a replay may change blanked: its counter, its PCR and its PTS/DTS.
Packets comparable(const uint8_t* p) {
    Packets c(p, p + 188);
    ts_set_cc(c.data(), 0);
    if (ts_has_adaptation(c.data()) && ts_get_adaptation(c.data()) >= 7 && tsaf_has_pcr(c.data()))
        std::memset(c.data() + 6, 0, 6);
    if (const uint8_t* pes = pesWithPts(p)) {
        const size_t at = static_cast<size_t>(pes - p);
        std::memset(c.data() + at + 9, 0, (pes[7] & 0x40) ? 10 : 5);
    }
    return c;
}

struct Capture {
    TempDir dir;
    std::string path = dir.file("capture.ts");
    Packets written;
    uint64_t bitRate = 0;

    // Writes seconds of the built-in box's multiplex, cut in the middle of frames.
    explicit Capture(uint64_t durationUs) {
        SimulatedDriver driver;
        auto source = driver.transmitterStream(kTerrestrial650);
        bitRate = source->bitRate();
        written = produce(*source, durationUs);
        std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char*>(written.data()),
                       static_cast<std::streamsize>(written.size()));
    }
};

TEST(CapturedAirTest, PlaysTheSamePayloadPassAfterPassWithCountersAndTimesGoingOn) {
    Capture capture(2'517'000);
    ASSERT_FALSE(capture.dir.path().empty());
    std::vector<Transmitter> air = SimulatedDriver::defaultAir();
    air[kTerrestrial650].content = {};
    air[kTerrestrial650].tsFile = capture.path;
    SimulatedDriver driver;
    driver.setEnvironment(SimulatedDriver::defaultCapabilities(), air);
    auto source = driver.transmitterStream(kTerrestrial650);
    ASSERT_TRUE(source);
    ASSERT_EQ(source->bitRate(), capture.bitRate);

    const Packets played = produce(*source, 8'000'000);  // three passes and part of a fourth
    const auto original = withoutNulls(capture.written);
    const auto replayed = withoutNulls(played);
    ASSERT_GT(replayed.size(), 3 * original.size());

    // A pass lasts as long on the air as it took to record.
    const uint64_t filePackets = capture.written.size() / 188;
    const uint64_t passTicks = filePackets * 1504 * 90000 / capture.bitRate;
    size_t timestamps = 0;
    for (size_t i = 0; i < replayed.size(); ++i) {
        const uint8_t* was = original[i % original.size()];
        const uint64_t pass = i / original.size();
        ASSERT_EQ(comparable(replayed[i]), comparable(was)) << "packet " << i << " pass " << pass;
        const uint8_t* pes = pesWithPts(replayed[i]);
        if (pes == nullptr) continue;
        const uint8_t* wasPes = pesWithPts(was);
        ASSERT_NE(wasPes, nullptr);
        const uint64_t expected = (timestampAt(wasPes + 9) + pass * passTicks) % (1ull << 33);
        EXPECT_NEAR(double(timestampAt(pes + 9)), double(expected), 1) << "packet " << i;
        if (pes[7] & 0x40) {
            const uint64_t dts = (timestampAt(wasPes + 14) + pass * passTicks) % (1ull << 33);
            EXPECT_NEAR(double(timestampAt(pes + 14)), double(dts), 1) << "packet " << i;
        }
        ++timestamps;
    }
    EXPECT_GT(timestamps, 3 * 2.5 * 25u);

    // An analyser sees one unbroken stream: no counter jumps at the wraps, PCRs exact for
    // their arrival, timestamps without gaps.
    mox::streamcheck::StreamChecker checker({capture.bitRate, 5});
    checker.packets(played.data(), played.size());
    const auto report = checker.report();
    EXPECT_EQ(report.first.continuityCountError, 0u);
    EXPECT_EQ(report.second.pcrAccuracyError, 0u);
    EXPECT_EQ(report.second.pcrRepetitionError, 0u);
    EXPECT_EQ(report.second.ptsError, 0u);
    EXPECT_GE(report.repetitions.pat.count, 3 * 25u);
}

TEST(CapturedAirTest, AFileFasterThanTheMultiplexPlaysAtTheMultiplexsRate) {
    Capture capture(1'000'000);
    const uint64_t slower = capture.bitRate / 2;
    mox::air::CapturedStream source(capture.path, slower);
    EXPECT_EQ(source.playRate(), slower);
    const Packets played = produce(source, 4'000'000);
    EXPECT_EQ(played.size() / 188, 4 * slower / 1504);
    // Every slot filled from the file: half the recording's pace, none of it skipped.
    const auto replayed = withoutNulls(played);
    const auto original = withoutNulls(capture.written);
    ASSERT_GE(replayed.size(), original.size());
    for (size_t i = 0; i < original.size(); ++i)
        ASSERT_EQ(comparable(replayed[i]), comparable(original[i])) << i;
}

TEST(CapturedAirTest, TheInstallationFindsTheCaptureBesideItself) {
    Capture capture(200'000);
    const std::string installation = capture.dir.file("box.json");
    const std::string text = R"({"frontends": [{"systems": ["DVB-C"], "channels": 1,
                       "frequencyMHz": {"min": 47, "max": 862}}],
        "transmitters": [{"system": "DVB-C", "frequencyMHz": 306, "symbolRate": 6900000,
                          "modulation": "64QAM", "ts": "capture.ts"}]})";
    std::ofstream(installation) << text;
    const Environment env = loadEnvironmentFile(installation);
    ASSERT_EQ(env.air.size(), 1u);
    EXPECT_EQ(env.air[0].tsFile, capture.path);

    // Elsewhere the same words name a file that is not there, and the line says so.
    try {
        parseEnvironment(text, "box.json");
        ADD_FAILURE() << "a capture that is not there was accepted";
    } catch (const EnvironmentError& e) {
        EXPECT_NE(std::string(e.what()).find("transmitters[0].ts: capture.ts: cannot be read"),
                  std::string::npos)
                << e.what();
    }
}

}  // namespace
