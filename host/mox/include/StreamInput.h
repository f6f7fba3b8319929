// Where a host demux's input comes from. On a box the demodulator feeds the demux; on the host
// whatever plays the air (the simulated driver) registers itself here, and a demux whose input
// the service started pulls the packets its frontend's tuner received.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::host {

class StreamInput {
  public:
    virtual ~StreamInput() = default;
    // The clock the air runs on, in microseconds.
    virtual uint64_t nowUs() = 0;
    // Packets the tuner received from fromUs on (never past now), at most maxPackets of 188
    // bytes into out; how many. A reader that asks again goes on where it stopped; asking from
    // a later time skips what came meanwhile. Nothing while the tuner has no lock.
    virtual size_t read(uint8_t tunerIndex, uint64_t fromUs, uint8_t* out, size_t maxPackets) = 0;
};

// The process's input, set once by whatever plays the air (not owned; it lives as long as the
// process). Null until then: demuxes then receive nothing.
void setStreamInput(StreamInput* input);
StreamInput* streamInput();

}  // namespace mox::host
