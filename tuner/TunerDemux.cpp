// Demuxes and descramblers: ids from the pool, the registry of open demuxes, and the binding of
// frontends to the demux they feed.
#include "Demux.h"
#include "Descrambler.h"
#include "frontend/Frontend.h"
#include "tuner/DemuxIdPool.h"
#include "tuner/Tuner.h"
#include "tuner/TunerLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {
constexpr uint32_t kBytesInSectionFilter = 16;
constexpr size_t kDemuxFilterMainTypes = 5;
}  // namespace

Return<void> Tuner::openDemux(openDemux_cb _hidl_cb) {
    TLOGD("Enter >>");
    MOX_TunerPassthCallback(this);
    const int32_t id = mDemuxIdPool->allocate();
    if (id == -1) {
        __android_log_print(ANDROID_LOG_ERROR, TUNER_TAG, "%s:%d, No free id\n", __func__, __LINE__);
        _hidl_cb(Result::INVALID_ARGUMENT, 0, new Demux(0, this));
        return Void();
    }
    const uint32_t demuxId = static_cast<uint32_t>(id);
    bool idInUse = false;
    {
        AutoMutex guard(mLock);
        auto existing = mDemuxes.find(demuxId);
        if (existing != mDemuxes.end()) {
            idInUse = true;
            __android_log_print(ANDROID_LOG_ERROR, TUNER_TAG,
                                "%s:%d, the id %d is used by demux %p, please check!!!\n", __func__,
                                __LINE__, id, existing->second.get());
        }
    }
    // The answers go out with no lock held, so a client may call back into the tuner from them.
    // On a clash the id stays taken and the registered demux stays where it is.
    if (idInUse) {
        _hidl_cb(Result::INVALID_ARGUMENT, 0, new Demux(0, this));
        return Void();
    }
    sp<Demux> demux = new Demux(demuxId, this);
    {
        AutoMutex guard(mLock);
        mDemuxes[demuxId] = demux;
    }
    demux->setDemuxCloseCallback(close_demux);
    _hidl_cb(Result::SUCCESS, demuxId, demux);
    return Void();
}

void Tuner::closeDemux(int32_t demuxId) {
    sp<Demux> closed;  // released after the lock: the demux may be destroyed with it
    {
        AutoMutex guard(mLock);
        mDemuxIdPool->release(demuxId);
        auto it = mDemuxes.find(static_cast<uint32_t>(demuxId));
        if (it != mDemuxes.end()) {
            closed = it->second;
            mDemuxes.erase(it);
        }
    }
}

void Tuner::close_demux(void* tuner, int demuxId) {
    if (tuner != nullptr) static_cast<Tuner*>(tuner)->closeDemux(demuxId);
}

Return<void> Tuner::getDemuxCaps(getDemuxCaps_cb _hidl_cb) {
    TLOGD("Enter >>");
    DemuxCapabilities caps{};
    caps.numBytesInSectionFilter = kBytesInSectionFilter;
    caps.linkCaps.resize(kDemuxFilterMainTypes);
    for (uint32_t& link : caps.linkCaps) link = 0;
    _hidl_cb(Result::SUCCESS, caps);
    return Void();
}

Return<void> Tuner::openDescrambler(openDescrambler_cb _hidl_cb) {
    TLOGD("Enter >>");
    _hidl_cb(Result::SUCCESS, new Descrambler(this));
    return Void();
}

void Tuner::setFrontendAsDemuxSource(uint32_t frontendId, uint32_t demuxId) {
    sp<Frontend> frontend;
    sp<Demux> demux;
    {
        AutoMutex guard(mLock);
        mFrontendDemuxIds[frontendId] = demuxId;
        if (frontendId < mFrontends.size()) frontend = mFrontends[frontendId];
        auto it = mDemuxes.find(demuxId);
        if (it != mDemuxes.end()) demux = it->second;
    }
    // A frontend that is already locked feeds its new demux at once.
    if (frontend != nullptr && frontend->isLocked() && demux != nullptr) {
        demux->startFrontendInputLoop();
    }
}

sp<Demux> Tuner::openDemuxById(uint32_t demuxId) {
    AutoMutex guard(mLock);
    auto it = mDemuxes.find(demuxId);
    return it == mDemuxes.end() ? nullptr : it->second;
}

sp<Demux> Tuner::boundDemux(uint32_t frontendId) {
    AutoMutex guard(mLock);
    auto binding = mFrontendDemuxIds.find(frontendId);
    if (binding == mFrontendDemuxIds.end()) return nullptr;
    auto it = mDemuxes.find(binding->second);
    return it == mDemuxes.end() ? nullptr : it->second;
}

void Tuner::frontendStartTune(uint32_t frontendId) {
    if (sp<Demux> demux = boundDemux(frontendId)) demux->startFrontendInputLoop();
}

void Tuner::frontendStopTune(uint32_t frontendId) {
    if (sp<Demux> demux = boundDemux(frontendId)) demux->stopFrontendInput();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
