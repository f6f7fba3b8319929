#include "Filter.h"

#include <utility>

#include "Demux.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Filter::Filter(sp<Demux> demux, uint32_t id) : mDemux(std::move(demux)), mId(id) {}

// A filter its client let go of without closing is closed now: its id and memory come back.
Filter::~Filter() {
    if (!mClosed) mDemux->closeFilter(mId);
}

Return<void> Filter::getQueueDesc(getQueueDesc_cb _hidl_cb) {
    MQDescriptorSync<uint8_t> descriptor;
    const Result result =
            mClosed ? Result::INVALID_STATE : mDemux->filterQueueDescriptor(mId, descriptor);
    _hidl_cb(result, descriptor);
    return Void();
}

Return<Result> Filter::configure(const DemuxFilterSettings& settings) {
    return mClosed ? Result::INVALID_STATE : mDemux->configureFilter(mId, settings);
}

Return<Result> Filter::start() {
    return mClosed ? Result::INVALID_STATE : mDemux->startFilter(mId);
}

Return<Result> Filter::stop() {
    return mClosed ? Result::INVALID_STATE : mDemux->stopFilter(mId);
}

Return<Result> Filter::flush() {
    return mClosed ? Result::INVALID_STATE : mDemux->flushFilter(mId);
}

Return<void> Filter::getId(getId_cb _hidl_cb) {
    _hidl_cb(mClosed ? Result::INVALID_STATE : Result::SUCCESS, mId);
    return Void();
}

Return<Result> Filter::releaseAvHandle(const hidl_handle&, uint64_t avDataId) {
    return mClosed ? Result::INVALID_STATE : mDemux->releaseAvHandle(mId, avDataId);
}

// The host's demux filters transport streams only, where no filter feeds another.
Return<Result> Filter::setDataSource(const sp<IFilter>&) {
    return mClosed ? Result::INVALID_STATE : Result::INVALID_ARGUMENT;
}

Return<Result> Filter::close() {
    if (mClosed.exchange(true)) return Result::INVALID_STATE;
    return mDemux->closeFilter(mId);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
