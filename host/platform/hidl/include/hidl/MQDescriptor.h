// Host stand-in for libhidlbase's MQDescriptor.h: the descriptor of a fast message queue, as the
// filter and DVR interfaces hand it out and <fmq/MessageQueue.h> makes and maps it. Its grantors
// say where the read position, the write position, the data ring and the event-flag word lie in
// the memory of the handle's descriptors. A descriptor owns its handle: it closes the descriptors
// when it goes, and a copy holds duplicates of them.
#pragma once

#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace android {
namespace hardware {

typedef uint64_t RingBufferPosition;

struct GrantorDescriptor {
    uint32_t flags __attribute__((aligned(4)));
    uint32_t fdIndex __attribute__((aligned(4)));
    uint32_t offset __attribute__((aligned(4)));
    uint64_t extent __attribute__((aligned(8)));
};
static_assert(offsetof(GrantorDescriptor, flags) == 0, "wrong offset");
static_assert(offsetof(GrantorDescriptor, fdIndex) == 4, "wrong offset");
static_assert(offsetof(GrantorDescriptor, offset) == 8, "wrong offset");
static_assert(offsetof(GrantorDescriptor, extent) == 16, "wrong offset");
static_assert(sizeof(GrantorDescriptor) == 24, "wrong size");

enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 0x01,  // one reader, one writer; overflow and underflow fail
    kUnsynchronizedWrite = 0x02,    // writes always succeed; readers detect overwrites
};

namespace details {
// The grantors in the order every queue lays them out.
enum GrantorType : int { READPTRPOS = 0, WRITEPTRPOS, DATAPTRPOS, EVFLAGWORDPOS };
// Positions and ring are required; the event-flag word only for blocking reads and writes.
constexpr int32_t kMinGrantorCount = DATAPTRPOS + 1;
constexpr int32_t kMinGrantorCountForEvFlagSupport = EVFLAGWORDPOS + 1;
constexpr size_t kGrantorAlignment = 8;
inline size_t alignToWordBoundary(size_t length) {
    return (length + kGrantorAlignment - 1) & ~(kGrantorAlignment - 1);
}
inline bool isAlignedToWordBoundary(size_t offset) {
    return (offset & (kGrantorAlignment - 1)) == 0;
}
// A handle of the same descriptors (duplicated, close-on-exec) and ints; null if `handle` is null
// or a duplicate could not be made.
native_handle_t* cloneNativeHandle(const native_handle_t* handle);
}  // namespace details

template <typename T, MQFlavor flavor>
struct MQDescriptor {
    // Takes ownership of the handle.
    MQDescriptor(const std::vector<GrantorDescriptor>& grantors, native_handle_t* nHandle,
                 size_t size)
        : mHandle(nHandle), mQuantum(static_cast<uint32_t>(size)), mFlags(flavor) {
        mGrantors.resize(grantors.size());
        for (size_t i = 0; i < grantors.size(); ++i) mGrantors[i] = grantors[i];
    }
    // The layout a new queue has: both positions, the ring, and the event-flag word if asked for,
    // one after the other in the memory of the handle's first descriptor. Takes ownership of it.
    MQDescriptor(size_t bufferSize, native_handle_t* nHandle, size_t messageSize,
                 bool configureEventFlag = false)
        : mHandle(nHandle), mQuantum(static_cast<uint32_t>(messageSize)), mFlags(flavor) {
        const size_t sizes[] = {sizeof(RingBufferPosition), sizeof(RingBufferPosition), bufferSize,
                                sizeof(std::atomic<uint32_t>)};
        mGrantors.resize(configureEventFlag ? details::kMinGrantorCountForEvFlagSupport
                                            : details::kMinGrantorCount);
        size_t offset = 0;
        for (size_t i = 0; i < mGrantors.size(); ++i) {
            offset = details::alignToWordBoundary(offset);
            mGrantors[i] = {0, 0, static_cast<uint32_t>(offset), sizes[i]};
            offset += sizes[i];
        }
    }
    MQDescriptor() : mHandle(nullptr), mQuantum(0), mFlags(flavor) {}
    ~MQDescriptor() { closeHandle(); }

    explicit MQDescriptor(const MQDescriptor& other) : MQDescriptor() { *this = other; }
    MQDescriptor& operator=(const MQDescriptor& other) {
        if (this == &other) return *this;
        closeHandle();
        mGrantors = other.mGrantors;
        mHandle = details::cloneNativeHandle(other.mHandle);
        mQuantum = other.mQuantum;
        mFlags = other.mFlags;
        return *this;
    }

    // The ring's size in bytes.
    size_t getSize() const {
        return mGrantors.size() > details::DATAPTRPOS ? mGrantors[details::DATAPTRPOS].extent : 0;
    }
    size_t getQuantum() const { return mQuantum; }
    int32_t getFlags() const { return static_cast<int32_t>(mFlags); }

    bool isHandleValid() const { return mHandle != nullptr; }
    size_t countGrantors() const { return mGrantors.size(); }
    std::vector<GrantorDescriptor> getGrantors() const {
        return std::vector<GrantorDescriptor>(mGrantors.begin(), mGrantors.end());
    }
    const hidl_vec<GrantorDescriptor>& grantors() const { return mGrantors; }
    hidl_vec<GrantorDescriptor>& grantors() { return mGrantors; }
    const native_handle_t* handle() const { return mHandle; }
    native_handle_t* handle() { return mHandle; }

    enum GrantorType : int { READPTRPOS = 0, WRITEPTRPOS, DATAPTRPOS, EVFLAGWORDPOS };
    static constexpr int32_t kMinGrantorCount = details::kMinGrantorCount;
    static constexpr int32_t kMinGrantorCountForEvFlagSupport =
            details::kMinGrantorCountForEvFlagSupport;
    static size_t alignToWordBoundary(size_t length) {
        return details::alignToWordBoundary(length);
    }
    static size_t isAlignedToWordBoundary(size_t offset) {
        return details::isAlignedToWordBoundary(offset);
    }

  private:
    void closeHandle() {
        native_handle_t* handle = mHandle;
        if (handle != nullptr) {
            native_handle_close(handle);
            native_handle_delete(handle);
        }
        mHandle = nullptr;
    }

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
    std::string os = flavor == kSynchronizedReadWrite ? "fmq_sync" : "fmq_unsync";
    return os + " {" + std::to_string(q.countGrantors()) +
           " grantor(s), size = " + std::to_string(q.getSize()) +
           ", .handle = " + toString(static_cast<const void*>(q.handle())) +
           ", .quantum = " + std::to_string(q.getQuantum()) + "}";
}

}  // namespace hardware
}  // namespace android
