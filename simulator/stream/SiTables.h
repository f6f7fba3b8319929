// The PSI/SI sections of a multiplex, written with biTStream: each function returns whole
// sections, CRC included, ready to be cut into transport stream packets.
#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

#include "simulator/stream/MultiplexContent.h"

namespace mox::air {

using Section = std::vector<uint8_t>;

// The conditional access system a scrambled service announces: BISS, a fixed-key scheme, so a
// key token alone clears it.
inline constexpr uint16_t kCaSystemId = 0x2600;
inline constexpr uint16_t kEmmPid = 0x0FF0;
// Below this, sections of one table with many entries are split (PSI's limit of 1024 bytes).
inline constexpr size_t kMaxSectionSize = 1024;

Section patSection(const MultiplexContent& mux, uint8_t version);
Section catSection(uint8_t version);
Section pmtSection(const Service& service, uint8_t version);
// NIT actual: the network's name and, per multiplex, its delivery and service list.
std::vector<Section> nitSections(const Network& network, uint8_t version);
std::vector<Section> sdtSections(const MultiplexContent& mux, bool actual, uint8_t version);
// EIT present/following actual of one service: section 0 the event running at utc, section 1
// the next one, from the service's daily schedule.
std::vector<Section> eitPfSections(const MultiplexContent& mux, const Service& service, time_t utc,
                                   uint8_t version);
Section tdtSection(time_t utc);
Section totSection(time_t utc);

// A DVB text: plain when it is ASCII, otherwise marked as UTF-8 (character table 0x15).
std::vector<uint8_t> dvbText(const std::string& text, size_t limit);

}  // namespace mox::air
