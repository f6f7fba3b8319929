// The passthrough service's hooks: the host has no passthrough service, so they only record the
// Tuner they are handed.
#include "MoxHostRecord.h"
#include "driver/MoxTuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

void MOX_TunerPassthCallback(Tuner* tuner) {
    mox::host::recordPassthroughCallback(tuner);
}

void MOX_TunerReleasePassth(Tuner* tuner) {
    mox::host::recordPassthroughRelease(tuner);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
