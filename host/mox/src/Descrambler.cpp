#include "Descrambler.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Demux.h"
#include "demux/Limits.h"
#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {
namespace {

// The PID of a transport stream packet, or nothing (an MMTP PID, or one past 13 bits).
std::optional<uint16_t> transportPid(const DemuxPid& pid) {
    if (pid.getDiscriminator() != DemuxPid::hidl_discriminator::tPid) return std::nullopt;
    if (pid.tPid() >= mox::demux::kPidCount) return std::nullopt;
    return pid.tPid();
}

}  // namespace

Descrambler::Descrambler(sp<Tuner> tuner) : mTuner(std::move(tuner)) {}

Descrambler::~Descrambler() {
    ::android::Mutex::Autolock guard(mLock);
    if (!mClosed && mDemux != nullptr) mDemux->detachDescrambler(mSlot);
}

Result Descrambler::usableLocked() const {
    return mClosed || mDemux == nullptr ? Result::INVALID_STATE : Result::SUCCESS;
}

// Once only: the source of a descrambler never changes. A demux that is not open (never opened,
// or closed) is a wrong argument and leaves the descrambler free to take another.
Return<Result> Descrambler::setDemuxSource(uint32_t demuxId) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed || mDemux != nullptr) return Result::INVALID_STATE;
    sp<Demux> demux = mTuner->openDemuxById(demuxId);
    if (demux == nullptr) return Result::INVALID_ARGUMENT;
    uint32_t slot = 0;
    const Result attached = demux->attachDescrambler(slot);
    // Closed since the lookup: not open either.
    if (attached == Result::INVALID_STATE) return Result::INVALID_ARGUMENT;
    if (attached != Result::SUCCESS) return attached;
    mDemux = std::move(demux);
    mSlot = slot;
    return Result::SUCCESS;
}

// A token replaces the one before.
Return<Result> Descrambler::setKeyToken(const hidl_vec<uint8_t>& keyToken) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    if (keyToken.size() != kKeyTokenSize) return Result::INVALID_ARGUMENT;
    if (const Result r = usableLocked(); r != Result::SUCCESS) return r;
    DescramblingKeys::ControlWord word{};
    std::copy(keyToken.begin(), keyToken.end(), word.begin());
    return mDemux->setDescramblerKey(mSlot, word);
}

// The PID's packets are cleared for every filter of the demux: the source filter adds nothing.
Return<Result> Descrambler::addPid(const DemuxPid& pid, const sp<IFilter>&) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    const std::optional<uint16_t> tpid = transportPid(pid);
    if (!tpid) return Result::INVALID_ARGUMENT;
    if (const Result r = usableLocked(); r != Result::SUCCESS) return r;
    return mDemux->addDescramblerPid(mSlot, *tpid);
}

Return<Result> Descrambler::removePid(const DemuxPid& pid, const sp<IFilter>&) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    const std::optional<uint16_t> tpid = transportPid(pid);
    if (!tpid) return Result::INVALID_ARGUMENT;
    if (const Result r = usableLocked(); r != Result::SUCCESS) return r;
    return mDemux->removeDescramblerPid(mSlot, *tpid);
}

// The demux's packets of its PIDs stay scrambled from now on; the demux itself is let go.
Return<Result> Descrambler::close() {
    sp<Demux> demux;  // released after the lock: it may be the demux's last reference
    {
        ::android::Mutex::Autolock guard(mLock);
        if (mClosed) return Result::INVALID_STATE;
        mClosed = true;
        demux = std::move(mDemux);
        mDemux = nullptr;
        if (demux != nullptr) demux->detachDescrambler(mSlot);
    }
    return Result::SUCCESS;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
