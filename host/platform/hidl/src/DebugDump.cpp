#include <hidl/DebugDump.h>
#include <unistd.h>

namespace android {
namespace hardware {

bool debugDump(const sp<::android::hidl::base::V1_0::IBase>& object,
               const hidl_vec<hidl_string>& options, std::string& text) {
    text.clear();
    int fds[2];
    if (object == nullptr || pipe(fds) != 0) return false;
    native_handle_t* handle = native_handle_create(1, 0);
    handle->data[0] = fds[1];
    const bool answered = object->debug(hidl_handle(handle), options).isOk();
    native_handle_delete(handle);
    close(fds[1]);
    char buffer[4096];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof(buffer))) > 0) text.append(buffer, size_t(n));
    close(fds[0]);
    return answered;
}

std::string debugDump(const sp<::android::hidl::base::V1_0::IBase>& object,
                      const hidl_vec<hidl_string>& options) {
    std::string text;
    debugDump(object, options, text);
    return text;
}

}  // namespace hardware
}  // namespace android
