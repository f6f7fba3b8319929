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

#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RecordingCallback.h"
#include "ServiceProcess.h"
#include "TestSettings.h"

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

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<DemuxFilterEvent::Event> mEvents;
    std::vector<DemuxFilterStatus> mStatuses;
};

DemuxFilterType tsType(DemuxTsFilterType sub) {
    DemuxFilterType type{};
    type.mainType = DemuxFilterMainType::TS;
    type.subType.tsFilterType(sub);
    return type;
}

DemuxFilterSettings sectionOn(uint16_t pid, uint8_t tableId) {
    DemuxFilterSectionSettings section{};
    DemuxFilterSectionBits bits{};
    bits.filter = hidl_vec<uint8_t>{tableId};
    bits.mask = hidl_vec<uint8_t>{0xFF};
    bits.mode = hidl_vec<uint8_t>{0x00};
    section.condition.sectionBits(bits);
    section.isCheckCrc = true;
    section.isRepeat = true;
    section.isRaw = false;
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.section(section);
    DemuxFilterSettings settings;
    settings.ts(ts);
    return settings;
}

DemuxFilterSettings mediaOn(uint16_t pid) {
    DemuxFilterAvSettings av{};
    av.isPassthrough = false;
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.av(av);
    DemuxFilterSettings settings;
    settings.ts(ts);
    return settings;
}

DemuxFilterSettings plainOn(uint16_t pid) {
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.noinit();
    DemuxFilterSettings settings;
    settings.ts(ts);
    return settings;
}

// A filter opened, configured and started the way a client does, with its queue mapped.
struct OpenFilter {
    sp<IFilter> filter;
    sp<FilterEvents> events = new FilterEvents();
    std::unique_ptr<Queue> queue;
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
    ASSERT_NE(video.filter, nullptr);
    ASSERT_NE(audio.filter, nullptr);
    tuneAndLock();

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

}  // namespace
