// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IDvr.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IDvr : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IDvr() = default;

    // Reduced form: queue, configuration and filter attachment are not part of the host package.
    virtual ::android::hardware::Return<Result> start() = 0;
    virtual ::android::hardware::Return<Result> stop() = 0;
    virtual ::android::hardware::Return<Result> flush() = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    HIDL_HOST_SERVICE_MEMBERS(IDvr)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
