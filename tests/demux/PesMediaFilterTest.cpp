// PES, audio and video filters through the engine: PES packets bounded by their length or by
// the next unit start, the lies a stream may tell, media memory that is never overwritten while
// the client holds a frame, passthrough, and the descrambler in front of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "DemuxTestSupport.h"
#include "demux/DemuxEngine.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxFilterStatus;

constexpr uint16_t kPid = 0x200;

class PesMediaFilterTest : public ::testing::Test {
  protected:
    uint32_t open(DemuxTsFilterType type, const DemuxTsFilterSettings& settings,
                  RecordingSink& sink, AvRegion memory = {}) {
        uint32_t id = 0;
        FilterResources resources;
        resources.sink = &sink;
        resources.tracker = FilterStatusTracker::forCapacity(memory.size ? memory.size : 1 << 20);
        resources.avMemory = memory;
        EXPECT_EQ(engine.addFilter(type, settings, resources, id), Result::SUCCESS);
        EXPECT_EQ(engine.start(id), Result::SUCCESS);
        return id;
    }
    void feed(const std::vector<Bytes>& packets) {
        const Bytes all = join(packets);
        engine.packets(all.data(), all.size());
    }
    void feedPes(const Bytes& pes, uint8_t scrambling = 0) {
        feed(packPes(kPid, pes, mCc, scrambling));
    }

    XorDescrambler descrambler;
    DemuxEngine engine{&descrambler};
    uint8_t mCc = 0;
};

TEST_F(PesMediaFilterTest, PesPacketsEndAtTheirLengthOrAtTheNextUnitStart) {
    RecordingSink sink;
    open(DemuxTsFilterType::PES, pesData(kPid, 0xFFFF), sink);
    const Bytes bounded = pesPacket(0xC0, 900, counting(500));
    const Bytes unbounded = pesPacket(0xE0, 3600, counting(700, 9), true);
    feedPes(bounded);  // complete at its length: out before anything follows
    ASSERT_EQ(sink.units, std::vector<Bytes>{bounded});
    feedPes(unbounded);
    EXPECT_EQ(sink.units.size(), 1u);  // open until the next unit start
    feedPes(bounded);
    // The unbounded packet's last TS packet was stuffed with an adaptation field, not payload.
    EXPECT_EQ(sink.units, (std::vector<Bytes>{bounded, unbounded, bounded}));
    ASSERT_EQ(sink.events.size(), 3u);
    EXPECT_EQ(sink.events[1].pes().streamId, 0xE0);
    EXPECT_EQ(sink.events[1].pes().dataLength, unbounded.size());
    EXPECT_EQ(sink.events[1].pes().mpuSequenceNumber, 0u);
}

TEST_F(PesMediaFilterTest, PesFilterTakesItsStreamOnly) {
    RecordingSink audio;
    RecordingSink raw;
    open(DemuxTsFilterType::PES, pesData(kPid, 0xC0), audio);
    open(DemuxTsFilterType::PES, pesData(kPid, 0xFFFF, true), raw);
    feedPes(pesPacket(0xE0, 1, counting(50)));
    feedPes(pesPacket(0xC0, 2, counting(50)));
    EXPECT_EQ(audio.units.size(), 1u);
    EXPECT_EQ(audio.events.size(), 1u);
    EXPECT_EQ(raw.units.size(), 2u);
    EXPECT_TRUE(raw.events.empty());
    EXPECT_EQ(raw.statuses.size(), 2u);
}

struct LieCase {
    std::string name;
    std::function<std::vector<Bytes>(uint8_t& cc)> packets;
    uint64_t malformed;
    uint64_t oversize;
};

const std::vector<LieCase> kLies = {
        {"LengthLongerThanTheData",
         [](uint8_t& cc) {
             Bytes pes = pesPacket(0xC0, 1, counting(100));
             pes[5] += 50;  // says 50 bytes more than come
             auto p = packPes(kPid, pes, cc);
             for (auto& b : packPes(kPid, pesPacket(0xC0, 2, counting(10)), cc)) p.push_back(b);
             return p;
         },
         1, 0},
        {"NoStartCodePrefix",
         [](uint8_t& cc) {
             Bytes pes = pesPacket(0xC0, 1, counting(100));
             pes[2] = 0x02;
             return packPes(kPid, pes, cc);
         },
         1, 0},
        {"HeaderLengthPastThePacket",
         [](uint8_t& cc) {
             Bytes pes = pesPacket(0xC0, 1, counting(4));
             pes[8] = 200;  // PES_header_data_length
             return packPes(kPid, pes, cc);
         },
         1, 0},
        {"UnboundedPastTheBound",
         [](uint8_t& cc) {
             auto p = packPes(kPid, pesPacket(0xC0, 1, Bytes(kMaxPesPacketSize, 0x11), true), cc);
             for (auto& b : packPes(kPid, pesPacket(0xC0, 2, counting(10)), cc)) p.push_back(b);
             return p;
         },
         0, 1},
};

class PesLieTest : public PesMediaFilterTest, public ::testing::WithParamInterface<LieCase> {};

TEST_P(PesLieTest, IsCountedAndNothingWrongIsDelivered) {
    RecordingSink sink;
    const uint32_t id = open(DemuxTsFilterType::PES, pesData(kPid, 0xFFFF), sink);
    feed(GetParam().packets(mCc));
    for (const Bytes& unit : sink.units) {
        // Whatever got through is a whole PES packet as its header describes it.
        ASSERT_GE(unit.size(), 6u);
        EXPECT_EQ(unit.size(), 6u + ((unit[4] << 8) | unit[5]));
    }
    EXPECT_EQ(engine.counters(id)->malformed, GetParam().malformed);
    EXPECT_EQ(engine.counters(id)->oversizeDrops, GetParam().oversize);
}

INSTANTIATE_TEST_SUITE_P(Cases, PesLieTest, ::testing::ValuesIn(kLies),
                         [](const auto& info) { return info.param.name; });

TEST_F(PesMediaFilterTest, MediaEventPointsAtTheFrameInMemory) {
    std::vector<uint8_t> memory(4096, 0);
    RecordingSink sink;
    open(DemuxTsFilterType::AUDIO, av(kPid), sink, {memory.data(), memory.size()});
    const Bytes first = counting(300, 1);
    const Bytes second = counting(200, 7);
    feedPes(pesPacket(0xC0, 0x1FFFFFFFFull, first));
    feedPes(pesPacket(0xBD, std::nullopt, second));
    const auto events = mediaEvents(sink);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].streamId, 0xC0);
    EXPECT_TRUE(events[0].isPtsPresent);
    EXPECT_EQ(events[0].pts, 0x1FFFFFFFFull);
    EXPECT_FALSE(events[0].isPesPrivateData);
    EXPECT_FALSE(events[0].isSecureMemory);
    EXPECT_FALSE(events[1].isPtsPresent);
    EXPECT_TRUE(events[1].isPesPrivateData);
    EXPECT_NE(events[0].avDataId, events[1].avDataId);
    for (size_t i = 0; i < 2; ++i) {
        const Bytes& data = i == 0 ? first : second;
        ASSERT_EQ(events[i].dataLength, data.size());
        EXPECT_EQ(Bytes(memory.begin() + events[i].offset,
                        memory.begin() + events[i].offset + events[i].dataLength),
                  data);
    }
    EXPECT_TRUE(sink.units.empty());  // nothing through the queue
}

TEST_F(PesMediaFilterTest, HeldFramesAreNeverOverwritten) {
    std::vector<uint8_t> memory(1000, 0);
    RecordingSink sink;
    const uint32_t id =
            open(DemuxTsFilterType::VIDEO, av(kPid), sink, {memory.data(), memory.size()});
    for (uint8_t f = 0; f < 4; ++f) feedPes(pesPacket(0xE0, f * 3600u, Bytes(300, f), true));
    feedPes(pesPacket(0xE0, 4 * 3600u, Bytes(300, 4), true));  // ends the fourth
    // Three frames fit; the fourth is refused, the memory untouched.
    auto events = mediaEvents(sink);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(engine.counters(id)->avMemoryFull, 1u);
    for (const auto& e : events) {
        EXPECT_EQ(Bytes(memory.begin() + e.offset, memory.begin() + e.offset + e.dataLength),
                  Bytes(300, static_cast<uint8_t>(e.pts / 3600)));
    }
    EXPECT_NE(std::find(sink.statuses.begin(), sink.statuses.end(), DemuxFilterStatus::OVERFLOW),
              sink.statuses.end());
    // Releasing a later frame frees nothing before the first; releasing the first makes room.
    EXPECT_EQ(engine.releaseAvHandle(id, events[2].avDataId), Result::SUCCESS);
    EXPECT_EQ(engine.releaseAvHandle(id, events[2].avDataId), Result::INVALID_ARGUMENT);
    feedPes(pesPacket(0xE0, 5 * 3600u, Bytes(300, 5), true));
    EXPECT_EQ(mediaEvents(sink).size(), 3u);
    EXPECT_EQ(engine.releaseAvHandle(id, events[0].avDataId), Result::SUCCESS);
    feedPes(pesPacket(0xE0, 6 * 3600u, Bytes(300, 6), true));
    events = mediaEvents(sink);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[3].pts, 5 * 3600u);
    EXPECT_EQ(events[3].offset, 0u);  // wrapped to the start, where the first frame was
    EXPECT_EQ(Bytes(memory.begin() + 300, memory.begin() + 600), Bytes(300, 1));  // still held
    EXPECT_EQ(engine.releaseAvHandle(id, 999), Result::INVALID_ARGUMENT);
}

TEST_F(PesMediaFilterTest, AudioFramesAreBoundedTighterThanVideo) {
    std::vector<uint8_t> memory(4 * kMaxVideoFrameSize);
    RecordingSink audio;
    RecordingSink video;
    const uint32_t audioId =
            open(DemuxTsFilterType::AUDIO, av(kPid), audio, {memory.data(), memory.size() / 2});
    const uint32_t videoId = open(DemuxTsFilterType::VIDEO, av(kPid), video,
                                  {memory.data() + memory.size() / 2, memory.size() / 2});
    // Frames of the largest size each takes (with its 14 header bytes), and one byte more.
    for (size_t data : {kMaxAudioFrameSize - 14, kMaxAudioFrameSize - 13, kMaxVideoFrameSize - 14,
                        kMaxVideoFrameSize - 13}) {
        feedPes(pesPacket(0xE0, 1, Bytes(data, 0x11), true));
    }
    feedPes(pesPacket(0xE0, 2, {}, true));
    EXPECT_EQ(mediaEvents(audio).size(), 1u);
    EXPECT_EQ(engine.counters(audioId)->oversizeDrops, 3u);
    EXPECT_EQ(mediaEvents(video).size(), 3u);
    EXPECT_EQ(engine.counters(videoId)->oversizeDrops, 1u);
}

TEST_F(PesMediaFilterTest, PassthroughFramesGoToTheDecoderOnly) {
    RecordingSink sink;
    uint32_t id = 0;
    FilterResources resources;
    resources.sink = &sink;
    ASSERT_EQ(engine.addFilter(DemuxTsFilterType::AUDIO, av(kPid, true), resources, id),
              Result::SUCCESS);
    engine.start(id);
    feedPes(pesPacket(0xC0, 1, counting(100)));
    EXPECT_TRUE(sink.events.empty());
    EXPECT_EQ(engine.counters(id)->passthroughFrames, 1u);
    // Without passthrough a media filter needs memory for its frames.
    EXPECT_EQ(engine.addFilter(DemuxTsFilterType::AUDIO, av(kPid), resources, id),
              Result::INVALID_ARGUMENT);
}

TEST_F(PesMediaFilterTest, ScrambledPacketsAreDecodedOnlyOnceCleared) {
    std::vector<uint8_t> memory(4096, 0);
    RecordingSink media;
    RecordingSink ts;
    const uint32_t mediaId =
            open(DemuxTsFilterType::AUDIO, av(kPid), media, {memory.data(), memory.size()});
    open(DemuxTsFilterType::TS, plain(kPid), ts);
    const Bytes data = counting(400, 3);
    std::vector<Bytes> scrambled;
    for (const Bytes& p : packPes(kPid, pesPacket(0xC0, 77, data), mCc)) {
        scrambled.push_back(XorDescrambler::scramble(p, 3));
    }
    feed(scrambled);
    ASSERT_EQ(mediaEvents(media).size(), 1u);
    EXPECT_EQ(Bytes(memory.begin(), memory.begin() + data.size()), data);
    EXPECT_EQ(ts.units, scrambled);  // the TS filter takes them as they came

    descrambler.enabled = false;
    feed(scrambled);
    EXPECT_EQ(mediaEvents(media).size(), 1u);
    EXPECT_EQ(engine.counters(mediaId)->scrambledDrops, scrambled.size());
    EXPECT_EQ(engine.input().unscrambled, scrambled.size());
    EXPECT_EQ(ts.units.size(), 2 * scrambled.size());
}

}  // namespace
