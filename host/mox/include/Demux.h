// Host stand-in for the maker's player library demux. It keeps its id and Tuner, reports its
// frontend binding to the Tuner and calls its close callback when closed, as on a box; and it
// does what the player library does with a stream: between the service's start and stop of its
// input it reads the transport stream its frontend's tuner receives and hands it to its
// filters, whose queues, media memory and callbacks it serves.
//
// Locks, in the order they are taken: mCloseLock, then mLock. No client callback runs with
// either held.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <atomic>
#include <bitset>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "DescramblingKeys.h"
#include "DvrQueue.h"
#include "FilterQueue.h"
#include "demux/DemuxEngine.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

class Tuner;

class Demux : public IDemux {
  public:
    using CloseCallback = void (*)(void* tuner, int demuxId);

    // Filters a demux holds at once, as its engine does.
    static constexpr size_t kMaxFilters = mox::demux::kMaxFiltersPerDemux;
    // A filter's queue (and a media filter's memory) is at most this many bytes, and all of a
    // demux's together at most kMaxQueueBytesPerDemux: a client asks, the host's memory pays.
    static constexpr uint32_t kMaxFilterBufferBytes = 32u << 20;
    static constexpr uint64_t kMaxQueueBytesPerDemux = 256ull << 20;
    // How often the input reads its tuner, in real time.
    static constexpr uint32_t kInputPeriodUs = 5000;
    // DVRs a demux holds at once.
    static constexpr size_t kMaxDvrs = 8;
    // Packets a playback DVR's thread plays at once (each round sends what the filters made),
    // and how long it waits for the client to write.
    static constexpr size_t kPlaybackPackets = 4096;
    static constexpr int64_t kPlaybackWaitNs = 5'000'000;

    Demux(uint32_t demuxId, sp<Tuner> tuner);
    ~Demux() override;

    Return<Result> setFrontendDataSource(uint32_t frontendId) override;
    Return<void> openFilter(const DemuxFilterType& type, uint32_t bufferSize,
                            const sp<IFilterCallback>& cb, openFilter_cb _hidl_cb) override;
    Return<void> openTimeFilter(openTimeFilter_cb _hidl_cb) override;
    Return<void> getAvSyncHwId(const sp<IFilter>& filter, getAvSyncHwId_cb _hidl_cb) override;
    Return<void> getAvSyncTime(uint32_t avSyncHwId, getAvSyncTime_cb _hidl_cb) override;
    Return<Result> close() override;
    Return<void> openDvr(DvrType type, uint32_t bufferSize, const sp<IDvrCallback>& cb,
                         openDvr_cb _hidl_cb) override;
    Return<Result> connectCiCam(uint32_t ciCamId) override;
    Return<Result> disconnectCiCam() override;

    void setDemuxCloseCallback(CloseCallback callback);
    void startFrontendInputLoop();
    void stopFrontendInput();

    uint32_t getId() const { return mDemuxId; }
    bool isFrontendInputRunning() const { return mInputRunning; }
    int frontendInputStartCount() const { return mInputStartCount; }

    // What the demux's filters ask of it (Filter is their face to the client).
    Result configureFilter(uint32_t id, const DemuxFilterSettings& settings);
    Result startFilter(uint32_t id);
    Result stopFilter(uint32_t id);
    Result flushFilter(uint32_t id);
    Result releaseAvHandle(uint32_t id, uint64_t avDataId);
    Result closeFilter(uint32_t id);
    Result filterQueueDescriptor(uint32_t id, MQDescriptorSync<uint8_t>& descriptor);
    // What the demux's DVRs ask of it (Dvr is their face to the client).
    Result configureDvr(uint32_t id, const DvrSettings& settings);
    Result attachToDvr(uint32_t id, const sp<IFilter>& filter, bool attach);
    Result runDvr(uint32_t id, bool run);
    Result dvrExists(uint32_t id);
    Result closeDvr(uint32_t id);
    Result dvrQueueDescriptor(uint32_t id, MQDescriptorSync<uint8_t>& descriptor);
    // The source time: the latest PCR a PCR filter of the demux saw, 90 kHz.
    std::optional<uint64_t> sourceTime();
    // What a configured filter's engine counted: what it delivered and dropped, by cause.
    std::optional<mox::demux::FilterCounters> filterCounters(uint32_t id);

    // What the demux's descramblers ask of it (Descrambler is their face): a key slot, then
    // its key and PIDs by the slot's number. INVALID_STATE once the demux is closed; attaching
    // is UNAVAILABLE while every slot is taken.
    Result attachDescrambler(uint32_t& slot);
    Result setDescramblerKey(uint32_t slot, const DescramblingKeys::ControlWord& word);
    Result addDescramblerPid(uint32_t slot, uint16_t pid);
    Result removeDescramblerPid(uint32_t slot, uint16_t pid);
    void detachDescrambler(uint32_t slot);

    // Packets as the demux's input would hand them, for tests: filters see them, and their
    // events are sent before it returns.
    void feedForTest(const uint8_t* packets, size_t size);

  private:
    struct FilterEntry {
        DemuxTsFilterType type = DemuxTsFilterType::UNDEFINED;
        uint32_t bufferSize = 0;
        std::unique_ptr<FilterQueue> queue;
        std::optional<uint32_t> engineId;  // once configured
        uint16_t pid = 0;
        bool running = false;
        const IFilter* face = nullptr;  // the client's filter object, to know it when handed back
    };
    struct DvrEntry {
        std::shared_ptr<DvrQueue> queue;  // shared with the playback thread while it waits
        std::set<uint32_t> attached;      // record filters
        uint32_t bufferSize = 0;
        const IDvr* face = nullptr;
    };

    FilterEntry* filterLocked(uint32_t id) REQUIRES(mLock);
    DvrEntry* dvrLocked(uint32_t id) REQUIRES(mLock);
    // The filter a client handed back, by its object.
    std::map<uint32_t, FilterEntry>::iterator filterOfLocked(const sp<IFilter>& filter)
            REQUIRES(mLock);
    void detachLocked(uint32_t filterId) REQUIRES(mLock);
    void playbackLoop(uint64_t generation, std::shared_ptr<DvrQueue> queue);
    uint64_t queueBytesLocked() const REQUIRES(mLock);
    // The engine's work on pieces of the stream (in their order), then what waits in each filter
    // is sent: one delivery for all of them.
    struct Piece {
        const uint8_t* packets = nullptr;
        size_t size = 0;
    };
    void process(std::initializer_list<Piece> pieces) EXCLUDES(mLock);
    void inputLoop(uint64_t generation);
    std::optional<uint8_t> tunerIndex();

    const uint32_t mDemuxId;
    sp<Tuner> mTuner;
    ::android::Mutex mCloseLock;
    CloseCallback mCloseCallback GUARDED_BY(mCloseLock) = nullptr;

    ::android::Mutex mLock;
    ::android::Condition mInputChanged;
    // The engine's descrambler: it reads the table under mLock, while it works on packets.
    // Declared before the engine, which it outlives.
    DescramblingKeys mKeys GUARDED_BY(mLock);
    // Made with the first filter configured (its PID table is 64 KiB, and most demuxes a
    // client opens never filter), freed when the demux closes.
    std::unique_ptr<mox::demux::DemuxEngine> mEngine GUARDED_BY(mLock);
    std::map<uint32_t, FilterEntry> mFilters GUARDED_BY(mLock);
    std::map<uint32_t, DvrEntry> mDvrs GUARDED_BY(mLock);
    // A started playback DVR is the demux's input instead of its frontend; its thread runs
    // while its generation is the current one.
    bool mPlaying GUARDED_BY(mLock) = false;
    uint64_t mPlaybackGeneration GUARDED_BY(mLock) = 0;
    std::optional<uint32_t> mFrontendId GUARDED_BY(mLock);
    bool mClosed GUARDED_BY(mLock) = false;
    // The input thread runs while its generation is the current one; a stop or close moves the
    // generation on, and the thread ends on its own (it is never joined: it may be sending to a
    // client that is calling in).
    uint64_t mInputGeneration GUARDED_BY(mLock) = 0;
    std::atomic<bool> mInputRunning{false};
    std::atomic<int> mInputStartCount{0};
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
