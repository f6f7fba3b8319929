#pragma once

#include <android/hardware/tv/tuner/1.0/ILnb.h>

#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

// The satellite dish's low-noise block: each operation is one call into the tuner driver,
// addressed by the LNB id. The object keeps no state besides its id.
class Lnb : public ILnb {
  public:
    Lnb();
    explicit Lnb(int id);
    ~Lnb() override = default;

    Return<Result> setCallback(const sp<ILnbCallback>& callback) override;
    Return<Result> setVoltage(LnbVoltage voltage) override;
    Return<Result> setTone(LnbTone tone) override;
    Return<Result> setSatellitePosition(LnbPosition position) override;
    Return<Result> sendDiseqcMessage(const hidl_vec<uint8_t>& diseqcMessage) override;
    Return<Result> close() override;

    int getId() const { return mId; }

  private:
    int32_t mId;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
