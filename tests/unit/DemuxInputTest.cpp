// The demux's input gate: it reads its frontend's tuner only between the service's start (a
// lock) and stop (stopTune), from the moment it starts, and hands what it reads to its filters.
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include "Demux.h"
#include "ServiceTest.h"
#include "StreamInput.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::tv::tuner::V1_0::implementation::Demux;

namespace {

// A PAT of one program, whole in one packet.
std::array<uint8_t, 188> patPacket() {
    std::array<uint8_t, 188> p{};
    p.fill(0xFF);
    const uint8_t head[] = {0x47, 0x40, 0x00, 0x10, 0x00, 0x00, 0xB0, 0x0D, 0x00,
                            0x01, 0xC1, 0x00, 0x00, 0x00, 0x01, 0xE1, 0x00};
    std::memcpy(p.data(), head, sizeof(head));
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 5; i < sizeof(head); ++i) {
        crc ^= uint32_t(p[i]) << 24;
        for (int b = 0; b < 8; ++b) crc = (crc & 0x80000000) ? (crc << 1) ^ 0x04C11DB7 : crc << 1;
    }
    for (int i = 0; i < 4; ++i) p[sizeof(head) + i] = uint8_t(crc >> (24 - 8 * i));
    return p;
}

// An air that always has a PAT for whoever reads, and counts the reads and where they start.
class FakeAir : public mox::host::StreamInput {
  public:
    uint64_t nowUs() override { return 777; }
    size_t read(uint8_t tunerIndex, uint64_t fromUs, uint8_t* out, size_t maxPackets) override {
        if (maxPackets == 0) return 0;
        if (reads++ == 0) firstFrom = fromUs;
        tuner = tunerIndex;
        std::memcpy(out, patPacket().data(), 188);
        return 1;
    }
    std::atomic<int> reads{0};
    std::atomic<uint64_t> firstFrom{0};
    std::atomic<int> tuner{-1};
};

class SectionCount : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        sections += static_cast<int>(event.events.size());
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
    std::atomic<int> sections{0};
};

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

class DemuxInputTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mPrevious = mox::host::streamInput();
        mox::host::setStreamInput(&mAir);
    }
    void TearDown() override {
        mox::host::setStreamInput(mPrevious);
        ServiceTest::TearDown();
    }
    FakeAir mAir;
    mox::host::StreamInput* mPrevious = nullptr;
};

TEST_F(DemuxInputTest, ReadsOnlyBetweenLockAndStopTuneFromTheStart) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(2)});
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 1;
        return 0;
    });
    sp<Frontend> frontend = tuner->getFrontendById(1);
    frontend->setCallback(new RecordingCallback());
    sp<IDemux> demux;
    tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
    ASSERT_EQ(demux->setFrontendDataSource(1), Result::SUCCESS);

    sp<SectionCount> count = new SectionCount();
    sp<IFilter> filter;
    DemuxFilterType type{};
    type.mainType = DemuxFilterMainType::TS;
    type.subType.tsFilterType(DemuxTsFilterType::SECTION);
    demux->openFilter(type, 65536, count, [&](Result r, const sp<IFilter>& f) {
        ASSERT_EQ(r, Result::SUCCESS);
        filter = f;
    });
    ASSERT_NE(filter, nullptr);
    DemuxFilterSectionSettings section{};
    section.condition.sectionBits(DemuxFilterSectionBits{});
    section.isRepeat = true;
    DemuxTsFilterSettings ts{};
    ts.tpid = 0;
    ts.filterSettings.section(section);
    DemuxFilterSettings settings;
    settings.ts(ts);
    ASSERT_EQ(filter->configure(settings), Result::SUCCESS);
    ASSERT_EQ(filter->start(), Result::SUCCESS);

    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(mAir.reads, 0) << "no input before a lock";
    frontend->tune(dvbt(474000000));
    EXPECT_TRUE(eventually([&] { return count->sections >= 3; }));
    EXPECT_EQ(mAir.firstFrom, 777u) << "what came before the start is not the demux's";
    EXPECT_EQ(mAir.tuner, 1) << "the bound frontend's tuner";

    frontend->stopTune();
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * Demux::kInputPeriodUs / 1000));
    const int afterStop = mAir.reads;
    std::this_thread::sleep_for(std::chrono::milliseconds(4 * Demux::kInputPeriodUs / 1000));
    EXPECT_EQ(mAir.reads, afterStop) << "stopTune stops the input";
    EXPECT_EQ(demux->close(), Result::SUCCESS);
}

}  // namespace

namespace {

DemuxFilterType typeOf(DemuxFilterMainType main, DemuxTsFilterType sub) {
    DemuxFilterType type{};
    type.mainType = main;
    type.subType.tsFilterType(sub);
    return type;
}

Result openFilter(const sp<IDemux>& demux, DemuxFilterType type, uint32_t bytes,
                  std::vector<sp<IFilter>>& kept) {
    Result result = Result::UNKNOWN_ERROR;
    demux->openFilter(type, bytes, nullptr, [&](Result r, const sp<IFilter>& f) {
        result = r;
        if (f != nullptr) kept.push_back(f);
    });
    return result;
}

// Every bound a client could push: a number in the code, and the answer past it.
TEST_F(DemuxInputTest, EachBoundOfADemuxHasItsAnswer) {
    sp<Tuner> tuner = new Tuner();
    sp<IDemux> demux;
    tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
    ASSERT_NE(demux, nullptr);
    const DemuxFilterType section = typeOf(DemuxFilterMainType::TS, DemuxTsFilterType::SECTION);
    std::vector<sp<IFilter>> kept;

    struct Case {
        const char* what;
        DemuxFilterType type;
        uint32_t bytes;
        Result expected;
    };
    const Case cases[] = {
            {"no bytes", section, 0, Result::INVALID_ARGUMENT},
            {"past a filter's bound", section, Demux::kMaxFilterBufferBytes + 1,
             Result::INVALID_ARGUMENT},
            {"a filter's bound", section, Demux::kMaxFilterBufferBytes, Result::SUCCESS},
            {"another main type", typeOf(DemuxFilterMainType::MMTP, DemuxTsFilterType::SECTION),
             4096, Result::UNAVAILABLE},
            {"no sub type", typeOf(DemuxFilterMainType::TS, DemuxTsFilterType::UNDEFINED), 4096,
             Result::INVALID_ARGUMENT},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(openFilter(demux, c.type, c.bytes, kept), c.expected) << c.what;
    }
    // The demux's queues together: 256 MiB, 32 of them taken above.
    const uint64_t left = Demux::kMaxQueueBytesPerDemux - Demux::kMaxFilterBufferBytes;
    for (uint64_t i = 0; i < left / Demux::kMaxFilterBufferBytes; ++i) {
        ASSERT_EQ(openFilter(demux, section, Demux::kMaxFilterBufferBytes, kept), Result::SUCCESS);
    }
    EXPECT_EQ(openFilter(demux, section, 188, kept), Result::OUT_OF_MEMORY);
    kept.clear();  // dropped, they close themselves and give their bytes back

    for (size_t i = 0; i < Demux::kMaxFilters; ++i) {
        ASSERT_EQ(openFilter(demux, section, 4096, kept), Result::SUCCESS) << i;
    }
    EXPECT_EQ(openFilter(demux, section, 4096, kept), Result::UNAVAILABLE);
    kept.clear();

    std::vector<sp<IDvr>> dvrs;
    auto openDvr = [&](uint32_t bytes) {
        Result result = Result::UNKNOWN_ERROR;
        demux->openDvr(DvrType::RECORD, bytes, nullptr, [&](Result r, const sp<IDvr>& d) {
            result = r;
            if (d != nullptr) dvrs.push_back(d);
        });
        return result;
    };
    EXPECT_EQ(openDvr(100), Result::INVALID_ARGUMENT) << "less than a packet";
    for (size_t i = 0; i < Demux::kMaxDvrs; ++i) ASSERT_EQ(openDvr(1 << 16), Result::SUCCESS);
    EXPECT_EQ(openDvr(1 << 16), Result::UNAVAILABLE);
    EXPECT_EQ(demux->close(), Result::SUCCESS);
    EXPECT_EQ(openFilter(demux, section, 4096, kept), Result::INVALID_STATE) << "closed";
}

}  // namespace
