// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::ITimeFilter.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct ITimeFilter : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~ITimeFilter() = default;

    virtual ::android::hardware::Return<Result> setTimeStamp(uint64_t timeStamp) = 0;
    virtual ::android::hardware::Return<Result> clearTimeStamp() = 0;
    using getTimeStamp_cb = std::function<void(Result, uint64_t)>;
    virtual ::android::hardware::Return<void> getTimeStamp(getTimeStamp_cb _hidl_cb) = 0;
    using getSourceTime_cb = std::function<void(Result, uint64_t)>;
    virtual ::android::hardware::Return<void> getSourceTime(getSourceTime_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    HIDL_HOST_SERVICE_MEMBERS(ITimeFilter)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
