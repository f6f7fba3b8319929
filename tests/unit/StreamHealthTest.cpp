// A watch's stream figures: rates are over the last sample only, error counts since the start.
#include <gtest/gtest.h>

#include "StreamHealth.h"

using namespace tunerctl;
using mox::streamcheck::StreamReport;

namespace {

StreamReport reportOf(uint64_t total, std::map<uint16_t, uint64_t> perPid, uint64_t ccErrors) {
    StreamReport r;
    r.totalPackets = total;
    r.packetsPerPid = std::move(perPid);
    r.first.continuityCountError = ccErrors;
    return r;
}

TEST(StreamHealthTest, ASampleCountsThePacketsSinceThePreviousAndTheErrorsSinceTheStart) {
    const StreamReport before = reportOf(1000, {{0x0000, 10}, {0x0100, 990}}, 3);
    // 0x0000 stopped, 0x0100 went on, 0x0200 is new.
    const StreamReport now = reportOf(1600, {{0x0000, 10}, {0x0100, 1490}, {0x0200, 100}}, 5);
    const StreamReport sample = packetsSince(now, before);
    EXPECT_EQ(sample.totalPackets, 600u);
    const std::map<uint16_t, uint64_t> expected{{0x0100, 500}, {0x0200, 100}};
    EXPECT_EQ(sample.packetsPerPid, expected) << "a PID with nothing new has no rate";
    EXPECT_EQ(sample.first.continuityCountError, 5u) << "errors since the watch began";

    // The first sample is over everything so far.
    EXPECT_EQ(packetsSince(now, StreamReport{}).totalPackets, 1600u);
}

TEST(StreamHealthTest, TheWatchLineGivesTheRateOfTheSampleAndTheCounts) {
    StreamReport r = reportOf(5000, {}, 2);
    r.second.transportError = 7;
    r.second.pcrAccuracyError = 1;
    r.second.pcrRepetitionError = 2;
    r.third.sdtActualError = 4;
    // 5000 packets of 1504 bits in 2 s.
    EXPECT_EQ(streamHealthLine(r, 2.0),
              "stream 3.76 Mbit/s  sync 0  PAT 0  CC 2  PMT 0  TEI 7  CRC 0  PCR 3  SI 4");
    EXPECT_NE(streamHealthText(r, 2.0).find("SDT_actual_error                   4"), std::string::npos)
            << streamHealthText(r, 2.0);
    EXPECT_NE(streamHealthJson(r, 2.0).find(R"("thirdPriority":{"NIT_actual_error":0,)"),
              std::string::npos);
}

}  // namespace
