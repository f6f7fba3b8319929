// Record filters: every packet of the PID into the record's queue as it came, index events for
// the indicators the client asked for, start codes of MPEG-2, H.264 and HEVC video, and the
// byte offsets of the filter's output.
#include <gtest/gtest.h>

#include <string>

#include "DemuxTestSupport.h"
#include "demux/DemuxEngine.h"
#include "demux/StartCodeScanner.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxRecordScIndexType;
using ::android::hardware::tv::tuner::V1_0::DemuxScHevcIndex;
using ::android::hardware::tv::tuner::V1_0::DemuxScIndex;
using ::android::hardware::tv::tuner::V1_0::DemuxTsIndex;

constexpr uint16_t kPid = 0x300;
constexpr uint32_t kAllTsIndexes = 0x1FFF;

uint32_t ts(DemuxTsIndex i) {
    return static_cast<uint32_t>(i);
}

class RecordFilterTest : public ::testing::Test {
  protected:
    uint32_t open(const DemuxTsFilterSettings& settings, RecordingSink& sink) {
        uint32_t id = 0;
        FilterResources resources;
        resources.sink = &sink;
        resources.tracker = FilterStatusTracker::forCapacity(1 << 20);
        EXPECT_EQ(engine.addFilter(DemuxTsFilterType::RECORD, settings, resources, id),
                  Result::SUCCESS);
        EXPECT_EQ(engine.start(id), Result::SUCCESS);
        return id;
    }
    void feed(const std::vector<Bytes>& packets) {
        const Bytes all = join(packets);
        engine.packets(all.data(), all.size());
    }
    DemuxEngine engine;
};

struct IndexCase {
    std::string name;
    PacketOptions options;
    uint32_t expected;  // after a first, clear packet
};

PacketOptions with(std::function<void(PacketOptions&)> set) {
    PacketOptions o;
    set(o);
    return o;
}

const std::vector<IndexCase> kIndexCases = {
        {"Plain", {}, 0},
        {"UnitStart", with([](auto& o) { o.unitStart = true; }),
         ts(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR)},
        {"Pcr", with([](auto& o) { o.pcr27MHz = 27000000; }), ts(DemuxTsIndex::PCR_FLAG)},
        {"Discontinuity", with([](auto& o) { o.discontinuity = true; }),
         ts(DemuxTsIndex::DISCONTINUITY_INDICATOR)},
        {"RandomAccess", with([](auto& o) { o.randomAccess = true; }),
         ts(DemuxTsIndex::RANDOM_ACCESS_INDICATOR)},
        {"Priority", with([](auto& o) { o.esPriority = true; }),
         ts(DemuxTsIndex::PRIORITY_INDICATOR)},
        {"ToEven", with([](auto& o) { o.scrambling = 2; }),
         ts(DemuxTsIndex::CHANGE_TO_EVEN_SCRAMBLED)},
        {"ToOdd", with([](auto& o) { o.scrambling = 3; }),
         ts(DemuxTsIndex::CHANGE_TO_ODD_SCRAMBLED)},
        {"StartAndPcrAndRandomAccess", with([](auto& o) {
             o.unitStart = true;
             o.pcr27MHz = 5;
             o.randomAccess = true;
         }),
         ts(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR) | ts(DemuxTsIndex::PCR_FLAG) |
                 ts(DemuxTsIndex::RANDOM_ACCESS_INDICATOR)},
};

class TsIndexTest : public RecordFilterTest, public ::testing::WithParamInterface<IndexCase> {};

TEST_P(TsIndexTest, FlagsWhatThePacketShows) {
    RecordingSink sink;
    open(record(kPid, kAllTsIndexes), sink);
    feed({tsPacket(kPid, 0, counting(20)), tsPacket(kPid, 1, counting(10), GetParam().options)});
    const auto events = recordEvents(sink);
    ASSERT_GE(events.size(), 1u);
    EXPECT_EQ(events[0].tsIndexMask,
              ts(DemuxTsIndex::FIRST_PACKET) | ts(DemuxTsIndex::CHANGE_TO_NOT_SCRAMBLED));
    if (GetParam().expected == 0) {
        EXPECT_EQ(events.size(), 1u);
    } else {
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(events[1].tsIndexMask, GetParam().expected);
        EXPECT_EQ(events[1].byteNumber, 188u);
        EXPECT_EQ(events[1].pid.tPid(), kPid);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, TsIndexTest, ::testing::ValuesIn(kIndexCases),
                         [](const auto& info) { return info.param.name; });

TEST_F(RecordFilterTest, RecordsEveryPacketAsItCameAndMasksTheIndex) {
    RecordingSink sink;
    open(record(kPid, ts(DemuxTsIndex::PCR_FLAG)), sink);
    PacketOptions pcr;
    pcr.pcr27MHz = 1234;
    PacketOptions bad;
    bad.transportError = true;
    bad.scrambling = 3;
    const std::vector<Bytes> packets{tsPacket(kPid, 0, counting(5)), tsPacket(kPid, 1, {}, pcr),
                                     tsPacket(kPid, 2, counting(9), bad),
                                     tsPacket(kPid + 1, 0, counting(9), pcr),
                                     tsPacket(kPid, 3, counting(9), pcr)};
    feed(packets);
    EXPECT_EQ(sink.units, (std::vector<Bytes>{packets[0], packets[1], packets[2], packets[4]}));
    const auto events = recordEvents(sink);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].byteNumber, 188u);
    EXPECT_EQ(events[1].byteNumber, 3 * 188u);
    for (const auto& e : events) EXPECT_EQ(e.tsIndexMask, ts(DemuxTsIndex::PCR_FLAG));
}

uint32_t sc(DemuxScIndex i) {
    return static_cast<uint32_t>(i);
}
uint32_t hevc(DemuxScHevcIndex i) {
    return static_cast<uint32_t>(i);
}

struct StartCodeCase {
    std::string name;
    DemuxRecordScIndexType type;
    Bytes payload;
    uint32_t expected;
};

// Elementary stream bytes as encoders write them.
const std::vector<StartCodeCase> kStartCodes = {
        {"Mpeg2SequenceAndIPicture",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0xB3, 0x2D, 0x01, 0xE0, 0x24, 0, 0, 1, 0x00, 0x00, 1 << 3, 0xFF, 0xF8},
         sc(DemuxScIndex::SEQUENCE) | sc(DemuxScIndex::I_FRAME)},
        {"Mpeg2PPicture",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0xB3, 0x2D, 0, 0, 1, 0x00, 0x00, 2 << 3, 0xFF, 0xF8},
         sc(DemuxScIndex::SEQUENCE) | sc(DemuxScIndex::P_FRAME)},
        {"Mpeg2BPicture",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0x00, 0x00, 3 << 3, 0xFF, 0xF8},
         sc(DemuxScIndex::B_FRAME)},
        // H.264: access unit delimiter, SPS, IDR slice (first_mb 0: bit "1").
        {"H264SpsAndIdr",
         DemuxRecordScIndexType::SC,
         {0, 0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x67, 0x64, 0, 0x28, 0, 0, 1, 0x65, 0x88, 0x84},
         sc(DemuxScIndex::SEQUENCE) | sc(DemuxScIndex::I_FRAME)},
        // Non-IDR slices: first_mb_in_slice ue "1", slice_type ue: 5 (P) "00110", 6 (B) "00111".
        {"H264PSlice",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0x09, 0x30, 0, 0, 1, 0x41, 0b10011000, 0, 0},
         sc(DemuxScIndex::P_FRAME)},
        {"H264BSlice",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0x09, 0x50, 0, 0, 1, 0x01, 0b10011100, 0, 0},
         sc(DemuxScIndex::B_FRAME)},
        {"H264LaterSliceOfAPicture",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0x09, 0x30, 0, 0, 1, 0x41, 0b01011000, 0, 0},
         0},
        {"UnknownCodecWaitsForADecidingCode",
         DemuxRecordScIndexType::SC,
         {0, 0, 1, 0x65, 0x88, 0x84, 0, 0, 0, 0, 0, 0},
         0},
        // HEVC: AUD (35), SPS (33), IDR_W_RADL (19) and CRA (21) with first_slice_segment 1.
        {"HevcAudSpsIdr",
         DemuxRecordScIndexType::SC_HEVC,
         {0, 0, 1, 35 << 1, 1, 0x50, 0, 0, 1, 33 << 1, 1, 0x01, 0, 0, 1, 19 << 1, 1, 0xAF},
         hevc(DemuxScHevcIndex::AUD) | hevc(DemuxScHevcIndex::SPS) |
                 hevc(DemuxScHevcIndex::SLICE_IDR_W_RADL)},
        {"HevcCraAndBla",
         DemuxRecordScIndexType::SC_HEVC,
         {0, 0, 1, 21 << 1, 1, 0x80, 0, 0, 1, 16 << 1, 1, 0x80, 0, 0, 1, 1 << 1, 1, 0x00},
         hevc(DemuxScHevcIndex::SLICE_TRAIL_CRA) | hevc(DemuxScHevcIndex::SLICE_CE_BLA_W_LP)},
};

class StartCodeTest : public ::testing::TestWithParam<StartCodeCase> {};

TEST_P(StartCodeTest, FoundWholeAndSplitBetweenPayloads) {
    const StartCodeCase& c = GetParam();
    // Followed by filler, so every code has its look-ahead within the same call.
    Bytes payload = c.payload;
    payload.resize(64, 0xAA);
    StartCodeScanner whole(c.type);
    EXPECT_EQ(whole.scan(payload.data(), payload.size()), c.expected);
    for (size_t cut = 1; cut < c.payload.size(); ++cut) {
        StartCodeScanner split(c.type);
        uint32_t bits = split.scan(payload.data(), cut);
        bits |= split.scan(payload.data() + cut, payload.size() - cut);
        EXPECT_EQ(bits, c.expected) << "cut at " << cut;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, StartCodeTest, ::testing::ValuesIn(kStartCodes),
                         [](const auto& info) { return info.param.name; });

TEST_F(RecordFilterTest, StartCodeEventsCarryTheConfiguredMaskOnly) {
    RecordingSink sink;
    open(record(kPid, 0, DemuxRecordScIndexType::SC, sc(DemuxScIndex::I_FRAME)), sink);
    Bytes payload{0, 0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x67, 0x64, 0, 0x28, 0, 0, 1, 0x65, 0x88};
    payload.resize(184, 0x80);
    PacketOptions start;
    start.unitStart = true;
    feed({tsPacket(kPid, 0, payload, start), tsPacket(kPid, 1, Bytes(184, 0x80))});
    const auto events = recordEvents(sink);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].tsIndexMask, 0u);
    EXPECT_EQ(events[0].scIndexMask.sc(), sc(DemuxScIndex::I_FRAME));
    EXPECT_EQ(events[0].byteNumber, 0u);
}

}  // namespace
