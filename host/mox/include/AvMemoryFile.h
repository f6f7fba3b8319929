// The memory a media filter's frames go to: a sealed memfd mapped here, whose descriptor each
// media event hands the client to map in turn (read-only use on its side).
#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

namespace android::hardware::tv::tuner::V1_0::implementation {

class AvMemoryFile {
  public:
    // size bytes, or an invalid file when it cannot be made.
    explicit AvMemoryFile(size_t size);
    ~AvMemoryFile();
    AvMemoryFile(const AvMemoryFile&) = delete;
    AvMemoryFile& operator=(const AvMemoryFile&) = delete;

    bool isValid() const { return mBase != nullptr; }
    uint8_t* base() const { return mBase; }
    size_t size() const { return mSize; }
    // The handle events carry (owned here: the transport sends a duplicate of its descriptor).
    const native_handle_t* handle() const { return mHandle; }

  private:
    uint8_t* mBase = nullptr;
    size_t mSize = 0;
    native_handle_t* mHandle = nullptr;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
