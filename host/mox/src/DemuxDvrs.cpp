// The demux's DVRs: a record DVR takes the packets of the record filters attached to it; a
// started playback DVR becomes the demux's input, read by a thread of its own as the client
// writes.
#include <hidl/transport/Passthrough.h>

#include <thread>
#include <vector>

#include "Demux.h"
#include "Dvr.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Demux::DvrEntry* Demux::dvrLocked(uint32_t id) {
    auto it = mDvrs.find(id);
    return it == mDvrs.end() ? nullptr : &it->second;
}

std::map<uint32_t, Demux::FilterEntry>::iterator Demux::filterOfLocked(const sp<IFilter>& given) {
    // A client in this process hands back the passthrough wrapper of the filter.
    const sp<IFilter> filter = ::android::hardware::details::unwrapPassthrough(given);
    for (auto it = mFilters.begin(); it != mFilters.end(); ++it) {
        if (filter != nullptr && it->second.face == filter.get()) return it;
    }
    return mFilters.end();
}

void Demux::detachLocked(uint32_t filterId) {
    for (auto& [id, dvr] : mDvrs) dvr.attached.erase(filterId);
    if (FilterEntry* entry = filterLocked(filterId)) entry->queue->setRecordTarget(nullptr);
}

Return<void> Demux::openDvr(DvrType type, uint32_t bufferSize, const sp<IDvrCallback>& cb,
                            openDvr_cb _hidl_cb) {
    if ((type != DvrType::RECORD && type != DvrType::PLAYBACK) ||
        bufferSize < DvrQueue::kPacketSize || bufferSize > kMaxFilterBufferBytes) {
        _hidl_cb(Result::INVALID_ARGUMENT, nullptr);
        return Void();
    }
    sp<IDvr> face;
    {
        ::android::Mutex::Autolock guard(mLock);
        if (mClosed) {
            _hidl_cb(Result::INVALID_STATE, nullptr);
            return Void();
        }
        if (mDvrs.size() >= kMaxDvrs) {
            _hidl_cb(Result::UNAVAILABLE, nullptr);
            return Void();
        }
        if (queueBytesLocked() + bufferSize > kMaxQueueBytesPerDemux) {
            _hidl_cb(Result::OUT_OF_MEMORY, nullptr);
            return Void();
        }
        uint32_t id = 0;
        while (mDvrs.count(id) != 0) ++id;
        DvrEntry entry;
        entry.queue = std::make_shared<DvrQueue>(type, bufferSize, cb);
        entry.bufferSize = bufferSize;
        if (!entry.queue->isValid()) {
            _hidl_cb(Result::OUT_OF_MEMORY, nullptr);
            return Void();
        }
        face = new Dvr(this, id);
        entry.face = face.get();
        mDvrs.emplace(id, std::move(entry));
    }
    _hidl_cb(Result::SUCCESS, face);
    return Void();
}

Result Demux::configureDvr(uint32_t id, const DvrSettings& settings) {
    ::android::Mutex::Autolock guard(mLock);
    DvrEntry* dvr = dvrLocked(id);
    if (dvr == nullptr) return Result::INVALID_STATE;
    if (dvr->queue->isRunning()) return Result::INVALID_STATE;
    return dvr->queue->configure(settings);
}

// Only a record DVR takes filters, and only this demux's record filters; a filter is attached
// to one DVR at a time.
Result Demux::attachToDvr(uint32_t id, const sp<IFilter>& filter, bool attach) {
    ::android::Mutex::Autolock guard(mLock);
    DvrEntry* dvr = dvrLocked(id);
    if (dvr == nullptr) return Result::INVALID_STATE;
    auto it = filterOfLocked(filter);
    if (it == mFilters.end() || dvr->queue->type() != DvrType::RECORD ||
        it->second.type != DemuxTsFilterType::RECORD) {
        return Result::INVALID_ARGUMENT;
    }
    if (!attach) {
        if (dvr->attached.erase(it->first) == 0) return Result::INVALID_ARGUMENT;
        it->second.queue->setRecordTarget(nullptr);
        return Result::SUCCESS;
    }
    if (it->second.queue->recordTarget() != nullptr) {
        return it->second.queue->recordTarget() == dvr->queue.get() ? Result::SUCCESS
                                                                    : Result::INVALID_STATE;
    }
    dvr->attached.insert(it->first);
    it->second.queue->setRecordTarget(dvr->queue.get());
    return Result::SUCCESS;
}

Result Demux::runDvr(uint32_t id, bool run) {
    uint64_t generation = 0;
    std::shared_ptr<DvrQueue> playback;
    {
        ::android::Mutex::Autolock guard(mLock);
        DvrEntry* dvr = dvrLocked(id);
        if (dvr == nullptr || !dvr->queue->isConfigured()) return Result::INVALID_STATE;
        const bool wasRunning = dvr->queue->isRunning();
        dvr->queue->setRunning(run);
        if (dvr->queue->type() != DvrType::PLAYBACK || wasRunning == run) return Result::SUCCESS;
        mPlaying = run;
        generation = ++mPlaybackGeneration;
        mInputChanged.broadcast();
        if (!run) return Result::SUCCESS;
        playback = dvr->queue;
    }
    sp<Demux> self = this;
    std::thread([self, generation, playback] { self->playbackLoop(generation, playback); }).detach();
    return Result::SUCCESS;
}

Result Demux::dvrExists(uint32_t id) {
    ::android::Mutex::Autolock guard(mLock);
    return dvrLocked(id) != nullptr ? Result::SUCCESS : Result::INVALID_STATE;
}

Result Demux::closeDvr(uint32_t id) {
    std::shared_ptr<DvrQueue> queue;  // freed after the lock (or by the playback thread)
    {
        ::android::Mutex::Autolock guard(mLock);
        DvrEntry* dvr = dvrLocked(id);
        if (dvr == nullptr) return Result::INVALID_STATE;
        for (uint32_t filterId : dvr->attached) {
            if (FilterEntry* entry = filterLocked(filterId)) entry->queue->setRecordTarget(nullptr);
        }
        if (dvr->queue->type() == DvrType::PLAYBACK && dvr->queue->isRunning()) {
            mPlaying = false;
            ++mPlaybackGeneration;
            mInputChanged.broadcast();
        }
        queue = std::move(dvr->queue);
        mDvrs.erase(id);
    }
    return Result::SUCCESS;
}

Result Demux::dvrQueueDescriptor(uint32_t id, MQDescriptorSync<uint8_t>& descriptor) {
    ::android::Mutex::Autolock guard(mLock);
    DvrEntry* dvr = dvrLocked(id);
    if (dvr == nullptr) return Result::INVALID_STATE;
    descriptor = dvr->queue->descriptor();
    return Result::SUCCESS;
}

void Demux::playbackLoop(uint64_t generation, std::shared_ptr<DvrQueue> queue) {
    size_t packets = 0;
    for (;;) {
        // Waits only once the queue is drained: the client's one wake may stand for more than a
        // round takes. The flag word is in memory the client writes too: the wait never outlasts
        // its bound.
        if (packets < kPlaybackPackets) queue->awaitPlayback(kPlaybackWaitNs);
        DvrQueue::PlayRound round;
        {
            ::android::Mutex::Autolock guard(mLock);
            if (generation != mPlaybackGeneration) return;
            round = queue->beginPlay(kPlaybackPackets);
        }
        // Played where the client wrote it (the queue stays mapped while this thread holds it),
        // the pieces of a ring that wrapped as one delivery.
        process({{round.first, round.firstPackets * DvrQueue::kPacketSize},
                 {round.straddling, round.straddling != nullptr ? DvrQueue::kPacketSize : 0},
                 {round.second, round.secondPackets * DvrQueue::kPacketSize}});
        packets = round.packets;
        {
            ::android::Mutex::Autolock guard(mLock);
            queue->endPlay(packets);
        }
    }
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
