// One component of a service as transport stream packets: a PES packet per frame (video 25
// frames/s with PTS and DTS, audio 24 ms frames with PTS), spread evenly over the multiplex at
// the component's bit rate. The payload is synthetic; headers, counters and timestamps are a
// real stream's.
#pragma once

#include <array>
#include <cstdint>

#include "simulator/stream/MultiplexContent.h"

namespace mox::air {

inline constexpr size_t kPacketSize = 188;
// Time from a frame's last byte on the air to its presentation: the decoder's buffer.
inline constexpr uint64_t kPresentationDelay90k = 45000;

class ElementaryStream {
  public:
    // slotsPerSecond: packets per second of the whole multiplex. key: the service's control word
    // when it is scrambled, nullptr when clear.
    ElementaryStream(const Component& component, uint32_t bitRate, double slotsPerSecond,
                     const std::array<uint8_t, 8>* key);

    uint16_t pid() const { return mPid; }
    // The multiplex slot from which its next packet is due.
    double nextDue() const { return mNextDue; }
    // Writes its next packet. startPts90k: the stream's clock at slot 0, in 90 kHz.
    void next(uint8_t* packet, uint64_t startPts90k);
    // Its next packet is lost on the way: the counter moves on, nothing is written.
    void drop();
    // Resumes at the frame under way at this slot, as a receiver joining late meets it.
    void skipTo(uint64_t slot);
    uint64_t frameTicks() const { return mFrameTicks; }
    // Packets a second, PES headers and each frame's last, part-filled packet included.
    double packetsPerSecond() const { return 90000.0 / double(mFrameTicks) * mPacketsPerFrame; }
    // The counter of the last packet with payload: an adaptation-only packet repeats it.
    uint8_t lastCc() const { return static_cast<uint8_t>((mCc + 15) & 0xF); }
    void setNextCc(uint8_t cc) { mCc = cc & 0xF; }

  private:
    void writePesHeader(uint64_t frame, uint64_t startPts90k);

    uint16_t mPid;
    uint8_t mStreamId;
    bool mVideo;
    uint64_t mFrameTicks;   // 90 kHz
    uint32_t mFrameBytes;   // elementary stream bytes of one frame
    uint32_t mHeaderBytes;  // PES header with PTS (and DTS)
    uint32_t mPacketsPerFrame;
    double mSlotsPerPacket;
    uint64_t mPacket = 0;  // packets written or dropped so far
    double mNextDue = 0;
    uint8_t mCc = 0;
    bool mScrambled;
    std::array<uint8_t, 8> mKey{};
    // The PES header of the frame under way and the frame's first bytes after it.
    std::array<uint8_t, 32> mHeader{};
    uint32_t mStartBytes = 0;
};

// Scrambles or clears a packet's payload with a service's control word: the stand-in for a
// CAS's cipher, self-inverse.
void applyControlWord(uint8_t* payload, size_t size, const std::array<uint8_t, 8>& key);
// The control word of a scrambled service, which its key token names.
std::array<uint8_t, 8> serviceControlWord(uint16_t serviceId);

}  // namespace mox::air
