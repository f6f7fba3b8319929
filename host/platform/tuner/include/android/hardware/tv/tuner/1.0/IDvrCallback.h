// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0::IDvrCallback.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

struct IDvrCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;
    virtual ~IDvrCallback() = default;

    virtual ::android::hardware::Return<void> onRecordStatus(RecordStatus status) = 0;
    virtual ::android::hardware::Return<void> onPlaybackStatus(PlaybackStatus status) = 0;
    HIDL_HOST_SERVICE_MEMBERS(IDvrCallback)
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
