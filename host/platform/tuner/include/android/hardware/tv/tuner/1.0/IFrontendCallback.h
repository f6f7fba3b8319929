// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IFrontendCallback.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IFrontendCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IFrontendCallback() = default;

    virtual ::android::hardware::Return<void> onEvent(FrontendEventType frontendEventType) = 0;
    virtual ::android::hardware::Return<void> onScanMessage(FrontendScanMessageType type,
                                                            const FrontendScanMessage& message) = 0;
    HIDL_HOST_SERVICE_MEMBERS(IFrontendCallback)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
