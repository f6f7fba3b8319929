// Demux filter and DVR settings as a client writes them, for the demux's tests and benchmarks.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <cstdint>
#include <vector>

namespace demuxtest {

using Bytes = std::vector<uint8_t>;

// Filter settings as a client writes them.
using ::android::hardware::tv::tuner::V1_0::DemuxTsFilterSettings;
DemuxTsFilterSettings sectionBits(uint16_t pid, const Bytes& filter, const Bytes& mask,
                                  const Bytes& mode, bool checkCrc = true, bool repeat = true,
                                  bool raw = false);
DemuxTsFilterSettings tableInfo(uint16_t pid, uint16_t tableId, uint16_t version,
                                bool checkCrc = true, bool repeat = true);
DemuxTsFilterSettings pesData(uint16_t pid, uint16_t streamId, bool raw = false);
DemuxTsFilterSettings av(uint16_t pid, bool passthrough = false);
DemuxTsFilterSettings plain(uint16_t pid);  // TS and PCR filters
DemuxTsFilterSettings record(
        uint16_t pid, uint32_t tsIndexMask,
        ::android::hardware::tv::tuner::V1_0::DemuxRecordScIndexType scType =
                ::android::hardware::tv::tuner::V1_0::DemuxRecordScIndexType::NONE,
        uint32_t scIndexMask = 0);

// The settings a filter's configure takes, and the type its open takes.
::android::hardware::tv::tuner::V1_0::DemuxFilterSettings asFilterSettings(
        const DemuxTsFilterSettings& ts);
::android::hardware::tv::tuner::V1_0::DemuxFilterType tsFilterType(
        ::android::hardware::tv::tuner::V1_0::DemuxTsFilterType type);
// A DVR's settings: TS in 188-byte packets, every status, thresholds at a quarter and three
// quarters of its queue.
::android::hardware::tv::tuner::V1_0::DvrSettings dvrSettings(
        ::android::hardware::tv::tuner::V1_0::DvrType type, uint32_t queueBytes);

}  // namespace demuxtest
