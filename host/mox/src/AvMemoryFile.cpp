#include "AvMemoryFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace android::hardware::tv::tuner::V1_0::implementation {

AvMemoryFile::AvMemoryFile(size_t size) {
    const int fd = memfd_create("AvMemory", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return;
    // Sealed against shrinking: a client mapping it can never be cut short under its reads.
    if (size == 0 || ftruncate(fd, off_t(size)) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        ::close(fd);
        return;
    }
    void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    mHandle = native_handle_create(1, 0);
    if (base == MAP_FAILED || mHandle == nullptr) {
        if (base != MAP_FAILED) munmap(base, size);
        if (mHandle != nullptr) native_handle_delete(mHandle);
        mHandle = nullptr;
        ::close(fd);
        return;
    }
    mHandle->data[0] = fd;
    mBase = static_cast<uint8_t*>(base);
    mSize = size;
}

AvMemoryFile::~AvMemoryFile() {
    if (mBase != nullptr) munmap(mBase, mSize);
    if (mHandle != nullptr) {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
