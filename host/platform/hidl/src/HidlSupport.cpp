#include <fcntl.h>
#include <hidl/HidlSupport.h>
#include <hidl/MQDescriptor.h>
#include <log/log.h>
#include <unistd.h>

namespace android {
namespace hardware {

namespace details {
void logAlwaysFatal(const char* message) {
    __android_log_assert(nullptr, "HidlSupport", "%s", message);
}

native_handle_t* cloneNativeHandle(const native_handle_t* handle) {
    if (handle == nullptr) return nullptr;
    native_handle_t* clone = native_handle_create(handle->numFds, handle->numInts);
    if (clone == nullptr) return nullptr;
    for (int i = 0; i < handle->numFds; ++i) {
        clone->data[i] = fcntl(handle->data[i], F_DUPFD_CLOEXEC, 0);
        if (clone->data[i] < 0) {
            clone->numFds = i;  // closes the duplicates made so far, and no more
            native_handle_close(clone);
            native_handle_delete(clone);
            return nullptr;
        }
    }
    memcpy(&clone->data[handle->numFds], &handle->data[handle->numFds],
           sizeof(int) * size_t(handle->numInts));
    return clone;
}
}  // namespace details

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) return *this;
    freeHandle();
    if (other.mHandle != nullptr) {
        mHandle = native_handle_clone(other.mHandle);
        if (mHandle == nullptr)
            details::logAlwaysFatal("Failed to clone native_handle in hidl_handle.");
        mOwnsHandle = true;
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this == &other) return *this;
    freeHandle();
    mHandle = other.mHandle;
    mOwnsHandle = other.mOwnsHandle;
    other.mHandle = nullptr;
    other.mOwnsHandle = false;
    return *this;
}

void hidl_handle::freeHandle() {
    if (mOwnsHandle && mHandle != nullptr) {
        native_handle_t* handle =
                const_cast<native_handle_t*>(static_cast<const native_handle_t*>(mHandle));
        native_handle_close(handle);
        native_handle_delete(handle);
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

const char* const hidl_string::kEmptyString = "";

void hidl_string::copyFrom(const char* data, size_t size) {
    if (size > UINT32_MAX) details::logAlwaysFatal("string size can't exceed 2^32 bytes.");
    char* buffer = new char[size + 1];
    memcpy(buffer, data, size);
    buffer[size] = '\0';
    clear();
    mBuffer = buffer;
    mSize = static_cast<uint32_t>(size);
    mOwnsBuffer = true;
}

void hidl_string::moveFrom(hidl_string&& other) {
    clear();
    mBuffer = other.mBuffer;
    mSize = other.mSize;
    mOwnsBuffer = other.mOwnsBuffer;
    other.mOwnsBuffer = false;
    other.clear();
}

void hidl_string::setToExternal(const char* data, size_t size) {
    if (size > UINT32_MAX) details::logAlwaysFatal("string size can't exceed 2^32 bytes.");
    clear();
    mBuffer = data;
    mSize = static_cast<uint32_t>(size);
}

int hidl_string::compare(const char* s, size_t length) const {
    int order = memcmp(c_str(), s, std::min(size(), length));
    if (order != 0) return order;
    return size() < length ? -1 : (size() > length ? 1 : 0);
}

std::string toString(const void* pointer) {
    return details::toHexString(reinterpret_cast<uintptr_t>(pointer));
}

std::string toString(const hidl_handle& handle) {
    return toString(static_cast<const void*>(handle.getNativeHandle()));
}

std::string toString(const hidl_memory& memory) {
    return "memory {.name = " + std::string(memory.name()) +
           ", .size = " + std::to_string(memory.size()) +
           ", .handle = " + toString(memory.handle()) + "}";
}

}  // namespace hardware
}  // namespace android
