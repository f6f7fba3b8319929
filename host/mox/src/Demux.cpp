#include "Demux.h"

#include <utility>

#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Demux::Demux(uint32_t demuxId, sp<Tuner> tuner) : mDemuxId(demuxId), mTuner(std::move(tuner)) {}

Demux::~Demux() = default;

Return<Result> Demux::setFrontendDataSource(uint32_t frontendId) {
    mTuner->setFrontendAsDemuxSource(frontendId, mDemuxId);
    return Result::SUCCESS;
}

Return<void> Demux::openFilter(const DemuxFilterType&, uint32_t, const sp<IFilterCallback>&,
                               openFilter_cb _hidl_cb) {
    _hidl_cb(Result::UNAVAILABLE, nullptr);
    return Void();
}

Return<void> Demux::openTimeFilter(openTimeFilter_cb _hidl_cb) {
    _hidl_cb(Result::UNAVAILABLE, nullptr);
    return Void();
}

Return<void> Demux::getAvSyncHwId(const sp<IFilter>&, getAvSyncHwId_cb _hidl_cb) {
    _hidl_cb(Result::UNAVAILABLE, 0);
    return Void();
}

Return<void> Demux::getAvSyncTime(uint32_t, getAvSyncTime_cb _hidl_cb) {
    _hidl_cb(Result::UNAVAILABLE, 0);
    return Void();
}

// Closing hands the id back through the close callback; the placeholder of a failed open has
// none.
Return<Result> Demux::close() {
    CloseCallback callback;
    {
        ::android::Mutex::Autolock guard(mCloseLock);
        callback = mCloseCallback;
    }
    mInputRunning = false;
    if (callback != nullptr) callback(mTuner.get(), static_cast<int>(mDemuxId));
    return Result::SUCCESS;
}

Return<void> Demux::openDvr(DvrType, uint32_t, const sp<IDvrCallback>&, openDvr_cb _hidl_cb) {
    _hidl_cb(Result::UNAVAILABLE, nullptr);
    return Void();
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

void Demux::startFrontendInputLoop() {
    mInputRunning = true;
    ++mInputStartCount;
}

void Demux::stopFrontendInput() {
    mInputRunning = false;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
