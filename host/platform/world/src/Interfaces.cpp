// The members hidl-gen declares in the interface of vendor.mox.simulator@1.0.
#include <hidl/HidlHostInterface.h>
#include <vendor/mox/simulator/1.0/IWorld.h>

#include "worldWire.h"

namespace vendor {
namespace mox {
namespace simulator {
namespace V1_0 {

HIDL_HOST_INTERFACE_DEFINITIONS(IWorld, "vendor.mox.simulator@1.0::IWorld")

namespace {
// The package's objects cross processes from the moment the program starts.
const bool kTransportRegistered = [] {
    ::wire::world::registerWorldTransport();
    return true;
}();
}  // namespace

}  // namespace V1_0
}  // namespace simulator
}  // namespace mox
}  // namespace vendor
