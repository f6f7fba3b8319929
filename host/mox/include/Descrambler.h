// Host stand-in for the maker's player library descrambler: it accepts every request.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDescrambler.h>

namespace android::hardware::tv::tuner::V1_0::implementation {

class Tuner;

class Descrambler : public IDescrambler {
  public:
    explicit Descrambler(sp<Tuner> tuner);
    ~Descrambler() override;

    Return<Result> setDemuxSource(uint32_t demuxId) override;
    Return<Result> setKeyToken(const hidl_vec<uint8_t>& keyToken) override;
    Return<Result> addPid(const DemuxPid& pid, const sp<IFilter>& optionalSourceFilter) override;
    Return<Result> removePid(const DemuxPid& pid, const sp<IFilter>& optionalSourceFilter) override;
    Return<Result> close() override;

  private:
    sp<Tuner> mTuner;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
