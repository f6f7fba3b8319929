// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::ILnbCallback.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct ILnbCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~ILnbCallback() = default;

    virtual ::android::hardware::Return<void> onEvent(LnbEventType lnbEventType) = 0;
    virtual ::android::hardware::Return<void> onDiseqcMessage(
            const ::android::hardware::hidl_vec<uint8_t>& diseqcMessage) = 0;
    HIDL_HOST_SERVICE_MEMBERS(ILnbCallback)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
