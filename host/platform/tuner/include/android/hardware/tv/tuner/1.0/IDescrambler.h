// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IDescrambler.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFilter.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IDescrambler : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IDescrambler() = default;

    virtual ::android::hardware::Return<Result> setDemuxSource(uint32_t demuxId) = 0;
    virtual ::android::hardware::Return<Result> setKeyToken(
            const ::android::hardware::hidl_vec<uint8_t>& keyToken) = 0;
    virtual ::android::hardware::Return<Result> addPid(
            const DemuxPid& pid, const ::android::sp<IFilter>& optionalSourceFilter) = 0;
    virtual ::android::hardware::Return<Result> removePid(
            const DemuxPid& pid, const ::android::sp<IFilter>& optionalSourceFilter) = 0;
    virtual ::android::hardware::Return<Result> close() = 0;
    HIDL_HOST_SERVICE_MEMBERS(IDescrambler)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
