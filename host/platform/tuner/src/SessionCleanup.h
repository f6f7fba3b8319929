// What a client of the tuner leaves behind is put right when its session ends (see
// hidl/transport/SessionCleanup.h): the table of the package's interfaces.
#pragma once

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

void registerTunerSessionCleanup();

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
