// A record DVR fed through its demux: the record filters attached to it share its queue, and
// when their packets outgrow it the client is told what packet-by-packet recording tells it: the
// fill's statuses for the packets that went in, then one OVERFLOW, then LOW_WATER once it read.
#include <android/hardware/tv/tuner/1.0/IDvrCallback.h>
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <fmq/MessageQueue.h>

#include <memory>
#include <vector>

#include "Demux.h"
#include "DemuxSettings.h"
#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::tv::tuner::V1_0::implementation::Demux;

namespace {

using Packet = std::vector<uint8_t>;
constexpr uint32_t kDvrPackets = 10;

class RecordStatuses : public IDvrCallback {
  public:
    Return<void> onRecordStatus(DemuxFilterStatus status) override {
        statuses.push_back(status);
        return Void();
    }
    Return<void> onPlaybackStatus(PlaybackStatus) override { return Void(); }
    std::vector<DemuxFilterStatus> statuses;
};

class NoEvents : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent&) override { return Void(); }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
};

Packet packetOf(uint16_t pid, uint8_t cc) {
    Packet p(188, 0xFF);
    p[0] = 0x47;
    p[1] = uint8_t(pid >> 8);
    p[2] = uint8_t(pid);
    p[3] = uint8_t(0x10 | (cc & 0x0F));
    p[4] = cc;  // tells the packets apart
    return p;
}

class DvrRecordTest : public ServiceTest {};

TEST_F(DvrRecordTest, PacketsBeyondTheQueueAreOneOverflowAfterWhatFit) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(1)});
    sp<Demux> demux;
    tuner->openDemux(
            [&](Result, uint32_t, const sp<IDemux>& d) { demux = static_cast<Demux*>(d.get()); });
    ASSERT_NE(demux, nullptr);
    sp<RecordStatuses> statuses = new RecordStatuses();
    sp<IDvr> dvr;
    demux->openDvr(DvrType::RECORD, kDvrPackets * 188, statuses,
                   [&](Result, const sp<IDvr>& d) { dvr = d; });
    ASSERT_NE(dvr, nullptr);
    ASSERT_EQ(dvr->configure(demuxtest::dvrSettings(DvrType::RECORD, kDvrPackets * 188)),
              Result::SUCCESS);
    std::unique_ptr<MessageQueue<uint8_t, kSynchronizedReadWrite>> queue;
    dvr->getQueueDesc([&](Result, const MQDescriptorSync<uint8_t>& desc) {
        queue = std::make_unique<MessageQueue<uint8_t, kSynchronizedReadWrite>>(desc, false);
    });
    ASSERT_TRUE(queue && queue->isValid());
    std::vector<sp<IFilter>> filters;
    for (uint16_t pid : {0x100, 0x101}) {
        sp<IFilter> filter;
        demux->openFilter(demuxtest::tsFilterType(DemuxTsFilterType::RECORD), 64 * 188,
                          new NoEvents(), [&](Result, const sp<IFilter>& f) { filter = f; });
        ASSERT_NE(filter, nullptr);
        ASSERT_EQ(filter->configure(demuxtest::asFilterSettings(demuxtest::record(pid, 0))),
                  Result::SUCCESS);
        ASSERT_EQ(dvr->attachFilter(filter), Result::SUCCESS);
        ASSERT_EQ(filter->start(), Result::SUCCESS);
        filters.push_back(filter);
    }
    ASSERT_EQ(dvr->start(), Result::SUCCESS);

    // Three times what the queue holds, the two PIDs interleaved.
    std::vector<Packet> sent;
    std::vector<uint8_t> stream;
    for (uint8_t i = 0; i < 3 * kDvrPackets; ++i) {
        sent.push_back(packetOf(i % 3 == 0 ? 0x101 : 0x100, i));
        stream.insert(stream.end(), sent.back().begin(), sent.back().end());
    }
    demux->feedForTest(stream.data(), stream.size());

    ASSERT_EQ(queue->availableToRead(), kDvrPackets * 188);
    std::vector<uint8_t> recorded(kDvrPackets * 188);
    ASSERT_TRUE(queue->read(recorded.data(), recorded.size()));
    for (size_t i = 0; i < kDvrPackets; ++i) {
        EXPECT_EQ(Packet(recorded.begin() + i * 188, recorded.begin() + (i + 1) * 188), sent[i])
                << i;
    }
    EXPECT_EQ(statuses->statuses, (std::vector<DemuxFilterStatus>{DemuxFilterStatus::DATA_READY,
                                                                  DemuxFilterStatus::HIGH_WATER,
                                                                  DemuxFilterStatus::OVERFLOW}));

    // Read, it takes packets again.
    statuses->statuses.clear();
    demux->feedForTest(stream.data(), 2 * 188);
    EXPECT_EQ(queue->availableToRead(), 2 * 188u);
    EXPECT_EQ(statuses->statuses, (std::vector<DemuxFilterStatus>{DemuxFilterStatus::LOW_WATER,
                                                                  DemuxFilterStatus::DATA_READY}));
    for (const auto& f : filters) EXPECT_EQ(f->close(), Result::SUCCESS);
    EXPECT_EQ(dvr->close(), Result::SUCCESS);
    EXPECT_EQ(demux->close(), Result::SUCCESS);
}

}  // namespace
