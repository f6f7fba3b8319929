// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IFrontend.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>
#include <android/hardware/tv/tuner/1.0/ILnb.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IFrontend : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IFrontend() = default;

    virtual ::android::hardware::Return<Result> setCallback(
            const ::android::sp<IFrontendCallback>& callback) = 0;
    virtual ::android::hardware::Return<Result> tune(const FrontendSettings& settings) = 0;
    virtual ::android::hardware::Return<Result> stopTune() = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    virtual ::android::hardware::Return<Result> scan(const FrontendSettings& settings,
                                                     FrontendScanType type) = 0;
    virtual ::android::hardware::Return<Result> stopScan() = 0;

    using getStatus_cb =
            std::function<void(Result, const ::android::hardware::hidl_vec<FrontendStatus>&)>;
    virtual ::android::hardware::Return<void> getStatus(
            const ::android::hardware::hidl_vec<FrontendStatusType>& statusTypes,
            getStatus_cb _hidl_cb) = 0;

    virtual ::android::hardware::Return<Result> setLnb(uint32_t lnbId) = 0;
    virtual ::android::hardware::Return<Result> setLna(bool bEnable) = 0;
    HIDL_HOST_SERVICE_MEMBERS(IFrontend)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
