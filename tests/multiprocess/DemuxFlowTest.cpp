// The data flows a client of the interface runs after a tune, as the public tuner tests run
// them, against the service process: a section filter's PAT and PMT, video and audio frames in
// the memory the client maps, the PCR's clock through AV sync and a time filter, a scrambled
// service's video through a descrambler, nothing after stopTune, and everything closed in any
// order.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DemuxSettings.h"
#include "RecordingCallback.h"
#include "ServiceProcess.h"
#include "TestSettings.h"
#include "simulator/SimulatedDriver.h"

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using namespace testing_support;
using ::android::sp;
using ::android::hardware::EventFlag;
using ::android::hardware::hidl_vec;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using Queue = MessageQueue<uint8_t, kSynchronizedReadWrite>;

// The built-in box's first DVB-T multiplex, on frontend 0: its first service's PMT is on 0x100,
// its video on 0x101 (which carries the PCR) and its audio on 0x102.
constexpr uint32_t kMultiplexHz = 482000000;
constexpr uint16_t kPmtPid = 0x100;
constexpr uint16_t kVideoPid = 0x101;
constexpr uint16_t kAudioPid = 0x102;
constexpr uint32_t kQueueBytes = 1 << 20;
constexpr uint16_t kWholeStreamPid = 0x2000;  // a TS filter on it takes every packet
// Its scrambled service is the third of the first terrestrial multiplex (DVB-T2, 474 MHz):
// service id 0x0013, H.264 video on 0x121, scrambled with the service's control word.
constexpr uint32_t kScrambledMultiplexHz = 474000000;
constexpr uint16_t kScrambledServiceId = 0x0013;
constexpr uint16_t kScrambledVideoPid = 0x121;

class FilterEvents : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        std::lock_guard<std::mutex> guard(mLock);
        for (const auto& e : event.events) mEvents.push_back(e);
        mChanged.notify_all();
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus status) override {
        std::lock_guard<std::mutex> guard(mLock);
        mStatuses.push_back(status);
        return Void();
    }
    // Waits until at least n events came (or the bound passed); the events so far.
    std::vector<DemuxFilterEvent::Event> waitFor(size_t n) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, kBound, [&] { return mEvents.size() >= n; });
        return mEvents;
    }
    size_t count() {
        std::lock_guard<std::mutex> guard(mLock);
        return mEvents.size();
    }
    bool sawStatus(DemuxFilterStatus status) {
        std::lock_guard<std::mutex> guard(mLock);
        return std::find(mStatuses.begin(), mStatuses.end(), status) != mStatuses.end();
    }
    size_t statusCount() {
        std::lock_guard<std::mutex> guard(mLock);
        return mStatuses.size();
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<DemuxFilterEvent::Event> mEvents;
    std::vector<DemuxFilterStatus> mStatuses;
};

DemuxFilterType tsType(DemuxTsFilterType sub) {
    return demuxtest::tsFilterType(sub);
}

// Sections of one table on a PID, CRC checked, every one.
DemuxFilterSettings sectionOn(uint16_t pid, uint8_t tableId) {
    return demuxtest::asFilterSettings(demuxtest::sectionBits(pid, {tableId}, {0xFF}, {0x00}));
}

DemuxFilterSettings mediaOn(uint16_t pid) {
    return demuxtest::asFilterSettings(demuxtest::av(pid));
}

// The first MPEG audio stream's PES packets.
DemuxFilterSettings pesOn(uint16_t pid) {
    return demuxtest::asFilterSettings(demuxtest::pesData(pid, 0xC0));
}

DemuxFilterSettings plainOn(uint16_t pid) {
    return demuxtest::asFilterSettings(demuxtest::plain(pid));
}

// A filter opened, configured and started the way a client does, with its queue mapped.
struct OpenFilter {
    sp<IFilter> filter;
    sp<FilterEvents> events = new FilterEvents();
    std::unique_ptr<Queue> queue;
    MQDescriptorSync<uint8_t> descriptor;
    EventFlag* flag = nullptr;
    uint32_t id = 0;

    OpenFilter(const sp<IDemux>& demux, DemuxTsFilterType type, const DemuxFilterSettings& s) {
        Result opened = Result::UNKNOWN_ERROR;
        demux->openFilter(tsType(type), kQueueBytes, events, [&](Result r, const sp<IFilter>& f) {
            opened = r;
            filter = f;
        });
        if (opened != Result::SUCCESS || filter == nullptr) return;
        filter->getId([&](Result, uint32_t filterId) { id = filterId; });
        if (filter->configure(s) != Result::SUCCESS) filter = nullptr;
        if (filter == nullptr) return;
        filter->getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& desc) {
            if (r == Result::SUCCESS) queue = std::make_unique<Queue>(desc, false);
            if (r == Result::SUCCESS) descriptor = desc;
        });
        if (!queue || !queue->isValid() ||
            EventFlag::createEventFlag(queue->getEventFlagWord(), &flag) != ::android::OK) {
            filter = nullptr;
            return;
        }
        if (filter->start() != Result::SUCCESS) filter = nullptr;
    }
    ~OpenFilter() {
        if (flag != nullptr) EventFlag::deleteEventFlag(&flag);
    }
    // A section event's bytes, read from the queue as the client reads them.
    std::vector<uint8_t> read(size_t length) {
        std::vector<uint8_t> bytes(length);
        if (!queue->read(bytes.data(), length)) bytes.clear();
        flag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_CONSUMED));
        return bytes;
    }
};

DemuxFilterSettings recordOn(uint16_t pid) {
    return demuxtest::asFilterSettings(demuxtest::record(
            pid, static_cast<uint32_t>(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR)));
}

// The multiplex the service's air carries on 482 MHz, made here: its tables are the same bytes.
std::vector<uint8_t> localAir(uint64_t untilUs) {
    mox::sim::SimulatedDriver driver;
    const auto air = mox::sim::SimulatedDriver::defaultAir();
    for (size_t t = 0; t < air.size(); ++t) {
        if (air[t].frequencyMHz != kMultiplexHz / 1000000) continue;
        auto source = driver.transmitterStream(t);
        std::vector<uint8_t> out(source->bitRate() / 1504 * 188 * (untilUs / 1000000 + 1));
        out.resize(source->produce(untilUs, out.data(), out.size() / 188) * 188);
        return out;
    }
    return {};
}

class DvrStatuses : public IDvrCallback {
  public:
    Return<void> onRecordStatus(DemuxFilterStatus status) override {
        std::lock_guard<std::mutex> guard(mLock);
        record.push_back(status);
        return Void();
    }
    Return<void> onPlaybackStatus(PlaybackStatus status) override {
        std::lock_guard<std::mutex> guard(mLock);
        playback.push_back(status);
        return Void();
    }
    std::vector<PlaybackStatus> playbackSoFar() {
        std::lock_guard<std::mutex> guard(mLock);
        return playback;
    }
    std::vector<DemuxFilterStatus> recordSoFar() {
        std::lock_guard<std::mutex> guard(mLock);
        return record;
    }

  private:
    std::mutex mLock;
    std::vector<DemuxFilterStatus> record;
    std::vector<PlaybackStatus> playback;
};

// A DVR opened and configured the way a client does, with its queue mapped.
struct OpenDvr {
    sp<IDvr> dvr;
    sp<DvrStatuses> statuses = new DvrStatuses();
    std::unique_ptr<Queue> queue;
    MQDescriptorSync<uint8_t> descriptor;
    EventFlag* flag = nullptr;

    OpenDvr(const sp<IDemux>& demux, DvrType type, uint32_t bytes) {
        demux->openDvr(type, bytes, statuses, [&](Result r, const sp<IDvr>& d) {
            if (r == Result::SUCCESS) dvr = d;
        });
        if (dvr == nullptr) return;
        const DvrSettings settings = demuxtest::dvrSettings(type, bytes);
        if (dvr->configure(settings) != Result::SUCCESS) dvr = nullptr;
        if (dvr == nullptr) return;
        dvr->getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& desc) {
            if (r == Result::SUCCESS) queue = std::make_unique<Queue>(desc, false);
            if (r == Result::SUCCESS) descriptor = desc;
        });
        if (!queue || !queue->isValid() ||
            EventFlag::createEventFlag(queue->getEventFlagWord(), &flag) != ::android::OK) {
            dvr = nullptr;
        }
    }
    ~OpenDvr() {
        if (flag != nullptr) EventFlag::deleteEventFlag(&flag);
    }
};

// A queue's memory as a broken client sees it: mapped whole, positions and flag word its own to
// scribble on (the memory is writable by both sides, as libfmq's is).
class QueueMemory {
  public:
    explicit QueueMemory(const MQDescriptorSync<uint8_t>& d) : mDescriptor(d) {
        struct stat st {};
        const int fd = d.handle()->data[0];
        if (fstat(fd, &st) != 0) return;
        mSize = size_t(st.st_size);
        void* base = mmap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (base != MAP_FAILED) mBase = static_cast<uint8_t*>(base);
    }
    ~QueueMemory() {
        if (mBase != nullptr) munmap(mBase, mSize);
    }
    bool mapped() const { return mBase != nullptr; }
    // Grantors: 0 the read position, 1 the write position, 3 the event-flag word.
    std::atomic<uint64_t>* position(size_t grantor) {
        return reinterpret_cast<std::atomic<uint64_t>*>(mBase +
                                                        mDescriptor.grantors()[grantor].offset);
    }
    std::atomic<uint32_t>* flagWord() {
        return reinterpret_cast<std::atomic<uint32_t>*>(mBase + mDescriptor.grantors()[3].offset);
    }

  private:
    MQDescriptorSync<uint8_t> mDescriptor;
    uint8_t* mBase = nullptr;
    size_t mSize = 0;
};

uint32_t crc32(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= uint32_t(data[i]) << 24;
        for (int b = 0; b < 8; ++b) crc = (crc & 0x80000000) ? (crc << 1) ^ 0x04C11DB7 : crc << 1;
    }
    return crc;
}

class DemuxFlowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mLog = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/demux.log";
        mService = spawnService(mLog);
        ::android::hardware::configureRpcThreadpool(2, false);
        ASSERT_TRUE(eventually([&] { return (mTuner = ITuner::getService()) != nullptr; }))
                << readFile(mLog);
        mTuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        mTuner->openFrontendById(0, [&](Result, const sp<IFrontend>& f) { mFrontend = f; });
        ASSERT_NE(mFrontend, nullptr);
        ASSERT_EQ(mFrontend->setCallback(mFrontendEvents), Result::SUCCESS);
        mTuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
            if (r != Result::SUCCESS) return;
            mDemux = d;
            mDemuxId = id;
        });
        ASSERT_NE(mDemux, nullptr);
        ASSERT_EQ(mDemux->setFrontendDataSource(0), Result::SUCCESS);
    }
    void TearDown() override {
        mFrontend = nullptr;
        mDemux = nullptr;
        mTuner = nullptr;
        kill(mService, SIGTERM);
        waitForChild(mService);
    }
    void tuneAndLock(const FrontendSettings& settings = dvbt(kMultiplexHz)) {
        ASSERT_EQ(mFrontend->tune(settings), Result::SUCCESS);
        ASSERT_TRUE(eventually([&] {
            const auto events = mFrontendEvents->events();
            return !events.empty() && events.back() == FrontendEventType::LOCKED;
        }));
    }

    std::string mLog;
    pid_t mService = -1;
    sp<ITuner> mTuner;
    sp<IFrontend> mFrontend;
    sp<RecordingCallback> mFrontendEvents = new RecordingCallback();
    sp<IDemux> mDemux;
    uint32_t mDemuxId = 0;
};

TEST_F(DemuxFlowTest, ASectionFilterDeliversThePatAndAPmtFilterThePmtAfterATune) {
    OpenFilter pat(mDemux, DemuxTsFilterType::SECTION, sectionOn(0, 0x00));
    OpenFilter pmt(mDemux, DemuxTsFilterType::SECTION, sectionOn(kPmtPid, 0x02));
    ASSERT_NE(pat.filter, nullptr);
    ASSERT_NE(pmt.filter, nullptr);
    EXPECT_NE(pat.id, pmt.id);
    tuneAndLock();

    for (OpenFilter* f : {&pat, &pmt}) {
        const auto events = f->events->waitFor(2);
        ASSERT_GE(events.size(), 2u) << readFile(mLog);
        for (size_t i = 0; i < 2; ++i) {
            ASSERT_EQ(events[i].getDiscriminator(),
                      DemuxFilterEvent::Event::hidl_discriminator::section);
            const DemuxFilterSectionEvent& s = events[i].section();
            const std::vector<uint8_t> bytes = f->read(s.dataLength);
            ASSERT_EQ(bytes.size(), s.dataLength);
            EXPECT_EQ(bytes[0], s.tableId);
            EXPECT_EQ(size_t(((bytes[1] & 0x0F) << 8 | bytes[2]) + 3), bytes.size());
            EXPECT_EQ(crc32(bytes.data(), bytes.size()), 0u) << "a whole section, CRC and all";
        }
    }
    EXPECT_EQ(pat.events->waitFor(1)[0].section().tableId, 0x00);
    EXPECT_EQ(pmt.events->waitFor(1)[0].section().tableId, 0x02);

    // After stopTune nothing more arrives.
    ASSERT_EQ(mFrontend->stopTune(), Result::SUCCESS);
    std::this_thread::sleep_for(100ms);  // what was on its way when the input stopped
    const size_t atStop = pat.events->count();
    std::this_thread::sleep_for(400ms);  // the air's PAT comes every 100 ms (at 50x, 2 ms)
    EXPECT_EQ(pat.events->count(), atStop);

    // Closed in any order: the demux first, then a filter it had.
    EXPECT_EQ(mDemux->close(), Result::SUCCESS);
    EXPECT_EQ(pmt.filter->start(), Result::INVALID_STATE);
    EXPECT_EQ(pmt.filter->close(), Result::INVALID_STATE);
    EXPECT_EQ(pat.filter->close(), Result::INVALID_STATE);
}

TEST_F(DemuxFlowTest, VideoAndAudioFramesArriveInMemoryTheClientMaps) {
    OpenFilter video(mDemux, DemuxTsFilterType::VIDEO, mediaOn(kVideoPid));
    OpenFilter audio(mDemux, DemuxTsFilterType::AUDIO, mediaOn(kAudioPid));
    OpenFilter pes(mDemux, DemuxTsFilterType::PES, pesOn(kAudioPid));
    ASSERT_NE(video.filter, nullptr);
    ASSERT_NE(audio.filter, nullptr);
    ASSERT_NE(pes.filter, nullptr);
    tuneAndLock();

    // The same audio as whole PES packets in the PES filter's queue.
    const auto pesEvents = pes.events->waitFor(2);
    ASSERT_GE(pesEvents.size(), 2u) << readFile(mLog);
    for (size_t i = 0; i < 2; ++i) {
        ASSERT_EQ(pesEvents[i].getDiscriminator(), DemuxFilterEvent::Event::hidl_discriminator::pes);
        EXPECT_EQ(pesEvents[i].pes().streamId, 0xC0);
        const std::vector<uint8_t> packet = pes.read(pesEvents[i].pes().dataLength);
        ASSERT_GE(packet.size(), 14u);
        EXPECT_EQ(std::vector<uint8_t>(packet.begin(), packet.begin() + 4),
                  (std::vector<uint8_t>{0x00, 0x00, 0x01, 0xC0}));
        EXPECT_EQ(size_t(packet[4] << 8 | packet[5]) + 6, packet.size()) << "whole, as it says";
    }

    struct Expectation {
        OpenFilter* filter;
        uint64_t frameTicks;  // 90 kHz: 25 pictures a second, 1152 samples at 48 kHz
    };
    for (const Expectation& e : {Expectation{&video, 3600}, Expectation{&audio, 2160}}) {
        const auto events = e.filter->events->waitFor(3);
        ASSERT_GE(events.size(), 3u) << readFile(mLog);
        for (size_t i = 0; i < 3; ++i) {
            ASSERT_EQ(events[i].getDiscriminator(),
                      DemuxFilterEvent::Event::hidl_discriminator::media);
            const DemuxFilterMediaEvent& m = events[i].media();
            EXPECT_TRUE(m.isPtsPresent);
            if (i > 0) {
                EXPECT_EQ(m.pts - events[i - 1].media().pts, e.frameTicks);
            }
            ASSERT_NE(m.avMemory.getNativeHandle(), nullptr);
            ASSERT_EQ(m.avMemory->numFds, 1);
            // The frame is where the event says, in memory the client maps.
            const size_t end = size_t(m.offset) + m.dataLength;
            void* mapped = mmap(nullptr, end, PROT_READ, MAP_SHARED, m.avMemory->data[0], 0);
            ASSERT_NE(mapped, MAP_FAILED);
            const uint8_t* frame = static_cast<const uint8_t*>(mapped) + m.offset;
            if (e.frameTicks == 3600) {
                EXPECT_EQ(std::vector<uint8_t>(frame, frame + 5),
                          (std::vector<uint8_t>{0x00, 0x00, 0x00, 0x01, 0x09}));
            }
            munmap(mapped, end);
            EXPECT_EQ(e.filter->filter->releaseAvHandle(m.avMemory, m.avDataId), Result::SUCCESS);
        }
    }
    // Filters first, then the demux.
    EXPECT_EQ(video.filter->stop(), Result::SUCCESS);
    EXPECT_EQ(video.filter->close(), Result::SUCCESS);
    EXPECT_EQ(audio.filter->close(), Result::SUCCESS);
    EXPECT_EQ(mDemux->close(), Result::SUCCESS);
    EXPECT_EQ(pes.filter->close(), Result::INVALID_STATE);
}

TEST_F(DemuxFlowTest, ThePcrClocksAvSyncAndTheTimeFilter) {
    OpenFilter video(mDemux, DemuxTsFilterType::VIDEO, mediaOn(kVideoPid));
    OpenFilter pcr(mDemux, DemuxTsFilterType::PCR, plainOn(kVideoPid));
    ASSERT_NE(pcr.filter, nullptr);
    uint32_t syncId = UINT32_MAX;
    mDemux->getAvSyncHwId(video.filter, [&](Result r, uint32_t id) {
        EXPECT_EQ(r, Result::SUCCESS);
        syncId = id;
    });
    EXPECT_EQ(syncId, pcr.id) << "a media filter is clocked by the PCR filter on its PID";
    sp<ITimeFilter> timeFilter;
    mDemux->openTimeFilter([&](Result r, const sp<ITimeFilter>& t) {
        EXPECT_EQ(r, Result::SUCCESS);
        timeFilter = t;
    });
    ASSERT_NE(timeFilter, nullptr);
    timeFilter->getTimeStamp([](Result r, uint64_t) { EXPECT_EQ(r, Result::NOT_INITIALIZED); });
    ASSERT_EQ(timeFilter->setTimeStamp(1000), Result::SUCCESS);

    tuneAndLock();
    auto syncTime = [&] {
        uint64_t time = 0;
        mDemux->getAvSyncTime(syncId, [&](Result r, uint64_t t) {
            EXPECT_EQ(r, Result::SUCCESS);
            time = t;
        });
        return time;
    };
    uint64_t first = 0;
    ASSERT_TRUE(eventually([&] { return (first = syncTime()) != 0; })) << readFile(mLog);
    // The clock moves on with the stream.
    EXPECT_TRUE(eventually([&] { return syncTime() > first + 9000; }));
    uint64_t source = 0, stamp = 0;
    timeFilter->getSourceTime([&](Result r, uint64_t t) {
        EXPECT_EQ(r, Result::SUCCESS);
        source = t;
    });
    EXPECT_GE(source, first);
    EXPECT_TRUE(eventually([&] {
        timeFilter->getTimeStamp([&](Result, uint64_t t) { stamp = t; });
        return stamp > 1000 + 9000;
    })) << "the stamp runs on with the stream once it has a clock";
    EXPECT_EQ(timeFilter->clearTimeStamp(), Result::SUCCESS);
    EXPECT_EQ(timeFilter->close(), Result::SUCCESS);
    EXPECT_EQ(pcr.filter->close(), Result::SUCCESS);
    EXPECT_EQ(mDemux->close(), Result::SUCCESS);
    EXPECT_EQ(video.filter->close(), Result::INVALID_STATE);
}

TEST_F(DemuxFlowTest, ARecordFiltersPacketsReachTheDvrWholeAndAsTheAirSentThem) {
    OpenDvr dvr(mDemux, DvrType::RECORD, 1 << 20);
    ASSERT_NE(dvr.dvr, nullptr);
    OpenFilter pat(mDemux, DemuxTsFilterType::RECORD, recordOn(0));
    ASSERT_NE(pat.filter, nullptr);
    ASSERT_EQ(dvr.dvr->attachFilter(pat.filter), Result::SUCCESS);
    ASSERT_EQ(dvr.dvr->start(), Result::SUCCESS);
    tuneAndLock();

    // The client reads whole packets as they come.
    std::vector<uint8_t> recorded;
    ASSERT_TRUE(eventually([&] {
        const size_t n = dvr.queue->availableToRead();
        const size_t start = recorded.size();
        recorded.resize(start + n);
        if (n > 0 && !dvr.queue->read(recorded.data() + start, n)) recorded.resize(start);
        return recorded.size() >= 8 * 188;
    })) << readFile(mLog);
    ASSERT_EQ(recorded.size() % 188, 0u);

    std::vector<uint8_t> airPat;
    const std::vector<uint8_t> air = localAir(1000000);
    for (size_t at = 0; at < air.size() && airPat.empty(); at += 188) {
        if (air[at + 1] == 0x40 && air[at + 2] == 0x00) airPat.assign(&air[at], &air[at] + 188);
    }
    ASSERT_FALSE(airPat.empty());
    for (size_t at = 0; at < recorded.size(); at += 188) {
        std::vector<uint8_t> packet(&recorded[at], &recorded[at] + 188);
        if (at > 0) {
            EXPECT_EQ(packet[3] & 0x0F, (recorded[at - 188 + 3] + 1) & 0x0F) << at;
        }
        packet[3] = airPat[3];
        ASSERT_EQ(packet, airPat) << "packet " << at / 188;
    }
    // Every PAT packet starts a section: the filter says so, packet by packet.
    const auto events = pat.events->waitFor(8);
    ASSERT_GE(events.size(), 8u);
    for (size_t i = 0; i < 8; ++i) {
        ASSERT_EQ(events[i].getDiscriminator(),
                  DemuxFilterEvent::Event::hidl_discriminator::tsRecord);
        EXPECT_EQ(events[i].tsRecord().tsIndexMask,
                  static_cast<uint32_t>(DemuxTsIndex::PAYLOAD_UNIT_START_INDICATOR));
        EXPECT_EQ(events[i].tsRecord().byteNumber, i * 188);
    }
    // The queue's statuses are the DVR's: the record filter's own queue stays empty.
    EXPECT_TRUE(eventually([&] {
        const auto statuses = dvr.statuses->recordSoFar();
        return std::count(statuses.begin(), statuses.end(), DemuxFilterStatus::DATA_READY) > 0;
    }));
    EXPECT_EQ(pat.events->statusCount(), 0u);
    EXPECT_EQ(dvr.dvr->stop(), Result::SUCCESS);
    EXPECT_EQ(dvr.dvr->detachFilter(pat.filter), Result::SUCCESS);
    EXPECT_EQ(dvr.dvr->detachFilter(pat.filter), Result::INVALID_ARGUMENT);
    EXPECT_EQ(dvr.dvr->close(), Result::SUCCESS);
    EXPECT_EQ(pat.filter->close(), Result::SUCCESS);
}

TEST_F(DemuxFlowTest, APlayedStreamReachesASectionFilterUnchanged) {
    sp<IDemux> player;
    mTuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { player = d; });
    ASSERT_NE(player, nullptr);
    OpenDvr dvr(player, DvrType::PLAYBACK, 1 << 20);
    ASSERT_NE(dvr.dvr, nullptr);
    OpenFilter pmt(player, DemuxTsFilterType::SECTION, sectionOn(kPmtPid, 0x02));
    ASSERT_NE(pmt.filter, nullptr);
    ASSERT_EQ(dvr.dvr->start(), Result::SUCCESS);

    // A second of the air, written as a client writes a file, a piece at a time.
    const std::vector<uint8_t> stream = localAir(1000000);
    std::vector<uint8_t> airPmt;
    for (size_t at = 0; at < stream.size() && airPmt.empty(); at += 188) {
        const uint8_t* p = &stream[at];
        if (((p[1] & 0x1F) << 8 | p[2]) == kPmtPid && (p[1] & 0x40)) {
            const size_t length = ((p[6] & 0x0F) << 8 | p[7]) + 3;
            airPmt.assign(p + 5, p + 5 + length);
        }
    }
    ASSERT_FALSE(airPmt.empty());
    size_t written = 0;
    ASSERT_TRUE(eventually([&] {
        const size_t room = dvr.queue->availableToWrite() / 188 * 188;
        const size_t n = std::min(room, stream.size() - written);
        if (n > 0 && dvr.queue->write(&stream[written], n)) {
            written += n;
            dvr.flag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY));
        }
        return written == stream.size();
    }));
    const auto events = pmt.events->waitFor(2);
    ASSERT_GE(events.size(), 2u) << readFile(mLog);
    EXPECT_EQ(pmt.read(events[0].section().dataLength), airPmt);
    EXPECT_TRUE(eventually([&] {
        const auto statuses = dvr.statuses->playbackSoFar();
        return !statuses.empty() && statuses.back() == PlaybackStatus::SPACE_EMPTY;
    })) << "all played";
    // Closed in any order.
    EXPECT_EQ(pmt.filter->close(), Result::SUCCESS);
    EXPECT_EQ(player->close(), Result::SUCCESS);
    EXPECT_EQ(dvr.dvr->close(), Result::INVALID_STATE);
}

// A client that writes a playback DVR as fast as the queue takes it, never waiting for the
// player, is held back by the queue (SPACE_FULL), not buffered for: a filter it never reads
// overflows and everything is played.
void writeFasterThanItPlays(const sp<ITuner>& tuner) {
    sp<IDemux> player;
    tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { player = d; });
    ASSERT_NE(player, nullptr);
    OpenDvr dvr(player, DvrType::PLAYBACK, 64 * 1024);
    ASSERT_NE(dvr.dvr, nullptr);
    OpenFilter unread(player, DemuxTsFilterType::TS, plainOn(kWholeStreamPid));
    ASSERT_NE(unread.filter, nullptr);
    ASSERT_EQ(dvr.dvr->start(), Result::SUCCESS);

    const std::vector<uint8_t> stream = localAir(1000000);
    ASSERT_FALSE(stream.empty());
    const size_t total = 4 * stream.size();
    size_t written = 0;
    while (written < total) {
        const size_t at = written % stream.size();
        const size_t n = std::min(dvr.queue->availableToWrite() / 188 * 188, stream.size() - at);
        if (n == 0) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_TRUE(dvr.queue->write(&stream[at], n));
        dvr.flag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY));
        written += n;
    }
    EXPECT_TRUE(eventually([&] {
        const auto statuses = dvr.statuses->playbackSoFar();
        return !statuses.empty() && statuses.back() == PlaybackStatus::SPACE_EMPTY;
    })) << "all played";
    const auto statuses = dvr.statuses->playbackSoFar();
    EXPECT_NE(std::find(statuses.begin(), statuses.end(), PlaybackStatus::SPACE_FULL), statuses.end())
            << "the first write filled the queue before the player took any of it";
    EXPECT_TRUE(eventually([&] { return unread.events->sawStatus(DemuxFilterStatus::OVERFLOW); }));
    EXPECT_EQ(unread.filter->close(), Result::SUCCESS);
    EXPECT_EQ(dvr.dvr->close(), Result::SUCCESS);
    EXPECT_EQ(player->close(), Result::SUCCESS);
}

// Descriptors of the service other than sockets and pipes: how many channels a session keeps for
// its calls and callbacks depends on how many were under way at once, and a sanitizer's runtime
// opens pipes to its symbolizer when it first needs one. What the data path makes (queue and
// media memory, anything a client sent) is none of those.
size_t descriptorsButSocketsAndPipes(pid_t service) {
    std::istringstream lines(describeDescriptors(service));
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(" -> ") != std::string::npos &&
                 line.find("socket:") == std::string::npos &&
                 line.find("pipe:") == std::string::npos;
    }
    return count;
}

// Done twice, the second time leaves the service no queue memory and no more descriptors
// (sockets and pipes aside) than the first left it: anything the first opens once stays out.
TEST_F(DemuxFlowTest, APlaybackWrittenFasterThanItPlaysIsHeldBackNotBuffered) {
    writeFasterThanItPlays(mTuner);
    auto noQueueMemory = [&] {
        return describeDescriptors(mService).find("memfd") == std::string::npos;
    };
    EXPECT_TRUE(eventually(noQueueMemory)) << describeDescriptors(mService);
    const size_t baseline = descriptorsButSocketsAndPipes(mService);
    writeFasterThanItPlays(mTuner);
    EXPECT_TRUE(eventually([&] {
        return noQueueMemory() && descriptorsButSocketsAndPipes(mService) <= baseline;
    })) << descriptorsButSocketsAndPipes(mService)
        << " descriptors but sockets and pipes, " << baseline << " before:\n"
        << describeDescriptors(mService);
}

// What a client writes into its queues' memory breaks its own queues only: a filter whose read
// position lies takes nothing more (OVERFLOW), a playback DVR whose write position lies plays
// nothing, a flag word changed without end never holds the service up, and the service's
// other queues and answers go on.
TEST_F(DemuxFlowTest, NonsenseInQueueMemoryBreaksOnlyThatQueue) {
    OpenFilter lied(mDemux, DemuxTsFilterType::SECTION, sectionOn(0, 0x00));
    OpenFilter honest(mDemux, DemuxTsFilterType::SECTION, sectionOn(kPmtPid, 0x02));
    ASSERT_NE(lied.filter, nullptr);
    ASSERT_NE(honest.filter, nullptr);
    QueueMemory filterMemory(lied.descriptor);
    ASSERT_TRUE(filterMemory.mapped());
    filterMemory.position(0)->store(0xFFFFFFFF00000000ull);

    sp<IDemux> player;
    mTuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { player = d; });
    ASSERT_NE(player, nullptr);
    OpenDvr dvr(player, DvrType::PLAYBACK, 1 << 16);
    ASSERT_NE(dvr.dvr, nullptr);
    OpenFilter played(player, DemuxTsFilterType::SECTION, sectionOn(0, 0x00));
    ASSERT_EQ(dvr.dvr->start(), Result::SUCCESS);
    QueueMemory dvrMemory(dvr.descriptor);
    ASSERT_TRUE(dvrMemory.mapped());
    dvrMemory.position(1)->store(uint64_t{1} << 40);  // more written than the ring holds
    std::atomic<bool> scribbling{true};
    std::thread scribbler([&] {
        for (uint32_t v = 0; scribbling; ++v) {
            dvrMemory.flagWord()->store(v * 2654435761u);
            std::this_thread::yield();
        }
    });

    tuneAndLock();
    EXPECT_GE(honest.events->waitFor(3).size(), 3u) << readFile(mLog);
    EXPECT_TRUE(eventually([&] { return lied.events->sawStatus(DemuxFilterStatus::OVERFLOW); }));
    EXPECT_EQ(lied.events->count(), 0u);
    EXPECT_EQ(played.events->count(), 0u);
    // The DVR's thread is never stuck on the word: the DVR stops and closes at once.
    EXPECT_EQ(dvr.dvr->stop(), Result::SUCCESS);
    EXPECT_EQ(dvr.dvr->close(), Result::SUCCESS);
    scribbling = false;
    scribbler.join();
    EXPECT_EQ(player->close(), Result::SUCCESS);
    EXPECT_EQ(lied.filter->close(), Result::SUCCESS);
    EXPECT_EQ(honest.filter->close(), Result::SUCCESS);
}

// The service in a process of its own, answering.
pid_t startService(const std::string& log) {
    const pid_t service = spawnService(log);
    eventually([] {
        return waitForChild(forkClient([] { return ITuner::getService() != nullptr ? 0 : 1; })) == 0;
    });
    return service;
}

// A frontend and a demux bound to it, opened as a client opens them.
struct BoundDemux {
    sp<ITuner> tuner;
    sp<IFrontend> frontend;
    sp<IDemux> demux;
    uint32_t demuxId = 0;

    explicit BoundDemux(uint32_t frontendId) {
        tuner = ITuner::getService();
        if (tuner == nullptr) return;
        tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        tuner->openFrontendById(frontendId, [&](Result, const sp<IFrontend>& f) { frontend = f; });
        tuner->openDemux([&](Result, uint32_t id, const sp<IDemux>& d) {
            demux = d;
            demuxId = id;
        });
        if (demux != nullptr && demux->setFrontendDataSource(frontendId) != Result::SUCCESS)
            demux = nullptr;
    }
    bool ok() const { return frontend != nullptr && demux != nullptr; }
};

// A client process that sets itself up (true: ready) and then waits to be killed: its pid once
// it is ready, or -1.
pid_t parkedClient(const std::function<bool()>& setUp) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    const pid_t client = forkClient([&] {
        ::android::hardware::configureRpcThreadpool(1, false);
        const char byte = setUp() ? 1 : 0;
        if (write(ready[1], &byte, 1) != 1) return 1;
        pause();
        return 0;
    });
    char byte = 0;
    const bool isReady = read(ready[0], &byte, 1) == 1 && byte == 1;
    close(ready[0]);
    close(ready[1]);
    if (isReady) return client;
    kill(client, SIGKILL);
    waitForChild(client);
    return -1;
}

// A client killed with filters open and a DVR recording: what it held comes back, and another
// client streams all the while.
TEST(DemuxCleanupTest, AKilledClientsFiltersAndDvrsAreClosedWhileAnotherStreams) {
    const std::string log = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/cleanup.log";
    const pid_t service = startService(log);
    const size_t baseline = openDescriptors(service);
    const pid_t killed = parkedClient([] {
        static BoundDemux own(0);  // held until the kill
        if (!own.ok()) return false;
        // Held until the kill.
        static OpenFilter video(own.demux, DemuxTsFilterType::VIDEO, mediaOn(kVideoPid));
        static OpenFilter pat(own.demux, DemuxTsFilterType::SECTION, sectionOn(0, 0x00));
        static OpenFilter record(own.demux, DemuxTsFilterType::RECORD, recordOn(kVideoPid));
        static OpenDvr dvr(own.demux, DvrType::RECORD, 1 << 20);
        if (video.filter == nullptr || pat.filter == nullptr || record.filter == nullptr ||
            dvr.dvr == nullptr || dvr.dvr->attachFilter(record.filter) != Result::SUCCESS ||
            dvr.dvr->start() != Result::SUCCESS) {
            return false;
        }
        own.frontend->setCallback(new RecordingCallback());
        own.frontend->tune(dvbt(kMultiplexHz));
        return eventually([&] { return pat.events->count() > 0 && dvr.queue->availableToRead(); });
    });
    ASSERT_GT(killed, 0) << readFile(log);

    // Another client streams from another tuner meanwhile.
    ::android::hardware::configureRpcThreadpool(2, false);
    BoundDemux other(1);
    ASSERT_TRUE(other.ok());
    EXPECT_EQ(other.demuxId, 2u) << "the killed client holds the first";
    sp<ITuner> tuner = other.tuner;
    sp<IDemux> demux = other.demux;
    sp<IFrontend> frontend = other.frontend;
    OpenFilter pat(demux, DemuxTsFilterType::SECTION, sectionOn(0, 0x00));
    frontend->setCallback(new RecordingCallback());
    ASSERT_EQ(frontend->tune(dvbt(650000000)), Result::SUCCESS);
    ASSERT_TRUE(eventually([&] { return pat.events->count() > 0; })) << readFile(log);

    ASSERT_NE(describeDescriptors(service).find("memfd"), std::string::npos)
            << "the queues and media memory the service holds for its clients";
    kill(killed, SIGKILL);
    waitForChild(killed);
    const size_t before = pat.events->count();
    EXPECT_TRUE(eventually([&] { return pat.events->count() > before + 3; })) << "still streaming";
    // The killed client's queues, media memory, DVR and demux are closed.
    EXPECT_TRUE(eventually([&] {
        return readFile(log).find("client " + std::to_string(killed) +
                                  " is gone; put right what it left: 1 DVR, 1 demux, 3 filter, "
                                  "1 frontend") != std::string::npos;
    })) << readFile(log);
    sp<IDemux> again;
    uint32_t againId = 0;
    EXPECT_TRUE(eventually([&] {
        tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
            if (r == Result::SUCCESS) {
                again = d;
                againId = id;
            }
        });
        return againId == 1;
    })) << "the killed client's demux id is free again";
    EXPECT_EQ(pat.filter->close(), Result::SUCCESS);
    EXPECT_EQ(demux->close(), Result::SUCCESS);
    if (again != nullptr) again->close();
    frontend->close();
    // No queue or media memory of either client is left: only this live client's sockets
    // stand above what the service held before any client came.
    EXPECT_TRUE(eventually([&] {
        return describeDescriptors(service).find("memfd") == std::string::npos &&
               openDescriptors(service) <= baseline + 3;
    })) << openDescriptors(service)
        << " descriptors, " << baseline << " before:\n"
        << describeDescriptors(service) << readFile(log);
    kill(service, SIGTERM);
    waitForChild(service);
}

// A CAS client's flow: the descrambler takes the demux, the service's control word as its key
// token and the video filter's PID; the scrambled service's pictures then arrive whole.
TEST_F(DemuxFlowTest, ADescramblerWithTheServicesControlWordClearsItsVideo) {
    OpenFilter video(mDemux, DemuxTsFilterType::VIDEO, mediaOn(kScrambledVideoPid));
    ASSERT_NE(video.filter, nullptr);
    tuneAndLock(dvbt(kScrambledMultiplexHz, FrontendDvbtStandard::T2));
    std::this_thread::sleep_for(200ms);  // ten seconds of air at the service's pace
    EXPECT_EQ(video.events->count(), 0u) << "scrambled pictures are no pictures";

    sp<IDescrambler> descrambler;
    mTuner->openDescrambler([&](Result r, const sp<IDescrambler>& d) {
        EXPECT_EQ(r, Result::SUCCESS);
        descrambler = d;
    });
    ASSERT_NE(descrambler, nullptr);
    ASSERT_EQ(descrambler->setDemuxSource(mDemuxId), Result::SUCCESS);
    const hidl_vec<uint8_t> word = {
            'M', 'O', 'X', kScrambledServiceId >> 8, kScrambledServiceId & 0xFF, 0x5A, 0xA5, 0x3C};
    ASSERT_EQ(descrambler->setKeyToken(word), Result::SUCCESS);
    DemuxPid pid;
    pid.tPid(kScrambledVideoPid);
    ASSERT_EQ(descrambler->addPid(pid, video.filter), Result::SUCCESS);

    const auto events = video.events->waitFor(3);
    ASSERT_GE(events.size(), 3u) << readFile(mLog);
    for (size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(events[i].getDiscriminator(), DemuxFilterEvent::Event::hidl_discriminator::media);
        const DemuxFilterMediaEvent& m = events[i].media();
        ASSERT_NE(m.avMemory.getNativeHandle(), nullptr);
        ASSERT_EQ(m.avMemory->numFds, 1);
        const size_t end = size_t(m.offset) + m.dataLength;
        void* mapped = mmap(nullptr, end, PROT_READ, MAP_SHARED, m.avMemory->data[0], 0);
        ASSERT_NE(mapped, MAP_FAILED);
        const uint8_t* frame = static_cast<const uint8_t*>(mapped) + m.offset;
        EXPECT_EQ(std::vector<uint8_t>(frame, frame + 5),
                  (std::vector<uint8_t>{0x00, 0x00, 0x00, 0x01, 0x09}));
        munmap(mapped, end);
        EXPECT_EQ(video.filter->releaseAvHandle(m.avMemory, m.avDataId), Result::SUCCESS);
    }
    EXPECT_EQ(descrambler->removePid(pid, video.filter), Result::SUCCESS);
    EXPECT_EQ(descrambler->close(), Result::SUCCESS);
    EXPECT_EQ(descrambler->addPid(pid, video.filter), Result::INVALID_STATE);
    EXPECT_EQ(video.filter->close(), Result::SUCCESS);
    EXPECT_EQ(mDemux->close(), Result::SUCCESS);
}

// A callback that never returns: its client takes nothing more once the first event or status
// came (a TS filter's first is DATA_READY).
class StuckEvents : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent&) override {
        pause();
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override {
        pause();
        return Void();
    }
};

// Three tuners stream at once, one to a client that neither reads its queues nor returns from
// its callback: the other two go on at the air's pace.
TEST(DemuxScaleTest, AStuckClientNeverStallsAnothersStreams) {
    const std::string log = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/scale.log";
    const pid_t service = startService(log);
    const pid_t stuck = parkedClient([] {
        static BoundDemux own(0);  // held until the kill
        if (!own.ok()) return false;
        static sp<IFilter> filter;  // held until the kill
        own.demux->openFilter(tsType(DemuxTsFilterType::TS), 1 << 16, new StuckEvents(),
                              [&](Result, const sp<IFilter>& f) { filter = f; });
        if (filter == nullptr || filter->configure(plainOn(kVideoPid)) != Result::SUCCESS ||
            filter->start() != Result::SUCCESS) {
            return false;
        }
        own.frontend->setCallback(new RecordingCallback());
        return own.frontend->tune(dvbt(kMultiplexHz)) == Result::SUCCESS;
    });
    ASSERT_GT(stuck, 0) << readFile(log);

    ::android::hardware::configureRpcThreadpool(2, false);
    sp<ITuner> tuner = ITuner::getService();
    ASSERT_NE(tuner, nullptr);
    struct Stream {
        uint32_t frontendId = 0;
        FrontendSettings settings;
        sp<IFrontend> frontend;
        sp<IDemux> demux;
        sp<RecordingCallback> events = new RecordingCallback();
        std::unique_ptr<OpenFilter> pat;
    };
    Stream streams[2];
    streams[0].frontendId = 1;
    streams[0].settings = dvbt(650000000);
    streams[1].frontendId = 2;
    streams[1].settings = dvbc(306000000, 6900000);
    for (Stream& s : streams) {
        tuner->openFrontendById(s.frontendId,
                                [&](Result, const sp<IFrontend>& f) { s.frontend = f; });
        tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { s.demux = d; });
        ASSERT_NE(s.frontend, nullptr);
        ASSERT_NE(s.demux, nullptr);
        ASSERT_EQ(s.demux->setFrontendDataSource(s.frontendId), Result::SUCCESS);
        s.pat = std::make_unique<OpenFilter>(s.demux, DemuxTsFilterType::SECTION,
                                             sectionOn(0, 0x00));
        ASSERT_NE(s.pat->filter, nullptr);
        s.frontend->setCallback(s.events);
        ASSERT_EQ(s.frontend->tune(s.settings), Result::SUCCESS);
    }
    // A PAT every 100 ms of air: ten each, whatever the stuck client does.
    for (Stream& s : streams) {
        EXPECT_GE(s.pat->events->waitFor(10).size(), 10u) << "frontend " << s.frontendId << "\n"
                                                          << readFile(log);
    }
    kill(stuck, SIGKILL);
    waitForChild(stuck);
    for (Stream& s : streams) {
        s.pat.reset();
        s.demux->close();
        s.frontend->close();
    }
    kill(service, SIGTERM);
    waitForChild(service);
}

}  // namespace
