#include "DemuxSettings.h"

namespace demuxtest {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::hidl_vec;

namespace {

DemuxFilterSectionSettings sectionSettings(bool checkCrc, bool repeat, bool raw) {
    DemuxFilterSectionSettings s{};
    s.isCheckCrc = checkCrc;
    s.isRepeat = repeat;
    s.isRaw = raw;
    return s;
}

}  // namespace

DemuxTsFilterSettings sectionBits(uint16_t pid, const Bytes& filter, const Bytes& mask,
                                  const Bytes& mode, bool checkCrc, bool repeat, bool raw) {
    DemuxFilterSectionSettings s = sectionSettings(checkCrc, repeat, raw);
    DemuxFilterSectionBits bits{};
    bits.filter = hidl_vec<uint8_t>(filter);
    bits.mask = hidl_vec<uint8_t>(mask);
    bits.mode = hidl_vec<uint8_t>(mode);
    s.condition.sectionBits(bits);
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.section(s);
    return ts;
}

DemuxTsFilterSettings tableInfo(uint16_t pid, uint16_t tableId, uint16_t version, bool checkCrc,
                                bool repeat) {
    DemuxFilterSectionSettings s = sectionSettings(checkCrc, repeat, false);
    DemuxFilterSectionSettings::Condition::TableInfo info{};
    info.tableId = tableId;
    info.version = version;
    s.condition.tableInfo(info);
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.section(s);
    return ts;
}

DemuxTsFilterSettings pesData(uint16_t pid, uint16_t streamId, bool raw) {
    DemuxFilterPesDataSettings p{};
    p.streamId = streamId;
    p.isRaw = raw;
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.pesData(p);
    return ts;
}

DemuxTsFilterSettings av(uint16_t pid, bool passthrough) {
    DemuxFilterAvSettings a{};
    a.isPassthrough = passthrough;
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.av(a);
    return ts;
}

DemuxTsFilterSettings plain(uint16_t pid) {
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.noinit({});
    return ts;
}

DemuxTsFilterSettings record(uint16_t pid, uint32_t tsIndexMask, DemuxRecordScIndexType scType,
                             uint32_t scIndexMask) {
    DemuxFilterRecordSettings r{};
    r.tsIndexMask = tsIndexMask;
    r.scIndexType = scType;
    if (scType == DemuxRecordScIndexType::SC_HEVC) {
        r.scIndexMask.scHevc(scIndexMask);
    } else {
        r.scIndexMask.sc(scIndexMask);
    }
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.record(r);
    return ts;
}

DemuxFilterSettings asFilterSettings(const DemuxTsFilterSettings& ts) {
    DemuxFilterSettings settings;
    settings.ts(ts);
    return settings;
}

DemuxFilterType tsFilterType(DemuxTsFilterType type) {
    DemuxFilterType t{};
    t.mainType = DemuxFilterMainType::TS;
    t.subType.tsFilterType(type);
    return t;
}

DvrSettings dvrSettings(DvrType type, uint32_t queueBytes) {
    DvrSettings settings;
    if (type == DvrType::RECORD) {
        RecordSettings record{};
        record.statusMask = 0x0F;
        record.lowThreshold = queueBytes / 4;
        record.highThreshold = queueBytes * 3 / 4;
        record.dataFormat = DataFormat::TS;
        record.packetSize = 188;
        settings.record(record);
    } else {
        PlaybackSettings playback{};
        playback.statusMask = 0x0F;
        playback.lowThreshold = queueBytes / 4;
        playback.highThreshold = queueBytes * 3 / 4;
        playback.dataFormat = DataFormat::TS;
        playback.packetSize = 188;
        settings.playback(playback);
    }
    return settings;
}

}  // namespace demuxtest
