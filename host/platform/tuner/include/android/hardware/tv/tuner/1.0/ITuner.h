// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::ITuner.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <android/hardware/tv/tuner/1.0/IDescrambler.h>
#include <android/hardware/tv/tuner/1.0/IFrontend.h>
#include <android/hardware/tv/tuner/1.0/ILnb.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct ITuner : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~ITuner() = default;

    using getFrontendIds_cb =
            std::function<void(Result, const ::android::hardware::hidl_vec<uint32_t>&)>;
    virtual ::android::hardware::Return<void> getFrontendIds(getFrontendIds_cb _hidl_cb) = 0;

    using openFrontendById_cb = std::function<void(Result, const ::android::sp<IFrontend>&)>;
    virtual ::android::hardware::Return<void> openFrontendById(uint32_t frontendId,
                                                               openFrontendById_cb _hidl_cb) = 0;

    using openDemux_cb = std::function<void(Result, uint32_t, const ::android::sp<IDemux>&)>;
    virtual ::android::hardware::Return<void> openDemux(openDemux_cb _hidl_cb) = 0;

    using getDemuxCaps_cb = std::function<void(Result, const DemuxCapabilities&)>;
    virtual ::android::hardware::Return<void> getDemuxCaps(getDemuxCaps_cb _hidl_cb) = 0;

    using openDescrambler_cb = std::function<void(Result, const ::android::sp<IDescrambler>&)>;
    virtual ::android::hardware::Return<void> openDescrambler(openDescrambler_cb _hidl_cb) = 0;

    using getFrontendInfo_cb = std::function<void(Result, const FrontendInfo&)>;
    virtual ::android::hardware::Return<void> getFrontendInfo(uint32_t frontendId,
                                                              getFrontendInfo_cb _hidl_cb) = 0;

    using getLnbIds_cb = std::function<void(Result, const ::android::hardware::hidl_vec<uint32_t>&)>;
    virtual ::android::hardware::Return<void> getLnbIds(getLnbIds_cb _hidl_cb) = 0;

    using openLnbById_cb = std::function<void(Result, const ::android::sp<ILnb>&)>;
    virtual ::android::hardware::Return<void> openLnbById(uint32_t lnbId,
                                                          openLnbById_cb _hidl_cb) = 0;

    using openLnbByName_cb = std::function<void(Result, uint32_t, const ::android::sp<ILnb>&)>;
    virtual ::android::hardware::Return<void> openLnbByName(
            const ::android::hardware::hidl_string& lnbName, openLnbByName_cb _hidl_cb) = 0;
    HIDL_HOST_SERVICE_MEMBERS(ITuner)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
