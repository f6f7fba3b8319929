// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IFilter.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IFilter : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IFilter() = default;

    // Reduced form: queue, configuration and AV-handle methods are not part of the host package.
    using getId_cb = std::function<void(Result, uint32_t)>;
    virtual ::android::hardware::Return<void> getId(getId_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<Result> start() = 0;
    virtual ::android::hardware::Return<Result> stop() = 0;
    virtual ::android::hardware::Return<Result> flush() = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    HIDL_HOST_SERVICE_MEMBERS(IFilter)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
