// The demux's filter table: what each filter's client asks of it, carried out on the engine.
#include "Demux.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Demux::FilterEntry* Demux::filterLocked(uint32_t id) {
    auto it = mFilters.find(id);
    return it == mFilters.end() ? nullptr : &it->second;
}

uint64_t Demux::queueBytesLocked() const {
    uint64_t bytes = 0;
    for (const auto& [id, entry] : mFilters) {
        const bool media =
                entry.type == DemuxTsFilterType::AUDIO || entry.type == DemuxTsFilterType::VIDEO;
        bytes += uint64_t{entry.bufferSize} * (media ? 2 : 1);
    }
    for (const auto& [id, dvr] : mDvrs) bytes += dvr.bufferSize;
    return bytes;
}

// Configuring again replaces the filter's settings: it stops, and what it assembled is given up.
Result Demux::configureFilter(uint32_t id, const DemuxFilterSettings& settings) {
    if (settings.getDiscriminator() != DemuxFilterSettings::hidl_discriminator::ts) {
        return Result::INVALID_ARGUMENT;
    }
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr) return Result::INVALID_STATE;
    mox::demux::FilterResources resources;
    resources.sink = entry->queue.get();
    resources.tracker = mox::demux::FilterStatusTracker::forCapacity(entry->bufferSize);
    resources.avMemory = entry->queue->avRegion();
    if (!mEngine) mEngine = std::make_unique<mox::demux::DemuxEngine>(&mKeys);
    uint32_t engineId = 0;
    const Result added = mEngine->addFilter(entry->type, settings.ts(), resources, engineId);
    if (added != Result::SUCCESS) return added;
    if (entry->engineId) mEngine->removeFilter(*entry->engineId);
    entry->engineId = engineId;
    entry->pid = settings.ts().tpid;
    entry->running = false;
    return Result::SUCCESS;
}

Result Demux::startFilter(uint32_t id) {
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr || !entry->engineId) return Result::INVALID_STATE;
    const Result r = mEngine->start(*entry->engineId);
    if (r == Result::SUCCESS) entry->running = true;
    return r;
}

Result Demux::stopFilter(uint32_t id) {
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr || !entry->engineId) return Result::INVALID_STATE;
    entry->running = false;
    return mEngine->stop(*entry->engineId);
}

Result Demux::flushFilter(uint32_t id) {
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr) return Result::INVALID_STATE;
    return entry->engineId ? mEngine->flush(*entry->engineId) : Result::SUCCESS;
}

Result Demux::releaseAvHandle(uint32_t id, uint64_t avDataId) {
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr || !entry->engineId) return Result::INVALID_STATE;
    return mEngine->releaseAvHandle(*entry->engineId, avDataId);
}

Result Demux::closeFilter(uint32_t id) {
    std::unique_ptr<FilterQueue> queue;  // freed after the lock: its memory may be large
    {
        ::android::Mutex::Autolock guard(mLock);
        FilterEntry* entry = filterLocked(id);
        if (entry == nullptr) return Result::INVALID_STATE;
        if (entry->engineId) mEngine->removeFilter(*entry->engineId);
        detachLocked(id);
        queue = std::move(entry->queue);
        mFilters.erase(id);
    }
    return Result::SUCCESS;
}

Result Demux::filterQueueDescriptor(uint32_t id, MQDescriptorSync<uint8_t>& descriptor) {
    ::android::Mutex::Autolock guard(mLock);
    FilterEntry* entry = filterLocked(id);
    if (entry == nullptr) return Result::INVALID_STATE;
    descriptor = entry->queue->descriptor();
    return Result::SUCCESS;
}

std::optional<mox::demux::FilterCounters> Demux::filterCounters(uint32_t id) {
    ::android::Mutex::Autolock guard(mLock);
    const FilterEntry* entry = filterLocked(id);
    if (entry == nullptr || !entry->engineId) return std::nullopt;
    return *mEngine->counters(*entry->engineId);
}

std::optional<uint64_t> Demux::sourceTime() {
    ::android::Mutex::Autolock guard(mLock);
    const std::optional<uint64_t> pcr = mEngine ? mEngine->latestPcr() : std::nullopt;
    if (!pcr) return std::nullopt;
    return *pcr / 300;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
