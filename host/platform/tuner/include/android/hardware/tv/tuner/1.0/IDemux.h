// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IDemux.
#pragma once

#include <android/hardware/tv/tuner/1.0/IDvr.h>
#include <android/hardware/tv/tuner/1.0/IDvrCallback.h>
#include <android/hardware/tv/tuner/1.0/IFilter.h>
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <android/hardware/tv/tuner/1.0/ITimeFilter.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IDemux : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IDemux() = default;

    virtual ::android::hardware::Return<Result> setFrontendDataSource(uint32_t frontendId) = 0;

    using openFilter_cb = std::function<void(Result, const ::android::sp<IFilter>&)>;
    virtual ::android::hardware::Return<void> openFilter(const DemuxFilterType& type,
                                                         uint32_t bufferSize,
                                                         const ::android::sp<IFilterCallback>& cb,
                                                         openFilter_cb _hidl_cb) = 0;

    using openTimeFilter_cb = std::function<void(Result, const ::android::sp<ITimeFilter>&)>;
    virtual ::android::hardware::Return<void> openTimeFilter(openTimeFilter_cb _hidl_cb) = 0;

    using getAvSyncHwId_cb = std::function<void(Result, uint32_t)>;
    virtual ::android::hardware::Return<void> getAvSyncHwId(const ::android::sp<IFilter>& filter,
                                                            getAvSyncHwId_cb _hidl_cb) = 0;

    using getAvSyncTime_cb = std::function<void(Result, uint64_t)>;
    virtual ::android::hardware::Return<void> getAvSyncTime(uint32_t avSyncHwId,
                                                            getAvSyncTime_cb _hidl_cb) = 0;

    virtual ::android::hardware::Return<Result> close() = 0;

    using openDvr_cb = std::function<void(Result, const ::android::sp<IDvr>&)>;
    virtual ::android::hardware::Return<void> openDvr(DvrType type, uint32_t bufferSize,
                                                      const ::android::sp<IDvrCallback>& cb,
                                                      openDvr_cb _hidl_cb) = 0;

    virtual ::android::hardware::Return<Result> connectCiCam(uint32_t ciCamId) = 0;
    virtual ::android::hardware::Return<Result> disconnectCiCam() = 0;
    HIDL_HOST_SERVICE_MEMBERS(IDemux)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
