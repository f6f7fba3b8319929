// The host's definitions of the interfaces libhidlbase itself carries: IBase, the root of every
// interface, and IServiceNotification.
#include <hidl/HidlHostInterface.h>
#include <unistd.h>

namespace android {
namespace hardware {
namespace details {

::android::hidl::base::V1_0::DebugInfo localDebugInfo() {
    ::android::hidl::base::V1_0::DebugInfo info{};
    info.pid = getpid();
    info.ptr = 0;
    info.arch = sizeof(void*) == 8 ? ::android::hidl::base::V1_0::DebugInfo::Architecture::IS_64BIT
                                   : ::android::hidl::base::V1_0::DebugInfo::Architecture::IS_32BIT;
    return info;
}

hidl_vec<hidl_array<uint8_t, 32>> unfrozenHashChain(size_t chainLength) {
    hidl_vec<hidl_array<uint8_t, 32>> chain(chainLength);
    for (auto& hash : chain) hash = std::array<uint8_t, 32>{};
    return chain;
}

}  // namespace details
}  // namespace hardware

namespace hidl {
namespace base {
namespace V1_0 {

using ::android::hardware::Return;
using ::android::hardware::Void;

const char* IBase::descriptor("android.hidl.base@1.0::IBase");

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IBase::descriptor});
    return Void();
}
Return<void> IBase::debug(const ::android::hardware::hidl_handle& /*fd*/,
                          const ::android::hardware::hidl_vec<::android::hardware::hidl_string>&
                          /*options*/) {
    return Void();
}
Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IBase::descriptor);
    return Void();
}
Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    _hidl_cb(::android::hardware::details::unfrozenHashChain(1));
    return Void();
}
Return<void> IBase::setHALInstrumentation() {
    return Void();
}
Return<bool> IBase::linkToDeath(const sp<::android::hardware::hidl_death_recipient>& recipient,
                                uint64_t /*cookie*/) {
    return recipient != nullptr;
}
Return<void> IBase::ping() {
    return Void();
}
Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    _hidl_cb(::android::hardware::details::localDebugInfo());
    return Void();
}
Return<void> IBase::notifySyspropsChanged() {
    return Void();
}
Return<bool> IBase::unlinkToDeath(const sp<::android::hardware::hidl_death_recipient>& recipient) {
    return recipient != nullptr;
}
Return<sp<IBase>> IBase::castFrom(const sp<IBase>& parent, bool /*emitError*/) {
    return parent;
}

}  // namespace V1_0
}  // namespace base

namespace manager {
namespace V1_0 {
HIDL_HOST_INTERFACE_DEFINITIONS(IServiceNotification,
                                "android.hidl.manager@1.0::IServiceNotification")
}  // namespace V1_0
}  // namespace manager
}  // namespace hidl
}  // namespace android
