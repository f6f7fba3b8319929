// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::ILnb.
#pragma once

#include <android/hardware/tv/tuner/1.0/ILnbCallback.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct ILnb : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~ILnb() = default;

    virtual ::android::hardware::Return<Result> setCallback(
            const ::android::sp<ILnbCallback>& callback) = 0;
    virtual ::android::hardware::Return<Result> setVoltage(LnbVoltage voltage) = 0;
    virtual ::android::hardware::Return<Result> setTone(LnbTone tone) = 0;
    virtual ::android::hardware::Return<Result> setSatellitePosition(LnbPosition position) = 0;
    virtual ::android::hardware::Return<Result> sendDiseqcMessage(
            const ::android::hardware::hidl_vec<uint8_t>& diseqcMessage) = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    HIDL_HOST_SERVICE_MEMBERS(ILnb)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
