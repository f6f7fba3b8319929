// Packets that go whole to one queue (record filters of one DVR, a whole-stream filter) are
// written as runs: the queue must get what packet-by-packet delivery gives it, in the order the
// packets came, with each filter's counts its own, and as many as fit when room runs short.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "DemuxTestSupport.h"
#include "demux/DemuxEngine.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxTsIndex;

constexpr uint16_t kVideo = 0x100;
constexpr uint16_t kAudio = 0x101;
constexpr uint16_t kIndexed = 0x102;  // recorded with an index: packet by packet
constexpr uint16_t kOther = 0x103;    // not recorded
constexpr uint32_t kUnitStart = static_cast<uint32_t>(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR);

// Three record filters into one shared queue, as a DVR's.
struct Recording {
    explicit Recording(size_t capacity) : dvr(capacity) {
        add(kVideo, 0);
        add(kAudio, 0);
        add(kIndexed, kUnitStart);
    }
    void add(uint16_t pid, uint32_t index) {
        FilterResources r;
        r.sink = &dvr;
        r.tracker = FilterStatusTracker(4 * 188, 8 * 188);
        uint32_t id = 0;
        ASSERT_EQ(engine.addFilter(DemuxTsFilterType::RECORD, record(pid, index), r, id),
                  Result::SUCCESS);
        ASSERT_EQ(engine.start(id), Result::SUCCESS);
        ids.push_back(id);
    }
    const FilterCounters& counters(size_t i) const { return *engine.counters(ids[i]); }

    DemuxEngine engine;
    RecordingSink dvr;
    std::vector<uint32_t> ids;
};

// Video in bursts, audio and indexed packets between them, packets nobody records, one with the
// transport error flag.
std::vector<Bytes> stream() {
    std::vector<Bytes> out;
    std::array<uint8_t, 0x104> cc{};
    auto add = [&](uint16_t pid, const PacketOptions& options = {}) {
        out.push_back(
                tsPacket(pid, cc[pid]++ & 0xF, counting(184, static_cast<uint8_t>(pid)), options));
    };
    PacketOptions start;
    start.unitStart = true;
    PacketOptions damaged;
    damaged.transportError = true;
    for (int round = 0; round < 6; ++round) {
        for (int i = 0; i < 4; ++i) add(kVideo);
        add(kAudio);
        add(kIndexed, start);
        add(kOther);
        add(kVideo, round == 2 ? damaged : PacketOptions{});
        add(kAudio);
        add(kIndexed);
    }
    return out;
}

std::vector<Bytes> recordedOf(const std::vector<Bytes>& packets) {
    std::vector<Bytes> out;
    for (const Bytes& p : packets) {
        const uint16_t pid = static_cast<uint16_t>((p[1] & 0x1F) << 8 | p[2]);
        if (pid != kOther) out.push_back(p);
    }
    return out;
}

TEST(PacketRunTest, SharedQueueGetsEveryPacketInTheOrderItCame) {
    Recording r(1 << 20);
    const std::vector<Bytes> sent = stream();
    const Bytes all = join(sent);
    r.engine.packets(all.data(), all.size());

    EXPECT_EQ(r.dvr.packets(), recordedOf(sent));
    EXPECT_LT(r.dvr.units.size(), r.dvr.packets().size());  // written as runs, not one by one
    const std::array<uint64_t, 3> expected = {6 * 5, 6 * 2, 6 * 2};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(r.counters(i).packets, expected[i]) << i;
        EXPECT_EQ(r.counters(i).delivered, expected[i]) << i;
    }
    EXPECT_EQ(r.counters(0).transportErrors, 1u);
    // The indexed filter's offsets are in its own output, whatever ran beside it.
    ASSERT_EQ(r.dvr.events.size(), 6u);
    for (size_t i = 0; i < r.dvr.events.size(); ++i)
        EXPECT_EQ(r.dvr.events[i].tsRecord().byteNumber, i * 2 * 188) << i;
}

struct RoomCase {
    const char* name;
    size_t capacityPackets;
};

class PacketRunRoomTest : public testing::TestWithParam<RoomCase> {};

// Fed at once (runs) or one packet a call (no two packets to join), the queue, the counts and
// the statuses are the same: short of room, as many packets as fit, and each refusal counted.
TEST_P(PacketRunRoomTest, RunsGiveWhatSinglePacketsGive) {
    const size_t capacity = GetParam().capacityPackets * 188;
    Recording runs(capacity);
    Recording singles(capacity);
    const std::vector<Bytes> sent = stream();
    const Bytes all = join(sent);
    runs.engine.packets(all.data(), all.size());
    for (const Bytes& p : sent) singles.engine.packets(p.data(), p.size());

    EXPECT_EQ(runs.dvr.packets(), singles.dvr.packets());
    const size_t fit = std::min(GetParam().capacityPackets, recordedOf(sent).size());
    EXPECT_EQ(runs.dvr.packets().size(), fit);
    for (size_t i = 0; i < 3; ++i) {
        const FilterCounters& a = runs.counters(i);
        const FilterCounters& b = singles.counters(i);
        EXPECT_EQ(a.packets, b.packets) << i;
        EXPECT_EQ(a.delivered, b.delivered) << i;
        EXPECT_EQ(a.overflowDrops, b.overflowDrops) << i;
        EXPECT_EQ(a.transportErrors, b.transportErrors) << i;
    }
    EXPECT_EQ(runs.dvr.events.size(), singles.dvr.events.size());
    // Each filter's statuses; a run reports its filters' after the run, not between packets.
    auto sorted = [](std::vector<DemuxFilterStatus> s) {
        std::sort(s.begin(), s.end());
        return s;
    };
    EXPECT_EQ(sorted(runs.dvr.statuses), sorted(singles.dvr.statuses));
    const bool overflowed = fit < recordedOf(sent).size();
    EXPECT_EQ(std::count(runs.dvr.statuses.begin(), runs.dvr.statuses.end(),
                         DemuxFilterStatus::OVERFLOW) > 0,
              overflowed);
}

INSTANTIATE_TEST_SUITE_P(Room, PacketRunRoomTest,
                         testing::Values(RoomCase{"Roomy", 4096}, RoomCase{"TenPackets", 10},
                                         RoomCase{"OnePacket", 1}),
                         [](const testing::TestParamInfo<RoomCase>& info) {
                             return std::string(info.param.name);
                         });

// A whole-stream filter takes the stream as a run too, null and damaged packets included.
TEST(PacketRunTest, WholeStreamFilterTakesTheStreamAsItCame) {
    DemuxEngine engine;
    RecordingSink sink;
    FilterResources r;
    r.sink = &sink;
    r.tracker = FilterStatusTracker::forCapacity(1 << 20);
    uint32_t id = 0;
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::TS, plain(kWholeStreamPid), r, id),
              Result::SUCCESS);
    ASSERT_EQ(engine.start(id), Result::SUCCESS);
    std::vector<Bytes> sent = stream();
    sent.push_back(tsPacket(0x1FFF, 0, {}));
    const Bytes all = join(sent);
    engine.packets(all.data(), all.size());
    EXPECT_EQ(sink.packets(), sent);
    EXPECT_EQ(sink.units.size(), 1u);
    EXPECT_EQ(engine.counters(id)->delivered, sent.size());
    EXPECT_EQ(sink.statuses, std::vector<DemuxFilterStatus>{DemuxFilterStatus::DATA_READY});
}

}  // namespace
