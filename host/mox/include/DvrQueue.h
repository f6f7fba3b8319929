// A DVR's queue and statuses. A record DVR's queue takes the packets of the record filters
// attached to it, with the record statuses of its settings' thresholds; a playback DVR's queue
// is written by the client and read by the demux as its input, with the playback statuses as it
// fills and empties. Touched only under its demux's lock; the statuses wait there to be sent
// with no lock held.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDvrCallback.h>
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "demux/FilterStatusTracker.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

struct DvrDelivery {
    sp<IDvrCallback> callback;
    std::vector<DemuxFilterStatus> recordStatuses;
    std::vector<PlaybackStatus> playbackStatuses;

    bool empty() const { return recordStatuses.empty() && playbackStatuses.empty(); }
};

class DvrQueue {
  public:
    static constexpr size_t kPacketSize = 188;

    DvrQueue(DvrType type, size_t bytes, sp<IDvrCallback> callback);
    ~DvrQueue();

    bool isValid() const;
    DvrType type() const { return mType; }
    const MQDescriptorSync<uint8_t>& descriptor() const { return *mQueue->getDesc(); }
    // INVALID_ARGUMENT for settings of the other type, a format other than TS in 188-byte
    // packets, or thresholds that do not fit the queue.
    Result configure(const DvrSettings& settings);
    bool isConfigured() const { return mConfigured; }
    void setRunning(bool running) { mRunning = running; }
    bool isRunning() const { return mRunning; }

    // Record: all of the bytes or none; false (counted) when they do not fit or the DVR is not
    // recording. A round's packets go into the room the queue had when the round began (looked
    // at again only when they outgrow it) and reach the client together at signalRecorded(): the
    // client's position, in memory it writes all the while, is not read for every packet.
    bool record(const uint8_t* data, size_t size);
    // The same without counting a refusal: for a run the caller then records packet by packet.
    bool stage(const uint8_t* data, size_t size);
    // What the queue holds as far as this side knows: at least what the client has yet to read.
    size_t recordFill() const { return mFillSeen + mStaged; }
    uint64_t recordDrops() const { return mRecordDrops; }
    // A round begins: what the client read since the last one lowers the fill, with statuses.
    void recordDrained();
    // The round's packets are the client's, and it is told so: once a round, not once a packet
    // (each wake may cost the client a switch).
    void signalRecorded();

    // Playback, read where the client wrote it rather than copied out: whole packets, at most
    // maxPackets, as a run up to the ring's end, the packet that straddles the end (copied
    // whole), and a run from the ring's start. The client's bytes may change under the reader
    // (the memory is the client's to write too): the engine reads any bytes safely.
    struct PlayRound {
        const uint8_t* first = nullptr;
        size_t firstPackets = 0;
        const uint8_t* straddling = nullptr;  // one packet, or null
        const uint8_t* second = nullptr;
        size_t secondPackets = 0;
        size_t packets = 0;
    };
    // Reports the space the client left first.
    PlayRound beginPlay(size_t maxPackets);
    // The round's packets were played: the client may write over them; the statuses of the
    // space left follow.
    void endPlay(size_t packets);
    // Waits at most timeoutNs for the client to say it wrote (a word the client may set at will:
    // never longer than the timeout).
    void awaitPlayback(int64_t timeoutNs);

    DvrDelivery take();

  private:
    void playbackLevel();
    void reportRecord(uint8_t bits);
    // What is staged becomes the client's; the room is looked at again.
    void commitStaged();
    void refreshRoom();

    using Queue = MessageQueue<uint8_t, kSynchronizedReadWrite>;
    const DvrType mType;
    std::unique_ptr<Queue> mQueue;
    EventFlag* mEventFlag = nullptr;
    sp<IDvrCallback> mCallback;
    bool mConfigured = false;
    bool mRunning = false;
    std::optional<mox::demux::FilterStatusTracker> mRecordTracker;
    uint32_t mPlaybackMask = 0;
    size_t mLow = 0;
    size_t mHigh = 0;
    std::optional<PlaybackStatus> mPlaybackLevel;
    uint64_t mRecordDrops = 0;
    bool mRecorded = false;  // since the last signalRecorded()
    // A record round: the room seen when it began (mTransaction spans it), what it staged there,
    // and the fill seen then.
    size_t mRoom = 0;
    size_t mStaged = 0;
    size_t mFillSeen = 0;
    Queue::MemTransaction mTransaction;
    std::array<uint8_t, kPacketSize> mStraddling{};
    DvrDelivery mPending;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
