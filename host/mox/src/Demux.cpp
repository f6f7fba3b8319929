#include "Demux.h"

#include <utility>

#include "Dvr.h"
#include "Filter.h"
#include "TimeFilter.h"
#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Demux::Demux(uint32_t demuxId, sp<Tuner> tuner) : mDemuxId(demuxId), mTuner(std::move(tuner)) {}

Demux::~Demux() = default;

Return<Result> Demux::setFrontendDataSource(uint32_t frontendId) {
    {
        ::android::Mutex::Autolock guard(mLock);
        mFrontendId = frontendId;
    }
    mTuner->setFrontendAsDemuxSource(frontendId, mDemuxId);
    return Result::SUCCESS;
}

Return<void> Demux::openFilter(const DemuxFilterType& type, uint32_t bufferSize,
                               const sp<IFilterCallback>& cb, openFilter_cb _hidl_cb) {
    // The host's demux reads transport streams only.
    if (type.mainType != DemuxFilterMainType::TS ||
        type.subType.getDiscriminator() !=
                DemuxFilterType::DemuxFilterSubType::hidl_discriminator::tsFilterType) {
        _hidl_cb(Result::UNAVAILABLE, nullptr);
        return Void();
    }
    const DemuxTsFilterType tsType = type.subType.tsFilterType();
    if (tsType == DemuxTsFilterType::UNDEFINED || tsType > DemuxTsFilterType::TEMI ||
        bufferSize == 0 || bufferSize > kMaxFilterBufferBytes) {
        _hidl_cb(Result::INVALID_ARGUMENT, nullptr);
        return Void();
    }
    const bool media = tsType == DemuxTsFilterType::AUDIO || tsType == DemuxTsFilterType::VIDEO;
    uint32_t id = 0;
    sp<IFilter> face;
    {
        ::android::Mutex::Autolock guard(mLock);
        if (mClosed) {
            _hidl_cb(Result::INVALID_STATE, nullptr);
            return Void();
        }
        if (mFilters.size() >= kMaxFilters) {
            _hidl_cb(Result::UNAVAILABLE, nullptr);
            return Void();
        }
        if (queueBytesLocked() + uint64_t{bufferSize} * (media ? 2 : 1) > kMaxQueueBytesPerDemux) {
            _hidl_cb(Result::OUT_OF_MEMORY, nullptr);
            return Void();
        }
        while (mFilters.count(id) != 0) ++id;
        FilterEntry entry;
        entry.type = tsType;
        entry.bufferSize = bufferSize;
        entry.queue = std::make_unique<FilterQueue>(bufferSize, media ? bufferSize : 0, cb);
        if (!entry.queue->isValid()) {
            _hidl_cb(Result::OUT_OF_MEMORY, nullptr);
            return Void();
        }
        face = new Filter(this, id);
        entry.face = face.get();
        mFilters.emplace(id, std::move(entry));
    }
    _hidl_cb(Result::SUCCESS, face);
    return Void();
}

Return<void> Demux::openTimeFilter(openTimeFilter_cb _hidl_cb) {
    _hidl_cb(Result::SUCCESS, new TimeFilter(this));
    return Void();
}

// The sync id of a media or PCR filter is the id of the PCR filter that clocks it: a PCR filter
// is its own, a media filter's is the PCR filter on its PID (or the demux's only one).
Return<void> Demux::getAvSyncHwId(const sp<IFilter>& filter, getAvSyncHwId_cb _hidl_cb) {
    ::android::Mutex::Autolock guard(mLock);
    auto asked = mFilters.end();
    for (auto it = mFilters.begin(); it != mFilters.end(); ++it) {
        if (filter != nullptr && it->second.face == filter.get()) asked = it;
    }
    if (asked == mFilters.end()) {
        _hidl_cb(Result::INVALID_ARGUMENT, 0);
        return Void();
    }
    const FilterEntry& entry = asked->second;
    if (entry.type == DemuxTsFilterType::PCR) {
        _hidl_cb(Result::SUCCESS, asked->first);
        return Void();
    }
    std::optional<uint32_t> clock;
    for (const auto& [id, other] : mFilters) {
        if (other.type != DemuxTsFilterType::PCR) continue;
        if (!clock || (other.engineId && other.pid == entry.pid)) clock = id;
    }
    const bool media =
            entry.type == DemuxTsFilterType::AUDIO || entry.type == DemuxTsFilterType::VIDEO;
    if (!media || !clock) {
        _hidl_cb(Result::INVALID_ARGUMENT, 0);
        return Void();
    }
    _hidl_cb(Result::SUCCESS, *clock);
    return Void();
}

Return<void> Demux::getAvSyncTime(uint32_t avSyncHwId, getAvSyncTime_cb _hidl_cb) {
    ::android::Mutex::Autolock guard(mLock);
    const FilterEntry* entry = filterLocked(avSyncHwId);
    if (entry == nullptr || entry->type != DemuxTsFilterType::PCR) {
        _hidl_cb(Result::INVALID_ARGUMENT, 0);
        return Void();
    }
    // Before the first PCR the clock stands at 0.
    std::optional<uint64_t> pcr;
    if (entry->engineId) pcr = mEngine->latestPcr(*entry->engineId);
    _hidl_cb(Result::SUCCESS, pcr ? *pcr / 300 : 0);
    return Void();
}

// Closing closes the filters, gives up its descramblers' keys (their later calls find the demux
// closed), stops the input and hands the id back through the close callback; the placeholder of a
// failed open has none.
Return<Result> Demux::close() {
    CloseCallback callback;
    {
        ::android::Mutex::Autolock guard(mCloseLock);
        callback = mCloseCallback;
    }
    // Freed after the lock: queues and the engine may be large.
    std::unique_ptr<mox::demux::DemuxEngine> engine;
    std::map<uint32_t, FilterEntry> filters;
    std::map<uint32_t, DvrEntry> dvrs;
    {
        ::android::Mutex::Autolock guard(mLock);
        mClosed = true;
        ++mInputGeneration;
        for (auto& [id, entry] : mFilters) {
            if (entry.engineId) mEngine->removeFilter(*entry.engineId);
        }
        filters = std::move(mFilters);
        mFilters.clear();
        dvrs = std::move(mDvrs);
        mDvrs.clear();
        mPlaying = false;
        ++mPlaybackGeneration;
        engine = std::move(mEngine);
        mKeys.clear();
        mInputChanged.broadcast();
    }
    mInputRunning = false;
    if (callback != nullptr) callback(mTuner.get(), static_cast<int>(mDemuxId));
    return Result::SUCCESS;
}

Return<Result> Demux::connectCiCam(uint32_t) {
    return Result::UNAVAILABLE;
}

Return<Result> Demux::disconnectCiCam() {
    return Result::UNAVAILABLE;
}

void Demux::setDemuxCloseCallback(CloseCallback callback) {
    ::android::Mutex::Autolock guard(mCloseLock);
    mCloseCallback = callback;
}

std::optional<uint8_t> Demux::tunerIndex() {
    std::optional<uint32_t> frontendId;
    {
        ::android::Mutex::Autolock guard(mLock);
        frontendId = mFrontendId;
    }
    if (!frontendId) return std::nullopt;
    sp<Frontend> frontend = mTuner->getFrontendById(*frontendId);
    if (frontend == nullptr) return std::nullopt;
    return frontend->tunerIndex();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
