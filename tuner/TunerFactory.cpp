// The passthrough factory: an in-process client loads the implementation library and gets the
// service without a binder.
#include "tuner/Tuner.h"

using android::hardware::tv::tuner::V1_0::ITuner;
using android::hardware::tv::tuner::V1_0::implementation::Tuner;

extern "C" ITuner* HIDL_FETCH_ITuner(const char* /*name*/) {
    return new Tuner();
}
