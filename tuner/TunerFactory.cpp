// The passthrough factory: an in-process client loads the implementation library and gets the
// service without a binder. Every call hands out the process's one Tuner: a second Tuner would
// discover the driver's tuners again, and the Tuner and its frontends never let each other go.
#include "tuner/Tuner.h"

using android::sp;
using android::hardware::tv::tuner::V1_0::ITuner;
using android::hardware::tv::tuner::V1_0::implementation::Tuner;

extern "C" ITuner* HIDL_FETCH_ITuner(const char* /*name*/) {
    static const sp<ITuner> tuner = new Tuner();
    return tuner.get();
}
