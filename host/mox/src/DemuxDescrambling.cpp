// The demux's side of its descramblers: their key slots, kept under the demux's lock where the
// engine reads them packet by packet.
#include "Demux.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Result Demux::attachDescrambler(uint32_t& slot) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    const std::optional<uint32_t> attached = mKeys.attach();
    if (!attached) return Result::UNAVAILABLE;
    slot = *attached;
    return Result::SUCCESS;
}

Result Demux::setDescramblerKey(uint32_t slot, const DescramblingKeys::ControlWord& word) {
    ::android::Mutex::Autolock guard(mLock);
    if (mClosed) return Result::INVALID_STATE;
    mKeys.setKey(slot, word);
    return Result::SUCCESS;
}

Result Demux::addDescramblerPid(uint32_t slot, uint16_t pid) {
    ::android::Mutex::Autolock guard(mLock);
    return mClosed ? Result::INVALID_STATE : mKeys.addPid(slot, pid);
}

Result Demux::removeDescramblerPid(uint32_t slot, uint16_t pid) {
    ::android::Mutex::Autolock guard(mLock);
    return mClosed ? Result::INVALID_STATE : mKeys.removePid(slot, pid);
}

void Demux::detachDescrambler(uint32_t slot) {
    ::android::Mutex::Autolock guard(mLock);
    mKeys.detach(slot);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
