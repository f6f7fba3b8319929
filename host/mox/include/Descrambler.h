// Host stand-in for the maker's player library descrambler: a key slot on the demux it takes as
// its source. Its key token is the control word of the service it clears (8 bytes; on the host
// the simulated air's CAS word, nothing secret), and while it has one the packets of the PIDs it
// was given reach that demux's section, PES and media filters clear.
//
// It holds its demux (strongly: the demux stays a valid object while it is attached, even once
// closed, when every call finds it closed); the demux holds only the slot's key and PIDs, never
// the descrambler, so either may go first. Locks, in the order they are taken: mLock, then the
// Tuner's lock (looking up the demux) or the demux's mLock (its slot). Neither calls back.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDescrambler.h>
#include <utils/Mutex.h>

#include <cstddef>
#include <cstdint>

#include "DescramblingKeys.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

class Demux;
class Tuner;

class Descrambler : public IDescrambler {
  public:
    // The key token's length: one control word.
    static constexpr size_t kKeyTokenSize = sizeof(DescramblingKeys::ControlWord);
    // PIDs one descrambler clears, and descramblers one demux serves.
    static constexpr size_t kMaxPids = DescramblingKeys::kMaxPidsPerSlot;
    static constexpr size_t kMaxPerDemux = DescramblingKeys::kMaxSlots;

    explicit Descrambler(sp<Tuner> tuner);
    // One its client let go of without closing is closed now: its demux clears nothing for it.
    ~Descrambler() override;

    Return<Result> setDemuxSource(uint32_t demuxId) override;
    Return<Result> setKeyToken(const hidl_vec<uint8_t>& keyToken) override;
    Return<Result> addPid(const DemuxPid& pid, const sp<IFilter>& optionalSourceFilter) override;
    Return<Result> removePid(const DemuxPid& pid, const sp<IFilter>& optionalSourceFilter) override;
    Return<Result> close() override;

  private:
    // INVALID_STATE when closed or without a source.
    Result usableLocked() const REQUIRES(mLock);

    const sp<Tuner> mTuner;
    ::android::Mutex mLock;
    sp<Demux> mDemux GUARDED_BY(mLock);  // the source, once set
    uint32_t mSlot GUARDED_BY(mLock) = 0;
    bool mClosed GUARDED_BY(mLock) = false;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
