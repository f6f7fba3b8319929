#include "Dvr.h"

#include <utility>

#include "Demux.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Dvr::Dvr(sp<Demux> demux, uint32_t id) : mDemux(std::move(demux)), mId(id) {}

// A DVR its client let go of without closing is closed now.
Dvr::~Dvr() {
    if (!mClosed) mDemux->closeDvr(mId);
}

Return<void> Dvr::getQueueDesc(getQueueDesc_cb _hidl_cb) {
    MQDescriptorSync<uint8_t> descriptor;
    const Result result =
            mClosed ? Result::INVALID_STATE : mDemux->dvrQueueDescriptor(mId, descriptor);
    _hidl_cb(result, descriptor);
    return Void();
}

Return<Result> Dvr::configure(const DvrSettings& settings) {
    return mClosed ? Result::INVALID_STATE : mDemux->configureDvr(mId, settings);
}

Return<Result> Dvr::attachFilter(const sp<IFilter>& filter) {
    return mClosed ? Result::INVALID_STATE : mDemux->attachToDvr(mId, filter, true);
}

Return<Result> Dvr::detachFilter(const sp<IFilter>& filter) {
    return mClosed ? Result::INVALID_STATE : mDemux->attachToDvr(mId, filter, false);
}

Return<Result> Dvr::start() {
    return mClosed ? Result::INVALID_STATE : mDemux->runDvr(mId, true);
}

Return<Result> Dvr::stop() {
    return mClosed ? Result::INVALID_STATE : mDemux->runDvr(mId, false);
}

// The demux writes a record queue and reads a playback one; what waits in them is the client's
// to read or the demux's to play, so flushing has nothing of the demux's to drop.
Return<Result> Dvr::flush() {
    return mClosed ? Result::INVALID_STATE : mDemux->dvrExists(mId);
}

Return<Result> Dvr::close() {
    if (mClosed.exchange(true)) return Result::INVALID_STATE;
    return mDemux->closeDvr(mId);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
