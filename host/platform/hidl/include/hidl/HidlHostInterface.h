// The members hidl-gen declares in every interface class and a device defines in the generated
// sources next to the binder proxies and stubs: identity, the IBase answers of a local object,
// checked casts, and registration with the host's service registry.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <android/hidl/manager/1.0/IServiceNotification.h>
#include <hidl/ServiceManagement.h>

#include <string>

namespace android {
namespace hardware {
namespace details {

// What a local object says of itself through getDebugInfo: this process, no binder pointer.
::android::hidl::base::V1_0::DebugInfo localDebugInfo();
// The hash chain of an interface that is not frozen in a current.txt: one zero hash per
// interface in the chain.
hidl_vec<hidl_array<uint8_t, 32>> unfrozenHashChain(size_t chainLength);

// The cast of a base reference to a derived interface, by the interfaces it implements.
template <typename IChild>
sp<IChild> castInterface(const sp<::android::hidl::base::V1_0::IBase>& parent) {
    if (parent == nullptr) return nullptr;
    return sp<IChild>(dynamic_cast<IChild*>(parent.get()));
}

}  // namespace details
}  // namespace hardware
}  // namespace android

// Defines the members of interface IName (declared by hidl-gen), which derives from IBase.
#define HIDL_HOST_INTERFACE_DEFINITIONS(IName, fqName)                                              \
    const char* IName::descriptor(fqName);                                                          \
    ::android::hardware::Return<void> IName::interfaceChain(interfaceChain_cb _hidl_cb) {           \
        _hidl_cb({IName::descriptor, ::android::hidl::base::V1_0::IBase::descriptor});              \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::debug(                                                 \
            const ::android::hardware::hidl_handle& /*fd*/,                                         \
            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& /*options*/) {   \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) { \
        _hidl_cb(IName::descriptor);                                                                \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::getHashChain(getHashChain_cb _hidl_cb) {               \
        _hidl_cb(::android::hardware::details::unfrozenHashChain(2));                               \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::setHALInstrumentation() {                              \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<bool> IName::linkToDeath(                                           \
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient,              \
            uint64_t /*cookie*/) {                                                                  \
        return recipient != nullptr;                                                                \
    }                                                                                               \
    ::android::hardware::Return<void> IName::ping() {                                               \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::getDebugInfo(getDebugInfo_cb _hidl_cb) {               \
        _hidl_cb(::android::hardware::details::localDebugInfo());                                   \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<void> IName::notifySyspropsChanged() {                              \
        return ::android::hardware::Void();                                                         \
    }                                                                                               \
    ::android::hardware::Return<bool> IName::unlinkToDeath(                                         \
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient) {            \
        return recipient != nullptr;                                                                \
    }                                                                                               \
    ::android::hardware::Return<::android::sp<IName>> IName::castFrom(                              \
            const ::android::sp<IName>& parent, bool /*emitError*/) {                               \
        return parent;                                                                              \
    }                                                                                               \
    ::android::hardware::Return<::android::sp<IName>> IName::castFrom(                              \
            const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool /*emitError*/) {  \
        return ::android::hardware::details::castInterface<IName>(parent);                          \
    }                                                                                               \
    ::android::sp<IName> IName::tryGetService(const std::string& serviceName, bool getStub) {       \
        return getService(serviceName, getStub);                                                    \
    }                                                                                               \
    ::android::sp<IName> IName::getService(const std::string& serviceName, bool getStub) {          \
        return ::android::hardware::details::castInterface<IName>(                                  \
                ::android::hardware::details::getRawServiceInternal(IName::descriptor,              \
                                                                    serviceName, getStub));         \
    }                                                                                               \
    ::android::status_t IName::registerAsService(const std::string& serviceName) {                  \
        return ::android::hardware::details::registerAsServiceInternal(this, IName::descriptor,     \
                                                                       serviceName);                \
    }                                                                                               \
    bool IName::registerForNotifications(                                                           \
            const std::string& /*serviceName*/,                                                     \
            const ::android::sp<                                                                    \
                    ::android::hidl::manager::V1_0::IServiceNotification>& /*notification*/) {      \
        return false;                                                                               \
    }
