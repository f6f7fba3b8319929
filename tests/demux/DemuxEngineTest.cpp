// The engine's routing and bounds, what it makes of packets it cannot read, the PCR filter, the
// queue statuses and the media memory's arithmetic.
#include <gtest/gtest.h>

#include <string>

#include "DemuxTestSupport.h"
#include "demux/AvMemory.h"
#include "demux/DemuxEngine.h"
#include "demux/FilterStatusTracker.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterStatus;

constexpr uint16_t kPid = 0x400;

FilterResources to(RecordingSink& sink) {
    FilterResources r;
    r.sink = &sink;
    r.tracker = FilterStatusTracker::forCapacity(1 << 20);
    return r;
}

TEST(DemuxEngineTest, FiltersSharingAPidEachGetEveryPacket) {
    DemuxEngine engine;
    RecordingSink a;
    RecordingSink b;
    RecordingSink other;
    uint32_t ia = 0;
    uint32_t ib = 0;
    uint32_t io = 0;
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(a), ia), Result::SUCCESS);
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(b), ib), Result::SUCCESS);
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid + 1), to(other), io),
              Result::SUCCESS);
    EXPECT_NE(ia, ib);
    for (uint32_t id : {ia, ib, io}) engine.start(id);
    const Bytes packets = join({tsPacket(kPid, 0, counting(10)), tsPacket(kPid + 1, 0, {}),
                                tsPacket(kPid, 1, counting(10))});
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(a.units.size(), 2u);
    EXPECT_EQ(b.units, a.units);
    EXPECT_EQ(other.units.size(), 1u);

    // Stopped, a filter takes nothing; removed, its slot is free again.
    engine.stop(ib);
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(a.units.size(), 4u);
    EXPECT_EQ(b.units.size(), 2u);
    EXPECT_EQ(engine.removeFilter(ia), Result::SUCCESS);
    EXPECT_EQ(engine.removeFilter(ia), Result::INVALID_ARGUMENT);
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(a.units.size(), 4u);
    EXPECT_EQ(engine.filterCount(), 2u);
}

TEST(DemuxEngineTest, WholeStreamFiltersGetEveryPacketBesideThePidsOwn) {
    DemuxEngine engine;
    RecordingSink whole;
    RecordingSink recorded;
    RecordingSink one;
    uint32_t ids[3] = {};
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kWholeStreamPid), to(whole), ids[0]),
              Result::SUCCESS);
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::RECORD, record(kWholeStreamPid, 0), to(recorded),
                               ids[1]),
              Result::SUCCESS);
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(one), ids[2]),
              Result::SUCCESS);
    for (uint32_t id : ids) engine.start(id);
    const std::vector<Bytes> sent = {tsPacket(kPid, 0, counting(10)), tsPacket(0x1FFF, 0, {}),
                                     tsPacket(0, 0, counting(5)),
                                     XorDescrambler::scramble(tsPacket(kPid + 1, 0, counting(20)))};
    const Bytes packets = join(sent);
    engine.packets(packets.data(), packets.size());
    // Null and scrambled packets too, as they came, in their order.
    EXPECT_EQ(whole.units, sent);
    EXPECT_EQ(recorded.units, sent);
    EXPECT_EQ(one.units.size(), 1u);
    // Removed, it takes nothing more, and the PID's own filter still gets its packets.
    ASSERT_EQ(engine.removeFilter(ids[0]), Result::SUCCESS);
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(whole.units.size(), sent.size());
    EXPECT_EQ(one.units.size(), 2u);
}

TEST(DemuxEngineTest, HoldsAtMostItsBoundOfFilters) {
    DemuxEngine engine;
    RecordingSink sink;
    std::vector<uint32_t> ids;
    for (size_t i = 0; i < kMaxFiltersPerDemux; ++i) {
        uint32_t id = 0;
        ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(static_cast<uint16_t>(i)), to(sink),
                                   id),
                  Result::SUCCESS);
        ids.push_back(id);
    }
    uint32_t id = 0;
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(sink), id),
              Result::UNAVAILABLE);
    ASSERT_EQ(engine.removeFilter(ids[10]), Result::SUCCESS);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(sink), id), Result::SUCCESS);
    EXPECT_EQ(id, ids[10]);
}

TEST(DemuxEngineTest, RefusesWhatItCannotRun) {
    DemuxEngine engine;
    RecordingSink sink;
    uint32_t id = 0;
    FilterResources none;
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), none, id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(0x2001), to(sink), id),
              Result::INVALID_ARGUMENT);
    // Only TS and record filters take the whole stream.
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, tableInfo(kWholeStreamPid, 0, 0xFFFF),
                               to(sink), id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::TEMI, plain(kPid), to(sink), id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::RECORD, plain(kPid), to(sink), id),
              Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.start(3), Result::INVALID_ARGUMENT);
    EXPECT_EQ(engine.releaseAvHandle(3, 1), Result::INVALID_ARGUMENT);
    // A PCR filter needs no sink.
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::PCR, plain(kPid), none, id), Result::SUCCESS);
}

struct BadInput {
    std::string name;
    Bytes bytes;
    uint64_t syncErrors;
    uint64_t malformed;
};

Bytes withByte(Bytes packet, size_t at, uint8_t value) {
    packet[at] = value;
    return packet;
}

const std::vector<BadInput> kBadInputs = {
        {"WrongSyncByte", withByte(tsPacket(kPid, 0, counting(10)), 0, 0x48), 1, 0},
        {"BytesShortOfAPacket", Bytes(100, 0x47), 1, 0},
        // adaptation_field_control 11 with a length of 183 leaves no payload byte.
        {"AdaptationPastPayload",
         withByte(tsPacket(kPid, 0, counting(1),
                           [] {
                               PacketOptions o;
                               o.adaptation = true;
                               return o;
                           }()),
                  4, 183),
         0, 1},
        {"AdaptationPastThePacket",
         [] {
             Bytes p = tsPacket(kPid, 0, {});
             p[3] = (p[3] & 0xCF) | 0x20;  // adaptation only
             p[4] = 184;
             return p;
         }(),
         0, 1},
};

class BadInputTest : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputTest, IsCountedAndReachesNoFilter) {
    DemuxEngine engine;
    RecordingSink sink;
    uint32_t id = 0;
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kPid), to(sink), id), Result::SUCCESS);
    engine.start(id);
    engine.packets(GetParam().bytes.data(), GetParam().bytes.size());
    EXPECT_TRUE(sink.units.empty());
    EXPECT_EQ(engine.input().syncErrors, GetParam().syncErrors);
    EXPECT_EQ(engine.input().malformed, GetParam().malformed);
    // The next good packet goes through.
    const Bytes good = tsPacket(kPid, 1, counting(10));
    engine.packets(good.data(), good.size());
    EXPECT_EQ(sink.units.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInputTest, ::testing::ValuesIn(kBadInputs),
                         [](const auto& info) { return info.param.name; });

TEST(DemuxEngineTest, PcrFilterKeepsTheLatestClock) {
    DemuxEngine engine;
    uint32_t id = 0;
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::PCR, plain(kPid), {}, id), Result::SUCCESS);
    engine.start(id);
    EXPECT_FALSE(engine.latestPcr(id));
    PacketOptions pcr;
    // The largest PCR: a 33-bit base and an extension of 299.
    const uint64_t largest = ((uint64_t{1} << 33) - 1) * 300 + 299;
    pcr.pcr27MHz = largest;
    Bytes packets = join({tsPacket(kPid, 0, {}, pcr), tsPacket(kPid, 1, counting(10))});
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(engine.latestPcr(id), largest);
    pcr.pcr27MHz = 27000000;
    pcr.transportError = true;  // not to be trusted
    packets = join({tsPacket(kPid, 2, {}, pcr)});
    engine.packets(packets.data(), packets.size());
    EXPECT_EQ(engine.latestPcr(id), largest);
    EXPECT_EQ(engine.latestPcr(), largest);
}

// The statuses of a queue of 100 bytes with the default shares: low 25, high 75.
struct StatusStep {
    int fill;  // -1: a refused write
    std::vector<DemuxFilterStatus> expected;
};

TEST(FilterStatusTrackerTest, ReportsEachCrossingOnce) {
    using S = DemuxFilterStatus;
    const std::vector<StatusStep> steps = {
            {10, {S::DATA_READY}},
            {50, {}},
            {75, {S::HIGH_WATER}},
            {90, {}},
            {-1, {S::OVERFLOW}},
            {-1, {}},
            {60, {}},
            {25, {S::LOW_WATER}},
            {0, {}},
            {30, {S::DATA_READY}},
            {20, {}},
            {-1, {S::OVERFLOW}},
            {10, {S::LOW_WATER}},
    };
    FilterStatusTracker tracker = FilterStatusTracker::forCapacity(100);
    for (size_t i = 0; i < steps.size(); ++i) {
        const uint8_t bits = steps[i].fill < 0 ? tracker.refused() : tracker.filled(steps[i].fill);
        uint8_t expected = 0;
        for (S s : steps[i].expected) expected |= static_cast<uint8_t>(s);
        EXPECT_EQ(bits, expected) << "step " << i;
    }
}

TEST(FilterStatusTrackerTest, MaskLeavesOutWhatTheClientDidNotAskFor) {
    FilterStatusTracker tracker(10, 20, static_cast<uint8_t>(DemuxFilterStatus::HIGH_WATER));
    EXPECT_EQ(tracker.filled(5), 0);
    EXPECT_EQ(tracker.filled(25), static_cast<uint8_t>(DemuxFilterStatus::HIGH_WATER));
    EXPECT_EQ(tracker.refused(), 0);
    EXPECT_EQ(tracker.filled(0), 0);
}

TEST(AvMemoryTest, FramesAreContiguousAndNeverOverlapHeldOnes) {
    std::vector<uint8_t> region(100);
    AvMemory memory({region.data(), region.size()});
    const Bytes f40(40, 1);
    const auto a = memory.store(f40.data(), 40);
    const auto b = memory.store(f40.data(), 40);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->offset, 0u);
    EXPECT_EQ(b->offset, 40u);
    EXPECT_FALSE(memory.store(f40.data(), 40));  // 20 at the end, none before the oldest
    EXPECT_TRUE(memory.release(a->id));
    const auto c = memory.store(f40.data(), 40);  // wraps to the start
    ASSERT_TRUE(c);
    EXPECT_EQ(c->offset, 0u);
    EXPECT_FALSE(memory.store(f40.data(), 1));  // between c's end and b's start: none
    EXPECT_EQ(memory.held(), 80u);
    EXPECT_FALSE(memory.store(f40.data(), 101));
    EXPECT_FALSE(memory.store(f40.data(), 0));
    EXPECT_FALSE(memory.release(a->id));
}

TEST(AvMemoryTest, HoldsAtMostItsBoundOfFrames) {
    std::vector<uint8_t> region(kMaxOutstandingAvFrames + 10);
    AvMemory memory({region.data(), region.size()});
    const uint8_t byte = 7;
    for (size_t i = 0; i < kMaxOutstandingAvFrames; ++i) ASSERT_TRUE(memory.store(&byte, 1));
    EXPECT_FALSE(memory.store(&byte, 1));
    EXPECT_TRUE(memory.release(1));
    EXPECT_TRUE(memory.store(&byte, 1));
}

}  // namespace
