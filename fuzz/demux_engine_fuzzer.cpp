// Any bytes as packets into a demux engine with a filter of every type on four PIDs, a small
// queue the client drains now and then, and media memory it releases half of after each piece.
// The first byte chooses: bit 0, every packet's sync byte forced; bit 1, PIDs folded onto the
// filters' four; bit 2, the descrambler clears what it is given.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "demux/DemuxEngine.h"

namespace {

using namespace mox::demux;
using namespace ::android::hardware::tv::tuner::V1_0;

constexpr size_t kQueueBytes = 8192;
constexpr size_t kAvBytes = 16384;

void check(bool condition) {
    if (!condition) __builtin_trap();
}

class Sink : public FilterSink {
  public:
    bool write(const uint8_t*, size_t size) override {
        if (mFill + size > kQueueBytes) return false;
        mFill += size;
        mLastWrite = size;
        // The client reads now and then.
        if (++mWrites % 7 == 0) mFill = 0;
        return true;
    }
    size_t fill() const override { return mFill; }
    void event(const FilterEvent& e) override {
        using D = FilterEvent::hidl_discriminator;
        switch (e.getDiscriminator()) {
            case D::section:
                check(e.section().dataLength == mLastWrite && mLastWrite <= kMaxSectionSize);
                break;
            case D::pes:
                check(e.pes().dataLength == mLastWrite);
                break;
            case D::media:
                check(size_t{e.media().offset} + e.media().dataLength <= kAvBytes);
                held.push_back(e.media().avDataId);
                break;
            case D::tsRecord:
                check(e.tsRecord().byteNumber % kTsPacketSize == 0);
                break;
            default:
                check(false);
        }
    }
    void status(DemuxFilterStatus) override {}
    std::vector<uint64_t> held;

  private:
    size_t mFill = 0;
    size_t mLastWrite = 0;
    uint64_t mWrites = 0;
};

class Descrambler : public PacketDescrambler {
  public:
    explicit Descrambler(bool clears) : mClears(clears) {}
    bool descramble(uint16_t, uint8_t* packet) override {
        if (!mClears) return false;
        packet[3] &= 0x3F;
        return true;
    }

  private:
    bool mClears;
};

DemuxTsFilterSettings settingsFor(uint16_t pid) {
    DemuxTsFilterSettings s{};
    s.tpid = pid;
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t choice = data[0];
    std::vector<uint8_t> stream(data + 1, data + size);
    for (size_t at = 0; at + kTsPacketSize <= stream.size(); at += kTsPacketSize) {
        if (choice & 1) stream[at] = kTsSyncByte;
        if (choice & 2) {
            stream[at + 1] &= 0xE0;
            stream[at + 2] &= 0x03;
        }
    }

    Descrambler descrambler((choice & 4) != 0);
    DemuxEngine engine(&descrambler);
    std::vector<uint8_t> avMemory(2 * kAvBytes);
    Sink sinks[9];
    std::vector<uint32_t> ids;
    std::vector<uint32_t> media;
    auto add = [&](DemuxTsFilterType type, const DemuxTsFilterSettings& settings, Sink& sink,
                   AvRegion region = {}) {
        FilterResources resources;
        resources.sink = &sink;
        resources.tracker = FilterStatusTracker::forCapacity(kQueueBytes);
        resources.avMemory = region;
        uint32_t id = 0;
        check(engine.addFilter(type, settings, resources, id) == Result::SUCCESS);
        check(engine.start(id) == Result::SUCCESS);
        ids.push_back(id);
        return id;
    };

    DemuxFilterSectionSettings bits{};
    bits.isCheckCrc = true;
    bits.isRepeat = true;
    DemuxFilterSectionBits b{};
    b.filter = {0x00, 0x00, 0x00, 0x02};
    b.mask = {0x80, 0x00, 0x00, 0x3E};
    b.mode = {0x00, 0x00, 0x00, 0x3E};
    bits.condition.sectionBits(b);
    DemuxTsFilterSettings section = settingsFor(0);
    section.filterSettings.section(bits);
    add(DemuxTsFilterType::SECTION, section, sinks[0]);

    DemuxFilterSectionSettings info{};
    info.isRepeat = false;
    info.condition.tableInfo({0x02, 0xFFFF});
    DemuxTsFilterSettings table = settingsFor(1);
    table.filterSettings.section(info);
    add(DemuxTsFilterType::SECTION, table, sinks[1]);

    DemuxTsFilterSettings pes = settingsFor(2);
    pes.filterSettings.pesData({0xFFFF, false});
    add(DemuxTsFilterType::PES, pes, sinks[2]);

    DemuxTsFilterSettings audio = settingsFor(2);
    audio.filterSettings.av({false});
    media.push_back(add(DemuxTsFilterType::AUDIO, audio, sinks[3], {avMemory.data(), kAvBytes}));
    DemuxTsFilterSettings video = settingsFor(3);
    video.filterSettings.av({false});
    media.push_back(
            add(DemuxTsFilterType::VIDEO, video, sinks[4], {avMemory.data() + kAvBytes, kAvBytes}));

    DemuxTsFilterSettings plain = settingsFor(3);
    plain.filterSettings.noinit({});
    add(DemuxTsFilterType::TS, plain, sinks[5]);
    add(DemuxTsFilterType::PCR, plain, sinks[6]);

    DemuxFilterRecordSettings sc{};
    sc.tsIndexMask = 0x1FFF;
    sc.scIndexType = DemuxRecordScIndexType::SC;
    sc.scIndexMask.sc(0xF);
    DemuxTsFilterSettings recordSc = settingsFor(3);
    recordSc.filterSettings.record(sc);
    add(DemuxTsFilterType::RECORD, recordSc, sinks[7]);
    DemuxFilterRecordSettings hevc = sc;
    hevc.scIndexType = DemuxRecordScIndexType::SC_HEVC;
    hevc.scIndexMask.scHevc(0xFF);
    DemuxTsFilterSettings recordHevc = settingsFor(2);
    recordHevc.filterSettings.record(hevc);
    add(DemuxTsFilterType::RECORD, recordHevc, sinks[8]);

    // In pieces of a few packets; after each the client releases half its frames and reads.
    const size_t piece = kTsPacketSize * (1 + (choice >> 4));
    for (size_t at = 0; at < stream.size(); at += piece) {
        engine.packets(stream.data() + at, std::min(piece, stream.size() - at));
        for (size_t m = 0; m < media.size(); ++m) {
            Sink& sink = sinks[3 + m];
            const size_t release = sink.held.size() / 2;
            for (size_t i = 0; i < release; ++i) {
                check(engine.releaseAvHandle(media[m], sink.held[i]) == Result::SUCCESS);
            }
            sink.held.erase(sink.held.begin(), sink.held.begin() + release);
        }
        for (uint32_t id : ids) engine.drained(id);
    }
    check(engine.input().packets == stream.size() / kTsPacketSize);
    engine.flush(ids[0]);
    engine.stop(ids[1]);
    return 0;
}
