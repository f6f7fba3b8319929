// The members hidl-gen declares in each interface of android.hardware.tv.tuner@1.0.
#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <android/hardware/tv/tuner/1.0/IDescrambler.h>
#include <android/hardware/tv/tuner/1.0/IDvr.h>
#include <android/hardware/tv/tuner/1.0/IDvrCallback.h>
#include <android/hardware/tv/tuner/1.0/IFilter.h>
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <android/hardware/tv/tuner/1.0/IFrontend.h>
#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>
#include <android/hardware/tv/tuner/1.0/ILnb.h>
#include <android/hardware/tv/tuner/1.0/ILnbCallback.h>
#include <android/hardware/tv/tuner/1.0/ITimeFilter.h>
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <hidl/HidlHostInterface.h>

#include "SessionCleanup.h"
#include "tunerWire.h"

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

HIDL_HOST_INTERFACE_DEFINITIONS(ITuner, "android.hardware.tv.tuner@1.0::ITuner")
HIDL_HOST_INTERFACE_DEFINITIONS(IFrontend, "android.hardware.tv.tuner@1.0::IFrontend")
HIDL_HOST_INTERFACE_DEFINITIONS(IFrontendCallback,
                                "android.hardware.tv.tuner@1.0::IFrontendCallback")
HIDL_HOST_INTERFACE_DEFINITIONS(ILnb, "android.hardware.tv.tuner@1.0::ILnb")
HIDL_HOST_INTERFACE_DEFINITIONS(ILnbCallback, "android.hardware.tv.tuner@1.0::ILnbCallback")
HIDL_HOST_INTERFACE_DEFINITIONS(IDemux, "android.hardware.tv.tuner@1.0::IDemux")
HIDL_HOST_INTERFACE_DEFINITIONS(IDescrambler, "android.hardware.tv.tuner@1.0::IDescrambler")
HIDL_HOST_INTERFACE_DEFINITIONS(IFilter, "android.hardware.tv.tuner@1.0::IFilter")
HIDL_HOST_INTERFACE_DEFINITIONS(IFilterCallback, "android.hardware.tv.tuner@1.0::IFilterCallback")
HIDL_HOST_INTERFACE_DEFINITIONS(IDvr, "android.hardware.tv.tuner@1.0::IDvr")
HIDL_HOST_INTERFACE_DEFINITIONS(IDvrCallback, "android.hardware.tv.tuner@1.0::IDvrCallback")
HIDL_HOST_INTERFACE_DEFINITIONS(ITimeFilter, "android.hardware.tv.tuner@1.0::ITimeFilter")

namespace {
// The package's objects cross processes from the moment the program starts, and what a client
// leaves behind is put right when its session ends.
const bool kTransportRegistered = [] {
    ::wire::tuner::registerTunerTransport();
    registerTunerSessionCleanup();
    return true;
}();
}  // namespace

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
