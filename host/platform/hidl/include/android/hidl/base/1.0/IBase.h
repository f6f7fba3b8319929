// Host stand-in for the generated android.hidl.base@1.0::IBase: the reference-counted root of every
// HIDL interface, and the in-process service registry behind registerAsService()/getService().
#pragma once

#include <hidl/HidlSupport.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <functional>
#include <string>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    static const char* descriptor;

    virtual ~IBase() = default;

    using interfaceDescriptor_cb = std::function<void(const ::android::hardware::hidl_string&)>;
    virtual ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
        _hidl_cb(descriptor);
        return ::android::hardware::Void();
    }
    virtual ::android::hardware::Return<void> ping() { return ::android::hardware::Void(); }
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {
namespace details {

// The host's in-process service manager. Registering a second service under a name that is already
// taken for the same interface is refused with ALREADY_EXISTS.
status_t registerService(const std::string& descriptor, const std::string& name,
                         const sp<::android::hidl::base::V1_0::IBase>& service);
sp<::android::hidl::base::V1_0::IBase> getService(const std::string& descriptor,
                                                  const std::string& name);
// Host only: forgets every registration (tests start from an empty service manager).
void clearServices();

}  // namespace details
}  // namespace hardware
}  // namespace android

// The registration members hidl-gen puts into every interface class.
#define HIDL_HOST_SERVICE_MEMBERS(IName)                                                     \
    ::android::status_t registerAsService(const std::string& serviceName = "default") {      \
        return ::android::hardware::details::registerService(descriptor, serviceName, this); \
    }                                                                                        \
    static ::android::sp<IName> getService(const std::string& serviceName = "default",       \
                                           bool /*getStub*/ = false) {                       \
        ::android::sp<::android::hidl::base::V1_0::IBase> base =                             \
                ::android::hardware::details::getService(descriptor, serviceName);           \
        return ::android::sp<IName>(dynamic_cast<IName*>(base.get()));                       \
    }
