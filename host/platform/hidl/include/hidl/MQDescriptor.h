// Host stand-in for libhidlbase's MQDescriptor.h: the descriptor of a fast message queue, as the
// filter and DVR interfaces hand it out. The host never creates a queue; the type keeps its layout.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstdint>

namespace android {
namespace hardware {

typedef uint64_t RingBufferPosition;

struct GrantorDescriptor {
    uint32_t flags __attribute__((aligned(4)));
    uint32_t fdIndex __attribute__((aligned(4)));
    uint32_t offset __attribute__((aligned(4)));
    uint64_t extent __attribute__((aligned(8)));
};

enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 0x01,
    kUnsynchronizedWrite = 0x02,
};

template <typename T, MQFlavor flavor>
struct MQDescriptor {
    MQDescriptor() : mHandle(nullptr), mQuantum(0), mFlags(flavor) {}

    size_t getSize() const { return mGrantors.size() == 0 ? 0 : mGrantors[0].extent; }
    size_t getQuantum() const { return mQuantum; }
    int32_t getFlags() const { return static_cast<int32_t>(mFlags); }
    const hidl_vec<GrantorDescriptor>& grantors() const { return mGrantors; }
    const native_handle_t* handle() const { return mHandle; }

  private:
    hidl_vec<GrantorDescriptor> mGrantors;
    details::hidl_pointer<native_handle_t> mHandle;
    uint32_t mQuantum;
    uint32_t mFlags;
};

template <typename T>
using MQDescriptorSync = MQDescriptor<T, kSynchronizedReadWrite>;
template <typename T>
using MQDescriptorUnsync = MQDescriptor<T, kUnsynchronizedWrite>;

template <typename T, MQFlavor flavor>
std::string toString(const MQDescriptor<T, flavor>& q) {
    return "MQDescriptor(size = " + std::to_string(q.getSize()) +
           ", quantum = " + std::to_string(q.getQuantum()) + ")";
}

}  // namespace hardware
}  // namespace android
