// tunerctl's side of the data path, as any client of the interface has it: a demux bound to a
// frontend or fed by a playback DVR, section filters whose sections it reads from their queues,
// a recording DVR whose packets it reads from its queue, and a playback DVR it writes into.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ByteQueue =
        ::android::hardware::MessageQueue<uint8_t, ::android::hardware::kSynchronizedReadWrite>;

// The PID a TS or record filter is set to for every packet of the stream (as Linux DVB's).
inline constexpr uint16_t kWholeStream = 0x2000;
inline constexpr size_t kTsPacket = 188;

// A queue's descriptor mapped, with its event flag; false from ok() when either failed.
class MappedQueue {
  public:
    MappedQueue() = default;
    ~MappedQueue();
    MappedQueue(const MappedQueue&) = delete;
    MappedQueue& operator=(const MappedQueue&) = delete;
    bool map(const ::android::hardware::MQDescriptorSync<uint8_t>& descriptor);
    bool ok() const { return mFlag != nullptr; }
    ByteQueue& queue() { return *mQueue; }
    // Waits at most `timeout` for any of the bits; the bits that came.
    uint32_t wait(hal::DemuxQueueNotifyBits bits, std::chrono::milliseconds timeout);
    void wake(hal::DemuxQueueNotifyBits bits);

  private:
    std::unique_ptr<ByteQueue> mQueue;
    ::android::hardware::EventFlag* mFlag = nullptr;
};

// A demux of this client, closed when it goes.
class DemuxSession {
  public:
    // Opens one; null with the reason in `error` when the service has none to give.
    static std::unique_ptr<DemuxSession> open(const sp<hal::ITuner>& tuner, std::string& error);
    ~DemuxSession();
    DemuxSession(const DemuxSession&) = delete;
    DemuxSession& operator=(const DemuxSession&) = delete;

    bool bindFrontend(uint32_t frontendId, std::string& error);
    const sp<hal::IDemux>& demux() const { return mDemux; }
    uint32_t id() const { return mId; }

  private:
    DemuxSession(sp<hal::IDemux> demux, uint32_t id) : mDemux(std::move(demux)), mId(id) {}
    sp<hal::IDemux> mDemux;
    uint32_t mId;
};

// Section filters on any number of PIDs whose sections arrive in one inbox, in the order the
// demux delivered them. Each filter takes the sections of one table id (CRC checked).
class SectionTaps {
  public:
    explicit SectionTaps(const sp<hal::IDemux>& demux);
    ~SectionTaps();
    SectionTaps(const SectionTaps&) = delete;
    SectionTaps& operator=(const SectionTaps&) = delete;

    // A started filter for the table on the PID; false with the reason in `error`.
    bool add(uint16_t pid, uint8_t tableId, std::string& error);
    bool has(uint16_t pid, uint8_t tableId) const;

    struct Received {
        uint16_t pid = 0;
        std::vector<uint8_t> section;
    };
    // The next section of any filter, waiting until `deadline`; nullopt when none came.
    std::optional<Received> next(std::chrono::steady_clock::time_point deadline);

  private:
    struct Inbox;
    struct Tap;
    sp<hal::IDemux> mDemux;
    std::shared_ptr<Inbox> mInbox;
    std::vector<std::unique_ptr<Tap>> mTaps;
};

class DvrStatuses;

// Packets of a demux's PIDs (or of the whole stream) through a recording DVR.
class Recorder {
  public:
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // A started recording of the PIDs ({kWholeStream}: every packet); null with the reason.
    static std::unique_ptr<Recorder> start(const sp<hal::IDemux>& demux,
                                           const std::vector<uint16_t>& pids, std::string& error);
    // Waits at most `timeout` for packets and hands each run of whole packets to `take`; the
    // bytes taken.
    size_t pump(std::chrono::milliseconds timeout,
                const std::function<void(const uint8_t*, size_t)>& take);
    // OVERFLOW statuses the DVR reported: packets were dropped because this side read too late.
    uint64_t overflows() const;
    void stop();

  private:
    Recorder() = default;
    sp<hal::IDvr> mDvr;
    sp<DvrStatuses> mStatuses;
    std::vector<sp<hal::IFilter>> mFilters;
    MappedQueue mQueue;
    std::vector<uint8_t> mBuffer;
    bool mStopped = false;
};

// A transport stream written into a playback DVR: the demux's filters see it as the air.
class Player {
  public:
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    static std::unique_ptr<Player> start(const sp<hal::IDemux>& demux, std::string& error);
    // Writes the bytes (whole packets), waiting for room; false when the DVR took nothing for
    // `stall` (it stopped playing).
    bool write(const uint8_t* data, size_t size, std::chrono::milliseconds stall);
    // Waits until what was written has been played, at most `timeout`.
    bool drain(std::chrono::milliseconds timeout);
    void stop();

  private:
    Player() = default;
    sp<hal::IDvr> mDvr;
    MappedQueue mQueue;
    bool mStopped = false;
};

}  // namespace tunerctl
