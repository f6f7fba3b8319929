// The engine on the simulated air's multiplex: tables agree with the independent stream
// checker, filters select what they are set for, damaged sections are dropped, timestamps run
// at the stream's frame rates, and a recording is the air's packets byte for byte.
#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi.h>
#include <bitstream/mpeg/ts.h>
#include <gtest/gtest.h>

#include <map>

#include "DemuxTestSupport.h"
#include "demux/DemuxEngine.h"
#include "simulator/stream/MultiplexStream.h"
#include "streamcheck/StreamChecker.h"

namespace {

using namespace demuxtest;
using namespace mox::demux;
using ::android::hardware::tv::tuner::V1_0::DemuxRecordScIndexType;
using ::android::hardware::tv::tuner::V1_0::DemuxScIndex;
using ::android::hardware::tv::tuner::V1_0::DemuxTsIndex;

constexpr uint64_t kBitRate = 20000000;
constexpr uint16_t kTsId = 0x1001;
// Service one: H.264 video (carrying the PCR) and MPEG audio; service two: MPEG-2 video and
// MPEG audio.
constexpr uint16_t kProgramOne = 0x0101;
constexpr uint16_t kProgramTwo = 0x0102;
constexpr uint16_t kPmtOne = 0x0100;
constexpr uint16_t kPmtTwo = 0x0200;
constexpr uint16_t kVideoOne = 0x0110;
constexpr uint16_t kAudioOne = 0x0111;
constexpr uint16_t kAudioTwo = 0x0211;
constexpr uint64_t kVideoFrame90k = 3600;  // 25 frames/s
constexpr uint64_t kAudioFrame90k = 2160;  // 24 ms

mox::air::MultiplexSetup setup(double crcErrorsPerS = 0) {
    using namespace mox::air;
    MultiplexSetup s;
    s.content.networkId = 0x3001;
    s.content.networkName = "Demux Test";
    s.content.transportStreamId = kTsId;
    s.content.originalNetworkId = 0x2001;
    Service one;
    one.id = kProgramOne;
    one.name = "One";
    one.provider = "Test";
    one.pmtPid = kPmtOne;
    one.pcrPid = kVideoOne;
    one.components = {{0x1B, kVideoOne, "", 2000000, false},
                      {0x03, kAudioOne, "eng", 192000, false}};
    Service two;
    two.id = kProgramTwo;
    two.name = "Two";
    two.provider = "Test";
    two.pmtPid = kPmtTwo;
    two.pcrPid = 0x210;
    two.components = {{0x02, 0x210, "", 3000000, false}, {0x03, kAudioTwo, "deu", 128000, false}};
    s.content.services = {one, two};
    s.network.id = s.content.networkId;
    s.network.name = s.content.networkName;
    Delivery d;
    d.frequencyKHz = 506000;
    d.bandwidthKHz = 8000;
    d.bitsPerSymbol = 6;
    d.codeRate = {2, 3};
    s.network.multiplexes = {{d, s.content}};
    s.faults.crcErrorsPerS = crcErrorsPerS;
    return s;
}

Bytes air(mox::air::MultiplexStream& stream, uint64_t ms) {
    Bytes out(kBitRate / 1504 * (ms + 1000) / 1000 * 188);
    const size_t n = stream.produce(ms * 1000, out.data(), out.size() / 188);
    out.resize(n * 188);
    return out;
}

std::vector<Bytes> packetsOf(const Bytes& stream, uint16_t pid) {
    std::vector<Bytes> out;
    for (size_t at = 0; at + 188 <= stream.size(); at += 188) {
        if (ts_get_pid(stream.data() + at) == pid) {
            out.emplace_back(stream.begin() + at, stream.begin() + at + 188);
        }
    }
    return out;
}

class AirStreamDemuxTest : public ::testing::Test {
  protected:
    uint32_t open(DemuxTsFilterType type, const DemuxTsFilterSettings& settings,
                  RecordingSink& sink, AvRegion memory = {}) {
        uint32_t id = 0;
        FilterResources resources;
        resources.sink = &sink;
        resources.tracker = FilterStatusTracker::forCapacity(64 << 20);
        resources.avMemory = memory;
        EXPECT_EQ(engine.addFilter(type, settings, resources, id), Result::SUCCESS);
        EXPECT_EQ(engine.start(id), Result::SUCCESS);
        return id;
    }
    void feed(const Bytes& stream) {
        // In the pieces a demux's input takes them.
        for (size_t at = 0; at < stream.size(); at += 188 * 64) {
            engine.packets(stream.data() + at, std::min<size_t>(188 * 64, stream.size() - at));
        }
    }
    DemuxEngine engine;
};

TEST_F(AirStreamDemuxTest, PatIsWhatTheCheckerDecodes) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    const Bytes bytes = air(stream, 1000);
    RecordingSink sink;
    open(DemuxTsFilterType::SECTION, tableInfo(0, 0x00, 0xFFFF), sink);
    feed(bytes);
    mox::streamcheck::StreamChecker checker({kBitRate, 5});
    checker.packets(bytes.data(), bytes.size());
    const auto report = checker.report();
    ASSERT_TRUE(report.tables.pat);
    ASSERT_GE(sink.units.size(), 9u);  // every 100 ms
    EXPECT_EQ(sink.units.size(), report.repetitions.pat.count);
    for (const Bytes& pat : sink.units) {
        ASSERT_TRUE(psi_check_crc(pat.data()));
        EXPECT_EQ(psi_get_tableidext(pat.data()), report.tables.pat->transportStreamId);
        EXPECT_EQ(psi_get_version(pat.data()), report.tables.pat->version);
        std::map<uint16_t, uint16_t> programs;
        for (size_t at = 8; at + 4 + 4 <= pat.size(); at += 4) {
            programs[(pat[at] << 8) | pat[at + 1]] = ((pat[at + 2] & 0x1F) << 8) | pat[at + 3];
        }
        EXPECT_EQ(programs, report.tables.pat->programs);
    }
    const auto events = sectionEvents(sink);
    ASSERT_EQ(events.size(), sink.units.size());
    EXPECT_EQ(events[0].tableId, 0x00);
    EXPECT_EQ(events[0].version, report.tables.pat->version);
    EXPECT_EQ(events[0].dataLength, sink.units[0].size());
}

TEST_F(AirStreamDemuxTest, PmtByProgramNumberIsThatProgramsOnly) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    const Bytes bytes = air(stream, 1000);
    RecordingSink mine;
    RecordingSink other;
    const Bytes filter{0x02, kProgramTwo >> 8, kProgramTwo & 0xFF};
    const Bytes mask{0xFF, 0xFF, 0xFF};
    open(DemuxTsFilterType::SECTION, sectionBits(kPmtTwo, filter, mask, {}), mine);
    // The same bytes on the other program's PID select nothing.
    open(DemuxTsFilterType::SECTION, sectionBits(kPmtOne, filter, mask, {}), other);
    feed(bytes);
    mox::streamcheck::StreamChecker checker({kBitRate, 5});
    checker.packets(bytes.data(), bytes.size());
    const auto report = checker.report();
    ASSERT_EQ(report.tables.pmts.count(kProgramTwo), 1u);
    const auto& pmt = report.tables.pmts.at(kProgramTwo);
    ASSERT_GE(mine.units.size(), 9u);
    EXPECT_TRUE(other.units.empty());
    for (const Bytes& s : mine.units) {
        EXPECT_EQ(psi_get_tableid(s.data()), 0x02);
        EXPECT_EQ(psi_get_tableidext(s.data()), kProgramTwo);
        EXPECT_EQ(((s[8] & 0x1F) << 8) | s[9], pmt.pcrPid);
        std::vector<uint16_t> pids;
        const size_t infoLength = ((s[10] & 0x0F) << 8) | s[11];
        for (size_t at = 12 + infoLength; at + 5 + 4 <= s.size();) {
            pids.push_back(static_cast<uint16_t>(((s[at + 1] & 0x1F) << 8) | s[at + 2]));
            at += 5 + (((s[at + 3] & 0x0F) << 8) | s[at + 4]);
        }
        std::vector<uint16_t> expected;
        for (const auto& es : pmt.streams) expected.push_back(es.pid);
        EXPECT_EQ(pids, expected);
    }
}

TEST_F(AirStreamDemuxTest, WithoutRepeatATableOfOneVersionComesOnce) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    RecordingSink sink;
    open(DemuxTsFilterType::SECTION, sectionBits(0, {0x00}, {0xFF}, {}, true, false), sink);
    feed(air(stream, 3000));
    EXPECT_EQ(sink.units.size(), 1u);
}

TEST_F(AirStreamDemuxTest, ModeBitsSelectTheVersionsThatDiffer) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    const Bytes bytes = air(stream, 1000);
    const uint8_t version = psi_get_version(ts_section(packetsOf(bytes, 0)[0].data()));
    RecordingSink same;
    RecordingSink differing;
    const Bytes mask{0, 0, 0, 0x3E};
    open(DemuxTsFilterType::SECTION,
         sectionBits(0, {0, 0, 0, static_cast<uint8_t>(version << 1)}, mask, mask), same);
    open(DemuxTsFilterType::SECTION,
         sectionBits(0, {0, 0, 0, static_cast<uint8_t>(((version + 1) & 0x1F) << 1)}, mask, mask),
         differing);
    feed(bytes);
    EXPECT_TRUE(same.units.empty());
    EXPECT_GE(differing.units.size(), 9u);
}

TEST_F(AirStreamDemuxTest, SectionsWithWrongCrcAreDroppedWhenChecked) {
    mox::air::MultiplexStream stream(setup(50), kBitRate, 1700000000);
    const Bytes bytes = air(stream, 5000);
    uint64_t crcErrors = 0;
    for (uint16_t pid : {uint16_t{0}, kPmtOne, kPmtTwo}) {
        RecordingSink checking;
        RecordingSink trusting;
        DemuxEngine engine;
        FilterResources resources;
        resources.tracker = FilterStatusTracker::forCapacity(64 << 20);
        uint32_t checked = 0;
        uint32_t trusted = 0;
        resources.sink = &checking;
        ASSERT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, sectionBits(pid, {}, {}, {}, true),
                                   resources, checked),
                  Result::SUCCESS);
        resources.sink = &trusting;
        ASSERT_EQ(engine.addFilter(DemuxTsFilterType::SECTION, sectionBits(pid, {}, {}, {}, false),
                                   resources, trusted),
                  Result::SUCCESS);
        engine.start(checked);
        engine.start(trusted);
        engine.packets(bytes.data(), bytes.size());
        for (const Bytes& s : checking.units) EXPECT_TRUE(psi_check_crc(s.data()));
        size_t bad = 0;
        for (const Bytes& s : trusting.units) bad += psi_check_crc(s.data()) ? 0 : 1;
        EXPECT_EQ(engine.counters(checked)->crcErrors, bad);
        EXPECT_EQ(checking.units.size() + bad, trusting.units.size());
        crcErrors += bad;
    }
    EXPECT_GT(crcErrors, 0u);  // the stream did carry some
}

uint64_t ptsOf(const Bytes& pes) {
    return pes_get_pts(pes.data());
}

TEST_F(AirStreamDemuxTest, TimestampsRunAtTheFrameRates) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    std::vector<uint8_t> videoMemory(8 << 20);
    std::vector<uint8_t> audioMemory(1 << 20);
    RecordingSink video;
    RecordingSink audio;
    RecordingSink pes;
    const uint32_t videoId = open(DemuxTsFilterType::VIDEO, av(kVideoOne), video,
                                  {videoMemory.data(), videoMemory.size()});
    const uint32_t audioId = open(DemuxTsFilterType::AUDIO, av(kAudioOne), audio,
                                  {audioMemory.data(), audioMemory.size()});
    open(DemuxTsFilterType::PES, pesData(kAudioTwo, 0xC0), pes);
    // A second at a time, the client releasing each frame as it is done with it.
    for (uint64_t s = 1; s <= 3; ++s) {
        feed(air(stream, s * 1000));
        for (const auto& e : mediaEvents(video)) engine.releaseAvHandle(videoId, e.avDataId);
        for (const auto& e : mediaEvents(audio)) engine.releaseAvHandle(audioId, e.avDataId);
    }
    const auto videoEvents = mediaEvents(video);
    const auto audioEvents = mediaEvents(audio);
    ASSERT_GE(videoEvents.size(), 70u);   // 25 a second
    ASSERT_GE(audioEvents.size(), 120u);  // 41.7 a second
    for (size_t i = 1; i < videoEvents.size(); ++i) {
        ASSERT_TRUE(videoEvents[i].isPtsPresent);
        EXPECT_EQ(videoEvents[i].pts - videoEvents[i - 1].pts, kVideoFrame90k) << i;
        EXPECT_EQ(videoEvents[i].streamId, 0xE0);
    }
    for (size_t i = 1; i < audioEvents.size(); ++i) {
        EXPECT_EQ(audioEvents[i].pts - audioEvents[i - 1].pts, kAudioFrame90k) << i;
    }
    // The frame in memory begins as the air's video frames do: an access unit delimiter.
    const auto& last = videoEvents.back();
    const Bytes start(videoMemory.begin() + last.offset, videoMemory.begin() + last.offset + 5);
    EXPECT_EQ(start, (Bytes{0, 0, 0, 1, 0x09}));
    EXPECT_EQ(engine.counters(videoId)->avMemoryFull, 0u);
    ASSERT_GE(pes.units.size(), 120u);
    for (size_t i = 1; i < pes.units.size(); ++i) {
        EXPECT_EQ(ptsOf(pes.units[i]) - ptsOf(pes.units[i - 1]), kAudioFrame90k) << i;
    }
}

TEST_F(AirStreamDemuxTest, RecordingIsTheAirsPacketsWithTheirIndex) {
    mox::air::MultiplexStream stream(setup(), kBitRate, 1700000000);
    const Bytes bytes = air(stream, 2000);
    RecordingSink sink;
    const uint32_t pusi = static_cast<uint32_t>(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR);
    const uint32_t pcr = static_cast<uint32_t>(DemuxTsIndex::PCR_FLAG);
    open(DemuxTsFilterType::RECORD,
         record(kVideoOne, pusi | pcr, DemuxRecordScIndexType::SC,
                static_cast<uint32_t>(DemuxScIndex::I_FRAME)),
         sink);
    feed(bytes);
    const std::vector<Bytes> expected = packetsOf(bytes, kVideoOne);
    ASSERT_EQ(sink.units, expected);
    std::map<uint64_t, uint32_t> flagged;  // packet index: index bits
    size_t frames = 0;
    for (const auto& e : recordEvents(sink)) {
        ASSERT_EQ(e.byteNumber % 188, 0u);
        flagged[e.byteNumber / 188] = e.tsIndexMask;
        frames += e.scIndexMask.sc() != 0 ? 1 : 0;
    }
    size_t unitStarts = 0;
    for (size_t i = 0; i < expected.size(); ++i) {
        const uint8_t* p = expected[i].data();
        uint32_t bits = 0;
        if (ts_get_unitstart(p)) bits |= pusi;
        if (ts_has_adaptation(p) && ts_get_adaptation(p) > 0 && tsaf_has_pcr(p)) bits |= pcr;
        unitStarts += ts_get_unitstart(p) ? 1 : 0;
        const auto found = flagged.find(i);
        EXPECT_EQ(found == flagged.end() ? 0 : found->second, bits) << "packet " << i;
    }
    ASSERT_GE(unitStarts, 45u);
    // Every frame of the air's H.264 starts with an IDR slice.
    EXPECT_EQ(frames, unitStarts);
}

}  // namespace
