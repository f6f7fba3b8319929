// Section filters through the engine: assembly across packets and its failures, selection by
// filter/mask/mode bytes and by table info, CRC, repetition, raw output and a full queue.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "DemuxTestSupport.h"
#include "demux/DemuxEngine.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterStatus;

constexpr uint16_t kPid = 0x100;

class SectionFilterTest : public ::testing::Test {
  protected:
    uint32_t open(const DemuxTsFilterSettings& settings, RecordingSink& sink) {
        uint32_t id = 0;
        FilterResources resources;
        resources.sink = &sink;
        resources.tracker = FilterStatusTracker::forCapacity(mCapacity);
        EXPECT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, settings, resources, id),
                  Result::SUCCESS);
        EXPECT_EQ(engine.start(id), Result::SUCCESS);
        return id;
    }
    void feed(const std::vector<Bytes>& packets) {
        const Bytes all = join(packets);
        engine.packets(all.data(), all.size());
    }
    void feedSections(const std::vector<Bytes>& sections) {
        feed(packSections(kPid, sections, mCc));
    }

    DemuxEngine engine;
    size_t mCapacity = 1 << 20;
    uint8_t mCc = 0;
};

const Bytes kLong = longSection(0x42, 1, 3, 7, counting(400));  // three packets
const Bytes kSmallB = longSection(0x42, 2, 0, 0, counting(10));
const Bytes kSmallC = longSection(0x42, 3, 0, 0, counting(20, 0x40));

struct AssemblyCase {
    std::string name;
    std::function<std::vector<Bytes>()> packets;
    std::vector<Bytes> expected;
    uint64_t malformed = 0;
    uint64_t continuityDrops = 0;
    uint64_t transportErrors = 0;
};

std::vector<Bytes> packed(const std::vector<Bytes>& sections, uint8_t cc = 0) {
    return packSections(kPid, sections, cc);
}

Bytes withCounter(Bytes packet, uint8_t cc) {
    packet[3] = static_cast<uint8_t>((packet[3] & 0xF0) | (cc & 0xF));
    return packet;
}

const std::vector<AssemblyCase> kAssemblyCases = {
        {"SpansPackets", [] { return packed({kLong}); }, {kLong}},
        {"SeveralInOnePacketThenStuffing",
         [] {
             auto p = packed({kSmallB, kSmallC, kSmallB});
             EXPECT_EQ(p.size(), 1u);
             return p;
         },
         {kSmallB, kSmallC, kSmallB}},
        {"PointerFieldSkipsTheEndOfThePrevious",
         [] {
             return packed({kLong, kSmallB, kLong});
         },
         {kLong, kSmallB, kLong}},
        {"CounterGapDropsThePartial",
         [] {
             auto p = packed({kLong, kSmallB});
             p.erase(p.begin() + 1);
             return p;
         },
         {kSmallB},
         0,
         1},
        {"RepeatedPacketIsSkipped",
         [] {
             auto p = packed({kLong});
             const Bytes again = p[1];
             p.insert(p.begin() + 1, again);
             return p;
         },
         {kLong}},
        {"TransportErrorDropsThePartial",
         [] {
             auto p = packed({kLong, kSmallB});
             p[1][1] |= 0x80;
             return p;
         },
         {kSmallB},
         0,
         0,
         1},
        {"ScrambledWithoutDescramblerDropsThePartial",
         [] {
             auto p = packed({kLong, kSmallB});
             p[1][3] |= 0x80;
             return p;
         },
         {kSmallB}},
        {"PointerPastThePacket",
         [] {
             PacketOptions start;
             start.unitStart = true;
             Bytes payload(184, 0xFF);
             payload[0] = 190;
             std::vector<Bytes> p{tsPacket(kPid, 0, payload, start)};
             for (const Bytes& b : packed({kSmallB}, 1)) p.push_back(b);
             return p;
         },
         {kSmallB},
         1},
        {"SectionLengthPastTheLargest",
         [] {
             PacketOptions start;
             start.unitStart = true;
             // section_length 4094: one more than a section may have.
             std::vector<Bytes> p{tsPacket(kPid, 0, {0x00, 0x42, 0xBF, 0xFE, 0x00}, start)};
             for (const Bytes& b : packed({kSmallB}, 1)) p.push_back(b);
             return p;
         },
         {kSmallB},
         1},
        {"NextSectionBeginsBeforeTheEnd",
         [] {
             auto p = packed({kLong});
             std::vector<Bytes> out{p[0], withCounter(packed({kSmallB})[0], 1)};
             return out;
         },
         {kSmallB},
         1},
        {"NothingBeforeTheFirstUnitStart",
         [] {
             auto p = packed({kLong, kSmallB});
             p.erase(p.begin());
             // The small section starts in the long one's last packet: it is found.
             return p;
         },
         {kSmallB}},
};

class SectionAssemblyTest : public SectionFilterTest,
                            public ::testing::WithParamInterface<AssemblyCase> {};

TEST_P(SectionAssemblyTest, DeliversWhatArrivedWhole) {
    const AssemblyCase& c = GetParam();
    RecordingSink sink;
    const uint32_t id = open(sectionBits(kPid, {}, {}, {}), sink);
    feed(c.packets());
    EXPECT_EQ(sink.units, c.expected);
    ASSERT_EQ(sink.events.size(), c.expected.size());
    const FilterCounters& n = *engine.counters(id);
    EXPECT_EQ(n.malformed, c.malformed);
    EXPECT_EQ(n.continuityDrops, c.continuityDrops);
    EXPECT_EQ(n.transportErrors, c.transportErrors);
}

INSTANTIATE_TEST_SUITE_P(Cases, SectionAssemblyTest, ::testing::ValuesIn(kAssemblyCases),
                         [](const auto& info) { return info.param.name; });

TEST_F(SectionFilterTest, EventDescribesTheSection) {
    RecordingSink sink;
    open(sectionBits(kPid, {}, {}, {}), sink);
    feedSections({kLong});
    const auto events = sectionEvents(sink);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].tableId, 0x42);
    EXPECT_EQ(events[0].version, 3);
    EXPECT_EQ(events[0].sectionNum, 7);
    EXPECT_EQ(events[0].dataLength, kLong.size());
}

// A PMT of program 0x1234, version 5: bytes 0 table id, 3-4 program number, 5 version.
const Bytes kPmt = longSection(0x02, 0x1234, 5, 0, counting(12));

struct MatchCase {
    std::string name;
    DemuxTsFilterSettings settings;
    bool delivered;
};

const std::vector<MatchCase> kMatchCases = {
        {"NoBytesTakeEverything", sectionBits(kPid, {}, {}, {}), true},
        {"TableId", sectionBits(kPid, {0x02}, {0xFF}, {}), true},
        {"OtherTableId", sectionBits(kPid, {0x03}, {0xFF}, {}), false},
        {"LengthBytesAreSkipped", sectionBits(kPid, {0x02, 0x12, 0x34}, {0xFF, 0xFF, 0xFF}, {}),
         true},
        {"OtherProgram", sectionBits(kPid, {0x02, 0x12, 0x35}, {0xFF, 0xFF, 0xFF}, {}), false},
        {"MaskedBitsOnly", sectionBits(kPid, {0x02, 0x12, 0x3F}, {0xFF, 0xFF, 0xF0}, {}), true},
        {"Version", sectionBits(kPid, {0, 0, 0, 5 << 1}, {0, 0, 0, 0x3E}, {}), true},
        {"OtherVersion", sectionBits(kPid, {0, 0, 0, 6 << 1}, {0, 0, 0, 0x3E}, {}), false},
        {"NotThisVersion", sectionBits(kPid, {0, 0, 0, 6 << 1}, {0, 0, 0, 0x3E}, {0, 0, 0, 0x3E}),
         true},
        {"NotTheVersionItHas",
         sectionBits(kPid, {0, 0, 0, 5 << 1}, {0, 0, 0, 0x3E}, {0, 0, 0, 0x3E}), false},
        {"PositiveAndNegative",
         sectionBits(kPid, {0x02, 0, 0, 4 << 1}, {0xFF, 0, 0, 0x3E}, {0x00, 0, 0, 0x3E}), true},
        {"PositiveFailsThoughNegativeHolds",
         sectionBits(kPid, {0x03, 0, 0, 4 << 1}, {0xFF, 0, 0, 0x3E}, {0x00, 0, 0, 0x3E}), false},
        {"MaskShorterThanFilter", sectionBits(kPid, {0x02, 0x77}, {0xFF}, {}), true},
        {"MaskPastTheSection",
         sectionBits(kPid, Bytes(16, 0),
                     [] {
                         Bytes m(16, 0);
                         m[15] = 0x01;  // section byte 17 of a 12-byte section
                         return m;
                     }(),
                     {}),
         false},
        {"TableInfo", tableInfo(kPid, 0x02, 5), true},
        {"TableInfoOtherVersion", tableInfo(kPid, 0x02, 6), false},
        {"TableInfoAnyVersion", tableInfo(kPid, 0x02, 0xFFFF), true},
        {"TableInfoOtherTable", tableInfo(kPid, 0x03, 0xFFFF), false},
};

class SectionMatchTest : public SectionFilterTest,
                         public ::testing::WithParamInterface<MatchCase> {};

TEST_P(SectionMatchTest, Selects) {
    RecordingSink sink;
    open(GetParam().settings, sink);
    // The last case's short section: only the header and CRC.
    feedSections(
            {GetParam().name == "MaskPastTheSection" ? longSection(0x02, 0x1234, 5, 0, {}) : kPmt});
    EXPECT_EQ(sink.units.size(), GetParam().delivered ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Cases, SectionMatchTest, ::testing::ValuesIn(kMatchCases),
                         [](const auto& info) { return info.param.name; });

TEST_F(SectionFilterTest, SettingsItCannotTakeAreRefused) {
    RecordingSink sink;
    uint32_t id = 0;
    FilterResources resources;
    resources.sink = &sink;
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, sectionBits(kPid, Bytes(17, 0), {}, {}),
                               resources, id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, tableInfo(kPid, 0x100, 0), resources, id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, pesData(kPid, 0xE0), resources, id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.filterCount(), 0u);
}

TEST_F(SectionFilterTest, WrongCrcIsDroppedOnlyWhenChecked) {
    Bytes bad = kPmt;
    bad.back() ^= 0x01;
    RecordingSink checking;
    RecordingSink trusting;
    const uint32_t checked = open(sectionBits(kPid, {}, {}, {}, true), checking);
    open(sectionBits(kPid, {}, {}, {}, false), trusting);
    feedSections({bad, kPmt});
    EXPECT_EQ(checking.units, std::vector<Bytes>{kPmt});
    EXPECT_EQ(engine.counters(checked)->crcErrors, 1u);
    EXPECT_EQ(trusting.units, (std::vector<Bytes>{bad, kPmt}));
}

TEST_F(SectionFilterTest, WithoutRepeatEachVersionComesOnce) {
    const Bytes v6 = longSection(0x02, 0x1234, 6, 0, counting(12));
    const Bytes otherProgram = longSection(0x02, 0x1235, 5, 0, counting(12));
    RecordingSink once;
    RecordingSink every;
    open(sectionBits(kPid, {}, {}, {}, true, false), once);
    open(sectionBits(kPid, {}, {}, {}, true, true), every);
    feedSections({kPmt, kPmt, otherProgram, kPmt, v6, v6, kPmt});
    EXPECT_EQ(once.units, (std::vector<Bytes>{kPmt, otherProgram, v6, kPmt}));
    EXPECT_EQ(every.units.size(), 7u);
}

TEST_F(SectionFilterTest, WithoutRepeatTheOldestRememberedSectionIsForgottenFirst) {
    RecordingSink sink;
    open(sectionBits(kPid, {}, {}, {}, true, false), sink);
    std::vector<Bytes> sections;
    for (size_t i = 0; i <= kMaxRememberedSections; ++i) {
        sections.push_back(longSection(0x4E, static_cast<uint16_t>(i), 1, 0, {}));
    }
    feedSections(sections);
    ASSERT_EQ(sink.units.size(), sections.size());
    // The first was forgotten to remember the last: it comes again, the last does not; taking
    // the first back in forgets the second.
    feedSections({sections.back(), sections.front(), sections[2], sections[1]});
    ASSERT_EQ(sink.units.size(), sections.size() + 2);
    EXPECT_EQ(sink.units[sections.size()], sections.front());
    EXPECT_EQ(sink.units.back(), sections[1]);
}

TEST_F(SectionFilterTest, RawOutputReportsDataReadyInsteadOfEvents) {
    RecordingSink sink;
    open(sectionBits(kPid, {}, {}, {}, true, true, true), sink);
    feedSections({kPmt, kPmt});
    EXPECT_EQ(sink.units.size(), 2u);
    EXPECT_TRUE(sink.events.empty());
    EXPECT_EQ(sink.statuses, (std::vector<DemuxFilterStatus>{DemuxFilterStatus::DATA_READY,
                                                             DemuxFilterStatus::DATA_READY}));
}

TEST_F(SectionFilterTest, FullQueueDropsAndCountsAndReportsOverflowOnce) {
    mCapacity = 2 * kPmt.size();  // low water at half a section, high at one and a half
    RecordingSink sink(mCapacity);
    const uint32_t id = open(sectionBits(kPid, {}, {}, {}, true, false), sink);
    const Bytes v6 = longSection(0x02, 0x1234, 6, 0, counting(12));
    const Bytes v7 = longSection(0x02, 0x1234, 7, 0, counting(12));
    feedSections({kPmt, v6, v7, v7});
    EXPECT_EQ(sink.units, (std::vector<Bytes>{kPmt, v6}));
    EXPECT_EQ(engine.counters(id)->overflowDrops, 2u);
    EXPECT_EQ(sink.statuses, (std::vector<DemuxFilterStatus>{DemuxFilterStatus::DATA_READY,
                                                             DemuxFilterStatus::HIGH_WATER,
                                                             DemuxFilterStatus::OVERFLOW}));
    // The client reads: the queue drains, and the version it refused comes with the table.
    sink.readAll();
    EXPECT_EQ(engine.drained(id), Result::SUCCESS);
    feedSections({v7});
    EXPECT_EQ(sink.units, (std::vector<Bytes>{kPmt, v6, v7}));
    EXPECT_EQ(sink.statuses.size(), 5u);
    EXPECT_EQ(sink.statuses[3], DemuxFilterStatus::LOW_WATER);
    EXPECT_EQ(sink.statuses[4], DemuxFilterStatus::DATA_READY);
    EXPECT_EQ(sectionEvents(sink).size(), 3u);
}

}  // namespace
