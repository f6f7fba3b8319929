#include "simulator/stream/ElementaryStream.h"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace mox::air {
namespace {

constexpr uint32_t kPayload = 184;
constexpr uint64_t kVideoFrameTicks = 3600;  // 25 frames/s
constexpr uint64_t kAudioFrameTicks = 2160;  // 1152 samples at 48 kHz
constexpr uint64_t kTimestampWrap = uint64_t{1} << 33;

// What a frame's payload begins with, so a reader finds the start codes it looks for: an
// access unit delimiter and a slice for video (H.264 and MPEG-2 alike start with 00 00 01),
// a frame header's sync word for audio.
constexpr uint8_t kVideoStart[] = {0x00, 0x00, 0x00, 0x01, 0x09, 0xF0, 0x00, 0x00, 0x01, 0x65};
constexpr uint8_t kAudioStart[] = {0xFF, 0xFD, 0x94, 0x00};

}  // namespace

bool Component::isVideo() const {
    return streamType == 0x01 || streamType == 0x02 || streamType == 0x1B || streamType == 0x24 ||
           streamType == 0x10;
}

void applyControlWord(uint8_t* payload, size_t size, const std::array<uint8_t, 8>& key) {
    for (size_t i = 0; i < size; ++i) payload[i] ^= key[i % key.size()];
}

std::array<uint8_t, 8> serviceControlWord(uint16_t serviceId) {
    return {0x4D, 0x4F, 0x58, static_cast<uint8_t>(serviceId >> 8), static_cast<uint8_t>(serviceId),
            0x5A, 0xA5, 0x3C};
}

ElementaryStream::ElementaryStream(const Component& component, uint32_t bitRate,
                                   double slotsPerSecond, const std::array<uint8_t, 8>* key)
    : mPid(component.pid),
      mStreamId(component.isVideo() ? 0xE0
                : component.ac3     ? 0xBD
                                    : 0xC0),
      mVideo(component.isVideo()),
      mFrameTicks(mVideo ? kVideoFrameTicks : kAudioFrameTicks),
      mScrambled(key != nullptr) {
    if (key != nullptr) mKey = *key;
    mFrameBytes = std::max<uint32_t>(
            16, static_cast<uint32_t>(uint64_t{bitRate} * mFrameTicks / 90000 / 8));
    mHeaderBytes = mVideo ? PES_HEADER_SIZE_PTSDTS : PES_HEADER_SIZE_PTS;
    mPacketsPerFrame = (mHeaderBytes + mFrameBytes + kPayload - 1) / kPayload;
    const double framesPerSecond = 90000.0 / double(mFrameTicks);
    mSlotsPerPacket = slotsPerSecond / (framesPerSecond * mPacketsPerFrame);
}

void ElementaryStream::writePesHeader(uint64_t frame, uint64_t startPts90k) {
    uint8_t* h = mHeader.data();
    pes_init(h);
    pes_set_streamid(h, mStreamId);
    const uint32_t length = mHeaderBytes - PES_HEADER_SIZE + mFrameBytes;
    // Video PES packets longer than the field allows say 0, "unbounded".
    pes_set_length(h, length > 0xFFFF ? 0 : static_cast<uint16_t>(length));
    pes_set_headerlength(h, 0);
    pes_set_dataalignment(h);
    // The frame's last packet is due one frame after its first: presented a buffer's delay on.
    const uint64_t pts =
            (startPts90k + (frame + 1) * mFrameTicks + kPresentationDelay90k) % kTimestampWrap;
    if (mVideo) pes_set_dts(h, (pts + kTimestampWrap - mFrameTicks) % kTimestampWrap);
    pes_set_pts(h, pts);
    // The frame's first bytes follow the header.
    const uint8_t* lead = mVideo ? kVideoStart : kAudioStart;
    const size_t leadSize =
            std::min<size_t>(mVideo ? sizeof(kVideoStart) : sizeof(kAudioStart), mFrameBytes);
    std::memcpy(h + mHeaderBytes, lead, leadSize);
    mStartBytes = mHeaderBytes + static_cast<uint32_t>(leadSize);
}

void ElementaryStream::next(uint8_t* p, uint64_t startPts90k) {
    const uint64_t frame = mPacket / mPacketsPerFrame;
    const uint32_t k = static_cast<uint32_t>(mPacket % mPacketsPerFrame);
    if (k == 0) writePesHeader(frame, startPts90k);
    const uint32_t total = mHeaderBytes + mFrameBytes;
    const uint32_t offset = k * kPayload;
    const uint32_t size = std::min(kPayload, total - offset);

    ts_init(p);
    ts_set_pid(p, mPid);
    if (k == 0) ts_set_unitstart(p);
    ts_set_cc(p, mCc);
    mCc = (mCc + 1) & 0xF;
    uint8_t* payload = p + 4;
    if (size < kPayload) {
        // The frame's last bytes: an adaptation field of stuffing fills the packet.
        ts_set_adaptation(p, static_cast<uint8_t>(kPayload - size - 1));
        payload = p + kPacketSize - size;
    }
    ts_set_payload(p);
    // The payload: the PES header and the frame's first bytes, then filler that holds no
    // start code.
    std::memset(payload, 0x80 | static_cast<uint8_t>(frame & 0x7F), size);
    if (offset < mStartBytes) {
        std::memcpy(payload, mHeader.data() + offset, std::min(size, mStartBytes - offset));
    }
    if (mScrambled) {
        ts_set_scrambling(p, 0x2);  // even key
        applyControlWord(payload, size, mKey);
    }
    ++mPacket;
    mNextDue = double(mPacket) * mSlotsPerPacket;
}

void ElementaryStream::drop() {
    mCc = (mCc + 1) & 0xF;
    ++mPacket;
    mNextDue = double(mPacket) * mSlotsPerPacket;
}

void ElementaryStream::skipTo(uint64_t slot) {
    const uint64_t packet = static_cast<uint64_t>(std::ceil(double(slot) / mSlotsPerPacket));
    if (packet <= mPacket) return;
    // From the next whole frame: a receiver never sees half a PES from here.
    mPacket = (packet + mPacketsPerFrame - 1) / mPacketsPerFrame * mPacketsPerFrame;
    mNextDue = double(mPacket) * mSlotsPerPacket;
}

}  // namespace mox::air
