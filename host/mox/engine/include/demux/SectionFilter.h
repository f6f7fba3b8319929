// A SECTION filter: sections of its PID assembled, checked (CRC when asked), selected by
// filter/mask/mode bytes or by table id and version, and handed on one at a time with a
// DemuxFilterSectionEvent (or DATA_READY for raw output).
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <cstdint>
#include <deque>
#include <memory>

#include "demux/PacketFilter.h"
#include "demux/SectionAssembler.h"

namespace mox::demux {

using ::android::hardware::tv::tuner::V1_0::DemuxFilterSectionSettings;

class SectionFilter final : public PacketFilter, private SectionAssembler::Handler {
  public:
    // Settings it cannot take (more filter bytes than kSectionFilterBytes, a table id past
    // 0xFF) give nullptr.
    static std::unique_ptr<SectionFilter> create(const DemuxFilterSectionSettings& settings,
                                                 FilterOutput output, FilterCounters& counters);

    void packet(const TsPacket& received, const TsPacket* clear) override;
    void reset() override;
    void drained() override;

    // Whether a section passes the filter's condition (not its CRC or repetition).
    bool matches(const uint8_t* section, size_t size) const;

  private:
    struct Seen {
        uint8_t tableId;
        uint16_t extension;
        uint8_t number;
        uint8_t version;
    };

    SectionFilter(const DemuxFilterSectionSettings& settings, FilterOutput output,
                  FilterCounters& counters);
    void section(const uint8_t* data, size_t size) override;
    static Seen keyOf(const uint8_t* section, size_t size);
    std::deque<Seen>::iterator find(const Seen& seen);
    // False when this version of the section was delivered before.
    bool isNew(const Seen& seen);
    void remember(const Seen& seen);

    const DemuxFilterSectionSettings mSettings;
    FilterOutput mOutput;
    FilterCounters& mCounters;
    SectionAssembler mAssembler;
    Continuity mContinuity;
    std::deque<Seen> mSeen;  // at most kMaxRememberedSections, oldest first
};

}  // namespace mox::demux
