// A recorded transport stream as a transmitter's content, played in a loop at the pace of its
// PCR (at the multiplex's rate when it has none) and never faster than the multiplex carries.
// Across the wrap its continuity counters and timestamps go on as if the recording went on:
// each PID's counters are shifted by what one pass moves them, PTS and DTS by the time a pass
// takes, and every PCR is stamped anew for the packet's time on the air. Null packets fill the
// multiplex beside it. The file is read as it plays, a few packets at a time.
#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/stream/TransportStreamSource.h"

namespace mox::air {

class CaptureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What a first reading of a capture finds: its packets, its pace and each PID's counters.
struct CaptureSummary {
    uint64_t packets = 0;
    uint64_t bitRate = 0;                 // from its first PCR PID; 0 without two PCRs
    std::array<uint8_t, 8192> firstCc{};  // of the first packet with payload; 0xFF: none
    std::array<uint8_t, 8192> lastCc{};
};
// Throws CaptureError naming what is wrong: unreadable, empty, not whole packets, no sync.
CaptureSummary readCaptureSummary(const std::string& path);

class CapturedStream : public TransportStreamSource {
  public:
    CapturedStream(const std::string& path, uint64_t multiplexRate);
    ~CapturedStream() override;

    size_t produce(uint64_t untilUs, uint8_t* out, size_t maxPackets) override;
    void skipTo(uint64_t us) override;
    uint64_t bitRate() const override { return mMultiplexRate; }
    // The rate the file plays at: its own, or the multiplex's when that is less.
    uint64_t playRate() const { return mPlayRate; }

  private:
    uint64_t slotOf(uint64_t filePacket) const;
    void seek(uint64_t filePacket);
    bool readNext(uint8_t* packet);
    void restamp(uint8_t* packet, uint64_t slot, uint64_t loop);

    const std::string mPath;
    const CaptureSummary mSummary;
    const uint64_t mMultiplexRate;
    const uint64_t mPlayRate;
    std::unique_ptr<FILE, int (*)(FILE*)> mFile;
    std::vector<uint8_t> mBuffer;
    size_t mBufferPos = 0;
    size_t mBufferCount = 0;
    uint64_t mSlot = 0;
    uint64_t mNext = 0;  // packets of the file played, passes included
    bool mPcrOriginSet = false;
    uint64_t mPcrOrigin = 0;  // 27 MHz at slot 0
};

}  // namespace mox::air
