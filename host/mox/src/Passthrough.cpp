// The passthrough service's hooks: the host has no passthrough service, so they only record the
// Tuner they are handed.
#include "MoxHostRecord.h"
#include "driver/MoxTuner.h"

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {
namespace implementation {

void MOX_TunerPassthCallback(Tuner* tuner) {
    mox::host::recordPassthroughCallback(tuner);
}

void MOX_TunerReleasePassth(Tuner* tuner) {
    mox::host::recordPassthroughRelease(tuner);
}

}  // namespace implementation
}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
