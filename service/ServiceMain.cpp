#include "service/ServiceMain.h"

#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <hidl/HidlTransportSupport.h>
#include <log/log.h>

#include "recorder/ServiceRecording.h"
#include "tuner/Tuner.h"

using android::sp;
using android::hardware::configureRpcThreadpool;
using android::hardware::joinRpcThreadpool;
using android::hardware::tv::tuner::V1_0::ITuner;
using android::hardware::tv::tuner::V1_0::implementation::Tuner;

int runTunerService() {
    // Eight binder threads, the main thread being one of them once it joins.
    configureRpcThreadpool(8, true);
    // Creating the Tuner does not touch the driver; the first client request initialises it.
    // With a trace file named when the process starts, clients reach the tuner through its
    // recording wrapper.
    sp<ITuner> tuner = mox::trace::recordedTuner(new Tuner());
    const android::status_t status = tuner->registerAsService("default");
    if (status != android::OK) {
        __android_log_assert("status != android::OK", "android.hardware.tv.tuner@1.0-mox-service",
                             "Error while registering tuner service: %d", status);
    }
    joinRpcThreadpool();
    tuner.clear();
    return 0;
}
