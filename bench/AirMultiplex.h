// The built-in box's DVB-S multiplex (27.5 Msym/s QPSK 3/4, 38 Mbit/s, its generated services)
// as the air sends it: the stream the demux benchmarks feed.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "simulator/SimulatedDriver.h"

namespace bench {

struct AirMultiplex {
    std::vector<uint8_t> packets;  // 188-byte packets back to back
    uint64_t bitRate = 0;
    std::map<uint16_t, size_t> packetsPerPid;
};

// The first untilUs microseconds of the multiplex; empty when the box has no DVB-S transponder.
inline AirMultiplex dvbsMultiplex(uint64_t untilUs) {
    AirMultiplex out;
    mox::sim::SimulatedDriver driver;
    const std::vector<mox::sim::Transmitter> air = mox::sim::SimulatedDriver::defaultAir();
    for (size_t t = 0; t < air.size(); ++t) {
        if (air[t].system != MOX_TUNER_TYPE_DVBS) continue;
        auto source = driver.transmitterStream(t);
        out.bitRate = source->bitRate();
        const size_t room = size_t(out.bitRate / 1504 * (untilUs / 1000000 + 1)) + 16;
        out.packets.resize(room * 188);
        out.packets.resize(source->produce(untilUs, out.packets.data(), room) * 188);
        break;
    }
    for (size_t at = 0; at + 188 <= out.packets.size(); at += 188) {
        ++out.packetsPerPid[uint16_t((out.packets[at + 1] & 0x1F) << 8 | out.packets[at + 2])];
    }
    return out;
}

}  // namespace bench
