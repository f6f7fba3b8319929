// Host stand-in for libhidlbase's ServiceManagement.h: the registry behind every interface's
// registerAsService() and getService(), the host's counterpart of the hardware service manager.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <string>

namespace android {
namespace hardware {
namespace details {

// Registering an instance name that is taken for the same interface is refused with
// ALREADY_EXISTS.
status_t registerAsServiceInternal(const sp<::android::hidl::base::V1_0::IBase>& service,
                                   const std::string& descriptor, const std::string& name);
// A service of this process comes wrapped for passthrough unless getStub asks for the object
// itself; a service of another process comes as a proxy.
sp<::android::hidl::base::V1_0::IBase> getRawServiceInternal(const std::string& descriptor,
                                                             const std::string& name,
                                                             bool getStub = false);
// Host only: forgets every registration (tests start from an empty registry).
void clearServices();

}  // namespace details
}  // namespace hardware
}  // namespace android
