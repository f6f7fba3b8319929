// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IFilterCallback.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IFilterCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IFilterCallback() = default;

    // Reduced form: filter events are not part of the host package.
    virtual ::android::hardware::Return<void> onFilterStatus(DemuxFilterStatus status) = 0;
    HIDL_HOST_SERVICE_MEMBERS(IFilterCallback)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
