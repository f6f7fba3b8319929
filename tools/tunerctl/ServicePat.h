// The PAT a recording of one service carries: that service alone, as dvbv5-zap's recordings
// have it, so a player finds the one programme the file holds.
#pragma once

#include <array>
#include <cstdint>

namespace tunerctl {

class ServicePat {
  public:
    ServicePat(uint16_t transportStreamId, uint16_t serviceId, uint16_t pmtPid);
    // The next PAT packet, its continuity counter one on from the last.
    const std::array<uint8_t, 188>& packet();

  private:
    std::array<uint8_t, 188> mPacket{};
    uint8_t mCounter = 0;
};

}  // namespace tunerctl
