// Interface descriptors of the host android.hardware.tv.tuner@1.0 package.
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

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

const char* ITuner::descriptor = "android.hardware.tv.tuner@1.0::ITuner";
const char* IFrontend::descriptor = "android.hardware.tv.tuner@1.0::IFrontend";
const char* IFrontendCallback::descriptor = "android.hardware.tv.tuner@1.0::IFrontendCallback";
const char* ILnb::descriptor = "android.hardware.tv.tuner@1.0::ILnb";
const char* ILnbCallback::descriptor = "android.hardware.tv.tuner@1.0::ILnbCallback";
const char* IDemux::descriptor = "android.hardware.tv.tuner@1.0::IDemux";
const char* IDescrambler::descriptor = "android.hardware.tv.tuner@1.0::IDescrambler";
const char* IFilter::descriptor = "android.hardware.tv.tuner@1.0::IFilter";
const char* IFilterCallback::descriptor = "android.hardware.tv.tuner@1.0::IFilterCallback";
const char* IDvr::descriptor = "android.hardware.tv.tuner@1.0::IDvr";
const char* IDvrCallback::descriptor = "android.hardware.tv.tuner@1.0::IDvrCallback";
const char* ITimeFilter::descriptor = "android.hardware.tv.tuner@1.0::ITimeFilter";

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
