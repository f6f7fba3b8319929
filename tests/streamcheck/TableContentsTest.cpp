// What the checker decodes (through libdvbv5) from the hand-written multiplex, and what it
// refuses to hand to libdvbv5.
#include <gtest/gtest.h>

#include "Multiplex.h"
#include "streamcheck/DvbTime.h"
#include "streamcheck/StreamChecker.h"

using namespace mox::streamcheck;
using tsbuild::Bytes;

namespace {

StreamReport check(const std::vector<tsbuild::Slot>& slots) {
    StreamChecker checker(Options{tsbuild::kBitRate});
    for (const auto& slot : slots) checker.packet(slot.bytes.data(), slot.bytes.size());
    return checker.report();
}

class TableContentsTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { sReport = check(multiplex::timeline(1200).finish()); }
    static StreamReport sReport;
};
StreamReport TableContentsTest::sReport;

TEST_F(TableContentsTest, ProgramAssociationAndMap) {
    const Tables& t = sReport.tables;
    ASSERT_TRUE(t.pat);
    EXPECT_EQ(t.pat->transportStreamId, 0x0421);
    EXPECT_EQ(t.pat->programs, (std::map<uint16_t, uint16_t>{{0, 0x0010}, {1, 0x0100}}));
    ASSERT_EQ(t.pmts.count(1), 1u);
    const ProgramMap& pmt = t.pmts.at(1);
    EXPECT_EQ(pmt.pid, multiplex::kPmtPid);
    EXPECT_EQ(pmt.pcrPid, multiplex::kPcrPid);
    ASSERT_EQ(pmt.streams.size(), 3u);
    EXPECT_EQ(pmt.streams[0].type, 0x1B);
    EXPECT_EQ(pmt.streams[0].pid, multiplex::kVideoPid);
    EXPECT_EQ(pmt.streams[0].language, "");
    EXPECT_EQ(pmt.streams[1].type, 0x03);
    EXPECT_EQ(pmt.streams[1].language, "deu");
    EXPECT_EQ(pmt.streams[2].pid, multiplex::kDataPid);
    EXPECT_TRUE(t.catSeen);
    EXPECT_EQ(sReport.problemCount, 0u) << (sReport.problems.empty() ? "" : sReport.problems[0]);
}

TEST_F(TableContentsTest, ServiceDescription) {
    ASSERT_TRUE(sReport.tables.sdtActual);
    const ServiceDescription& sdt = *sReport.tables.sdtActual;
    EXPECT_EQ(sdt.transportStreamId, 0x0421);
    EXPECT_EQ(sdt.originalNetworkId, 0x2085);
    ASSERT_EQ(sdt.services.size(), 2u);
    const Service& one = sdt.services.at(1);
    EXPECT_EQ(one.name, "Eins");
    EXPECT_EQ(one.provider, "MOX");
    EXPECT_EQ(one.type, 1);
    EXPECT_FALSE(one.freeCaMode);
    EXPECT_EQ(one.runningStatus, 4);
    EXPECT_TRUE(one.eitPresentFollowing);
    const Service& two = sdt.services.at(2);
    EXPECT_EQ(two.name, "Zwei Radio");
    EXPECT_EQ(two.type, 2);
    EXPECT_TRUE(two.freeCaMode);
    EXPECT_FALSE(two.eitPresentFollowing);
}

TEST_F(TableContentsTest, NetworkAndDeliverySystems) {
    ASSERT_TRUE(sReport.tables.nitActual);
    const NetworkInformation& nit = *sReport.tables.nitActual;
    EXPECT_EQ(nit.networkId, 0x3001);
    EXPECT_EQ(nit.name, "MOX Net");
    ASSERT_EQ(nit.transportStreams.size(), 4u);

    const TransportStreamInfo& t = nit.transportStreams.at(0x0421);
    EXPECT_EQ(t.originalNetworkId, 0x2085);
    ASSERT_TRUE(t.terrestrial);
    EXPECT_EQ(t.terrestrial->centreFrequencyHz, 482000000u);
    EXPECT_EQ(t.terrestrial->bandwidthHz, 8000000u);
    EXPECT_EQ(t.terrestrial->constellation, "64QAM");
    EXPECT_EQ(t.terrestrial->hierarchy, "none");
    EXPECT_EQ(t.terrestrial->codeRateHp, "2/3");
    EXPECT_EQ(t.terrestrial->codeRateLp, "1/2");
    EXPECT_EQ(t.terrestrial->guardInterval, "1/4");
    EXPECT_EQ(t.terrestrial->transmissionMode, "8k");
    ASSERT_EQ(t.services.size(), 2u);
    EXPECT_EQ(t.services[1].serviceId, 2);
    EXPECT_EQ(t.services[1].type, 2);

    const TransportStreamInfo& t2 = nit.transportStreams.at(0x0422);
    ASSERT_TRUE(t2.t2);
    EXPECT_EQ(t2.t2->plpId, 0);
    EXPECT_EQ(t2.t2->t2SystemId, 0x8001);
    EXPECT_TRUE(t2.t2->hasDetails);
    EXPECT_EQ(t2.t2->sisoMiso, "SISO");
    EXPECT_EQ(t2.t2->bandwidthHz, 8000000u);
    EXPECT_EQ(t2.t2->guardInterval, "19/256");
    EXPECT_EQ(t2.t2->transmissionMode, "32k");
    EXPECT_EQ(t2.t2->centreFrequenciesHz, std::vector<uint64_t>{490000000});

    const TransportStreamInfo& c = nit.transportStreams.at(0x0423);
    ASSERT_TRUE(c.cable);
    EXPECT_EQ(c.cable->frequencyHz, 306000000u);
    EXPECT_EQ(c.cable->modulation, "256QAM");
    EXPECT_EQ(c.cable->symbolRate, 6900000u);
    EXPECT_EQ(c.cable->fecOuter, "RS(204/188)");
    EXPECT_EQ(c.cable->fecInner, "none");

    const TransportStreamInfo& s = nit.transportStreams.at(0x0424);
    ASSERT_TRUE(s.satellite);
    EXPECT_EQ(s.satellite->frequencyKHz, 11762000u);
    EXPECT_EQ(s.satellite->orbitalPositionTenths, 192);
    EXPECT_TRUE(s.satellite->east);
    EXPECT_EQ(s.satellite->polarisation, "V");
    EXPECT_EQ(s.satellite->modulationSystem, "DVB-S2");
    EXPECT_EQ(s.satellite->modulation, "8PSK");
    EXPECT_EQ(s.satellite->rollOff, "0.35");
    EXPECT_EQ(s.satellite->symbolRate, 27500000u);
    EXPECT_EQ(s.satellite->fecInner, "3/4");
}

TEST_F(TableContentsTest, PresentFollowingAndTime) {
    ASSERT_EQ(sReport.tables.eitPresentFollowingActual.count(1), 1u);
    const PresentFollowing& pf = sReport.tables.eitPresentFollowingActual.at(1);
    EXPECT_EQ(pf.transportStreamId, 0x0421);
    ASSERT_TRUE(pf.present);
    EXPECT_EQ(pf.present->id, 0x1001);
    EXPECT_EQ(formatUtc(pf.present->startUtc), "2024-01-01T12:00:00Z");
    EXPECT_EQ(pf.present->durationSeconds, 5400u);
    EXPECT_EQ(pf.present->runningStatus, 4);
    EXPECT_EQ(pf.present->language, "deu");
    EXPECT_EQ(pf.present->name, "Nachrichten");
    EXPECT_EQ(pf.present->text, "Aktuelles");
    ASSERT_TRUE(pf.following);
    EXPECT_EQ(formatUtc(pf.following->startUtc), "2024-01-01T13:30:00Z");
    EXPECT_EQ(pf.following->name, "Wetter");
    ASSERT_TRUE(sReport.tables.tdtUtc);
    EXPECT_EQ(formatUtc(*sReport.tables.tdtUtc), "2024-01-01T12:00:01Z");
    ASSERT_TRUE(sReport.tables.totUtc);
    EXPECT_EQ(formatUtc(*sReport.tables.totUtc), "2024-01-01T12:00:00Z");
}

TEST(TableVersionTest, NewVersionReplacesAndIsCounted) {
    tsbuild::Timeline t(600);
    t.putSection(0, "pat", 0, multiplex::pat(3));
    t.putSection(100, "pat", 0, multiplex::pat(3));
    // Version 4: program 1 now maps elsewhere.
    Bytes changed = multiplex::pat(4);
    changed[14] = 0xE2;
    tsbuild::fixCrc(changed);
    t.putSection(200, "pat", 0, changed);
    t.putSection(300, "pat", 0, changed);
    const StreamReport r = check(t.finish());
    ASSERT_TRUE(r.tables.pat);
    EXPECT_EQ(r.tables.pat->version, 4);
    EXPECT_EQ(r.tables.pat->versionChanges, 1u);
    EXPECT_EQ(r.tables.pat->programs.at(1), 0x0200);
    // The PMT PID the PAT no longer references is no longer expected.
    EXPECT_EQ(r.repetitions.pmt.count(0x0100), 0u);
    EXPECT_EQ(r.repetitions.pmt.count(0x0200), 1u);
}

// Sections whose inner lengths libdvbv5 would trust: refused with a reason, never a crash.
struct Refused {
    const char* name;
    Bytes section;
    const char* problem;
};

Bytes nitWith(const Bytes& descriptors) {
    Bytes body{0xF0, 0x00, 0xF0, uint8_t(6 + descriptors.size()), 0x04, 0x21,
               0x20, 0x85, 0xF0, uint8_t(descriptors.size())};
    for (uint8_t byte : descriptors) body.push_back(byte);  // (GCC 12 misjudges an empty insert)
    return tsbuild::longSection(0x40, 0x3001, 1, 0, 0, body);
}

std::vector<Refused> refused() {
    Bytes longTerrestrial{0x5A, 12};
    longTerrestrial.resize(14, 0);
    Bytes shortT2{0x7F, 9, 0x04, 0x00, 0x80, 0x01, 0x00, 0xD4, 0x00, 0x07, 0x02};
    Bytes nitLoopLong = nitWith({});
    nitLoopLong[11] = 0x20;  // the transport stream loop claims 32 bytes
    tsbuild::fixCrc(nitLoopLong);
    Bytes serviceName = tsbuild::longSection(
            0x42, 0x0421, 1, 0, 0,
            {0x20, 0x85, 0xFF, 0x00, 0x01, 0xFD, 0x80, 0x06, 0x48, 0x04, 0x01, 0x00, 0x09, 'X'});
    return {
            {"TerrestrialDescriptorTooLong", nitWith(longTerrestrial), "descriptor 0x5A"},
            {"T2CellLoopCutShort", nitWith(shortT2), "descriptor 0x7F"},
            {"DescriptorPastItsLoop", nitWith({0x40, 0x09, 'M', 'O', 'X'}), "runs past its loop"},
            {"TransportLoopLengthWrong", nitLoopLong, "transport stream loop"},
            {"ServiceNamePastTheDescriptor", serviceName, "descriptor 0x48"},
    };
}

class RefusedTest : public ::testing::TestWithParam<Refused> {};

TEST_P(RefusedTest, NotDecodedAndSaysWhy) {
    const Refused& c = GetParam();
    tsbuild::Timeline t(10);
    const uint16_t pid = c.section[0] == 0x40 ? 0x0010 : 0x0011;
    t.putSection(0, "section", pid, c.section);
    const StreamReport r = check(t.finish());
    EXPECT_FALSE(r.tables.nitActual);
    EXPECT_FALSE(r.tables.sdtActual);
    ASSERT_EQ(r.problemCount, 1u);
    EXPECT_NE(r.problems[0].find(c.problem), std::string::npos) << r.problems[0];
    EXPECT_EQ(r.second.crcError, 0u);
}

INSTANTIATE_TEST_SUITE_P(TableDecoder, RefusedTest, ::testing::ValuesIn(refused()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(TableDecoderTest, LibraryMessagesGoToTheReport) {
    // libdvbv5 1.22 takes an ISO 639 descriptor of one language only: two fail the PMT, and
    // libdvbv5 says why in its log, which lands in the report (not on stderr).
    Bytes body{0xE1, 0x01, 0xF0, 0x00, 0x03, 0xE1, 0x03, 0xF0, 0x0A, 0x0A,
               0x08, 'd',  'e',  'u',  0x00, 'e',  'n',  'g',  0x00};
    tsbuild::Timeline t(10);
    t.putSection(0, "pat", 0, multiplex::pat());
    t.putSection(1, "pmt", multiplex::kPmtPid, tsbuild::longSection(0x02, 1, 0, 0, 0, body));
    const StreamReport r = check(t.finish());
    EXPECT_TRUE(r.tables.pmts.empty());
    ASSERT_GE(r.problemCount, 1u);
    EXPECT_NE(r.problems[0].find("PMT on PID 0x0100: libdvbv5: "), std::string::npos)
            << r.problems[0];
}

TEST(DvbTimeTest, ModifiedJulianDateAndBcd) {
    int64_t utc = 0;
    // EN 300 468's example: 93/10/13 12:45:00 is 0xC079124500.
    const uint8_t example[] = {0xC0, 0x79, 0x12, 0x45, 0x00};
    ASSERT_TRUE(utcFromMjdBcd(example, utc));
    EXPECT_EQ(formatUtc(utc), "1993-10-13T12:45:00Z");
    const uint8_t undefined[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_FALSE(utcFromMjdBcd(undefined, utc));
    const uint8_t badHour[] = {0xC0, 0x79, 0x24, 0x00, 0x00};
    EXPECT_FALSE(utcFromMjdBcd(badHour, utc));
    uint32_t seconds = 0;
    const uint8_t duration[] = {0x01, 0x45, 0x30};
    ASSERT_TRUE(secondsFromBcd(duration, seconds));
    EXPECT_EQ(seconds, 6330u);
}

}  // namespace
