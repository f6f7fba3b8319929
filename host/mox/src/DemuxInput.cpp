// The demux's input: while the service has it started, a thread reads the stream its frontend's
// tuner receives, a few milliseconds at a time, and hands it to the filters; what the filters
// made is sent to their clients with no lock held.
#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "Demux.h"
#include "StreamInput.h"

namespace android::hardware::tv::tuner::V1_0::implementation {
namespace {

// Packets read at once, and reads in one round: a round catches up at most this much, the
// next goes on where it stopped.
constexpr size_t kChunkPackets = 1024;
constexpr int kChunksPerRound = 64;
// Events a callback carries at once.
constexpr size_t kEventsPerCall = 256;

void send(FilterDelivery& d) {
    if (d.callback == nullptr) return;
    for (size_t at = 0; at < d.events.size(); at += kEventsPerCall) {
        DemuxFilterEvent event{};
        const size_t n = std::min(kEventsPerCall, d.events.size() - at);
        event.events.resize(n);
        for (size_t i = 0; i < n; ++i) event.events[i] = std::move(d.events[at + i]);
        d.callback->onFilterEvent(event).isOk();
    }
    for (DemuxFilterEvent::Event& media : d.media) {
        DemuxFilterEvent event{};
        event.events.resize(1);
        event.events[0] = std::move(media);
        d.callback->onFilterEvent(event).isOk();
    }
    for (DemuxFilterStatus status : d.statuses) d.callback->onFilterStatus(status).isOk();
}

}  // namespace

void Demux::startFrontendInputLoop() {
    ++mInputStartCount;
    uint64_t generation = 0;
    {
        ::android::Mutex::Autolock guard(mLock);
        if (mClosed || mInputRunning) {
            mInputRunning = !mClosed;
            return;
        }
        mInputRunning = true;
        generation = ++mInputGeneration;
    }
    sp<Demux> self = this;
    std::thread([self, generation] { self->inputLoop(generation); }).detach();
}

void Demux::stopFrontendInput() {
    ::android::Mutex::Autolock guard(mLock);
    mInputRunning = false;
    ++mInputGeneration;
    mInputChanged.broadcast();
}

void Demux::inputLoop(uint64_t generation) {
    mox::host::StreamInput* input = mox::host::streamInput();
    const std::optional<uint8_t> tuner = tunerIndex();
    if (input == nullptr || !tuner) return;  // nothing feeds it: its filters wait
    std::vector<uint8_t> buffer(kChunkPackets * mox::demux::kTsPacketSize);
    // What came before the start is not the demux's, nor what came while a playback DVR was
    // its input.
    uint64_t from = input->nowUs();
    for (;;) {
        bool playing = false;
        {
            ::android::Mutex::Autolock guard(mLock);
            if (generation != mInputGeneration) return;
            mInputChanged.waitRelative(mLock, int64_t{kInputPeriodUs} * 1000);
            if (generation != mInputGeneration) return;
            playing = mPlaying;
        }
        if (playing) {
            from = input->nowUs();
            continue;
        }
        for (int chunk = 0; chunk < kChunksPerRound; ++chunk) {
            const size_t n = input->read(*tuner, from, buffer.data(), kChunkPackets);
            from = 0;
            if (n > 0) process({{buffer.data(), n * mox::demux::kTsPacketSize}});
            if (n < kChunkPackets) break;
        }
    }
}

void Demux::process(std::initializer_list<Piece> pieces) {
    std::vector<FilterDelivery> deliveries;
    std::vector<DvrDelivery> dvrDeliveries;
    {
        ::android::Mutex::Autolock guard(mLock);
        if (mEngine) {
            // What the clients read since the last round lowers their queues' fill first.
            for (auto& [id, entry] : mFilters) {
                if (entry.engineId && entry.running) mEngine->drained(*entry.engineId);
            }
            for (auto& [id, dvr] : mDvrs) dvr.queue->recordDrained();
            for (const Piece& piece : pieces) {
                if (piece.size > 0) mEngine->packets(piece.packets, piece.size);
            }
        }
        // The bytes are in the queues before any event that tells of them is sent.
        for (auto& [id, entry] : mFilters) {
            entry.queue->signalWritten();
            FilterDelivery d = entry.queue->take();
            if (!d.empty()) deliveries.push_back(std::move(d));
        }
        for (auto& [id, dvr] : mDvrs) {
            dvr.queue->signalRecorded();
            DvrDelivery d = dvr.queue->take();
            if (!d.empty()) dvrDeliveries.push_back(std::move(d));
        }
    }
    for (FilterDelivery& d : deliveries) send(d);
    for (DvrDelivery& d : dvrDeliveries) {
        if (d.callback == nullptr) continue;
        for (DemuxFilterStatus s : d.recordStatuses) d.callback->onRecordStatus(s).isOk();
        for (PlaybackStatus s : d.playbackStatuses) d.callback->onPlaybackStatus(s).isOk();
    }
}

void Demux::feedForTest(const uint8_t* packets, size_t size) {
    process({{packets, size}});
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
