#include <fcntl.h>
#include <fmq/QueueMapping.h>
#include <log/log.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android {
namespace hardware {
namespace details {
namespace {

// The seals a peer's queue memory must carry: nobody can shrink it under this process's mappings
// (an access beyond the end of a shrunk file would kill the process with SIGBUS).
constexpr int kRequiredSeals = F_SEAL_SHRINK;

size_t pageSize() {
    static const size_t size = size_t(sysconf(_SC_PAGESIZE));
    return size;
}

size_t queueMemoryBytes(size_t ringBytes, bool eventFlagWord) {
    size_t bytes = 2 * sizeof(RingBufferPosition) + alignToWordBoundary(ringBytes);
    if (eventFlagWord) bytes += sizeof(std::atomic<uint32_t>);
    return (bytes + pageSize() - 1) & ~(pageSize() - 1);
}

// What each grantor must at least hold, by its position in the descriptor.
constexpr size_t kGrantorMinimum[] = {sizeof(RingBufferPosition), sizeof(RingBufferPosition), 1,
                                      sizeof(std::atomic<uint32_t>)};

struct Extent {
    int fd;
    uint64_t begin;
    uint64_t end;
};

// The sizes of the handle's descriptors, or false if one is no sealed memfd open for writing.
bool memorySizes(const native_handle_t* handle, uint64_t* sizes) {
    for (int i = 0; i < handle->numFds; ++i) {
        const int fd = handle->data[i];
        struct stat st {};
        if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0) {
            ALOGW("queue descriptor %d is no memory file", i);
            return false;
        }
        const int seals = fcntl(fd, F_GET_SEALS);
        if (seals < 0 || (seals & kRequiredSeals) != kRequiredSeals) {
            ALOGW("queue descriptor %d is not sealed against shrinking", i);
            return false;
        }
        const int mode = fcntl(fd, F_GETFL);
        if (mode < 0 || (mode & O_ACCMODE) != O_RDWR) {
            ALOGW("queue descriptor %d is not open for reading and writing", i);
            return false;
        }
        sizes[i] = uint64_t(st.st_size);
    }
    return true;
}

bool grantorsFit(const hidl_vec<GrantorDescriptor>& grantors, const native_handle_t* handle,
                 size_t quantum) {
    if (grantors.size() < size_t(kMinGrantorCount) ||
        grantors.size() > size_t(kMinGrantorCountForEvFlagSupport)) {
        ALOGW("a queue descriptor has %zu grantors", grantors.size());
        return false;
    }
    if (handle == nullptr || handle->numFds < 1 || handle->numFds > kMaxQueueFds) {
        ALOGW("a queue descriptor's handle holds no memory it could use");
        return false;
    }
    uint64_t sizes[kMaxQueueFds] = {};
    if (!memorySizes(handle, sizes)) return false;
    Extent extents[kMinGrantorCountForEvFlagSupport];
    for (size_t i = 0; i < grantors.size(); ++i) {
        const GrantorDescriptor& g = grantors[i];
        const bool isRing = i == size_t(DATAPTRPOS);
        const bool fits = g.fdIndex < uint32_t(handle->numFds) &&
                          isAlignedToWordBoundary(g.offset) && g.extent >= kGrantorMinimum[i] &&
                          g.extent <= sizes[g.fdIndex] && g.offset <= sizes[g.fdIndex] - g.extent;
        const bool ringSane =
                !isRing || (g.extent <= kMaxQueueBytes && quantum != 0 && g.extent % quantum == 0);
        if (!fits || !ringSane) {
            ALOGW("a queue descriptor's grantor %zu (fd %u, offset %u, extent %llu) does not fit",
                  i, g.fdIndex, g.offset, static_cast<unsigned long long>(g.extent));
            return false;
        }
        extents[i] = {int(g.fdIndex), g.offset, g.offset + g.extent};
    }
    for (size_t i = 0; i < grantors.size(); ++i) {
        for (size_t j = i + 1; j < grantors.size(); ++j) {
            const Extent& a = extents[i];
            const Extent& b = extents[j];
            if (a.fd == b.fd && a.begin < b.end && b.begin < a.end) {
                ALOGW("a queue descriptor's grantors %zu and %zu overlap", i, j);
                return false;
            }
        }
    }
    return true;
}

}  // namespace

native_handle_t* createQueueMemory(size_t ringBytes, bool eventFlagWord) {
    if (ringBytes == 0 || ringBytes > kMaxQueueBytes) return nullptr;
    const int fd = memfd_create("MessageQueue", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        ALOGE("no memory for a message queue: %s", strerror(errno));
        return nullptr;
    }
    if (ftruncate(fd, off_t(queueMemoryBytes(ringBytes, eventFlagWord))) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        ALOGE("no memory for a message queue: %s", strerror(errno));
        close(fd);
        return nullptr;
    }
    native_handle_t* handle = native_handle_create(1, 0);
    if (handle == nullptr) {
        close(fd);
        return nullptr;
    }
    handle->data[0] = fd;
    return handle;
}

void* mapRegion(int fd, uint64_t offset, size_t length) {
    const uint64_t pageOffset = offset & ~uint64_t(pageSize() - 1);
    const size_t within = size_t(offset - pageOffset);
    void* base = mmap(nullptr, within + length, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                      off_t(pageOffset));
    if (base == MAP_FAILED) return nullptr;
    return static_cast<uint8_t*>(base) + within;
}

void unmapRegion(void* address, size_t length) {
    if (address == nullptr) return;
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    const uintptr_t base = at & ~uintptr_t(pageSize() - 1);
    munmap(reinterpret_cast<void*>(base), at - base + length);
}

QueueMapping::~QueueMapping() {
    unmapAll();
}

void QueueMapping::unmapAll() {
    unmapRegion(mRead, sizeof(RingBufferPosition));
    unmapRegion(mWrite, sizeof(RingBufferPosition));
    unmapRegion(mRing, mRingBytes);
    unmapRegion(mEventFlagWord, sizeof(std::atomic<uint32_t>));
    mRead = nullptr;
    mWrite = nullptr;
    mRing = nullptr;
    mRingBytes = 0;
    mEventFlagWord = nullptr;
}

bool QueueMapping::map(const hidl_vec<GrantorDescriptor>& grantors, const native_handle_t* handle,
                       size_t quantum) {
    unmapAll();
    if (!grantorsFit(grantors, handle, quantum)) return false;
    auto mapGrantor = [&](int position, size_t length) {
        const GrantorDescriptor& g = grantors[size_t(position)];
        return mapRegion(handle->data[g.fdIndex], g.offset, length);
    };
    mRead = static_cast<std::atomic<uint64_t>*>(mapGrantor(READPTRPOS, sizeof(uint64_t)));
    mWrite = static_cast<std::atomic<uint64_t>*>(mapGrantor(WRITEPTRPOS, sizeof(uint64_t)));
    mRingBytes = size_t(grantors[DATAPTRPOS].extent);
    mRing = static_cast<uint8_t*>(mapGrantor(DATAPTRPOS, mRingBytes));
    if (grantors.size() > size_t(EVFLAGWORDPOS)) {
        mEventFlagWord = static_cast<std::atomic<uint32_t>*>(
                mapGrantor(EVFLAGWORDPOS, sizeof(std::atomic<uint32_t>)));
    }
    const bool eventFlagMapped = grantors.size() <= size_t(EVFLAGWORDPOS) || mEventFlagWord;
    if (mRead == nullptr || mWrite == nullptr || mRing == nullptr || !eventFlagMapped) {
        ALOGW("a queue's memory could not be mapped: %s", strerror(errno));
        unmapAll();
        return false;
    }
    return true;
}

RingSpan ringSpan(uint64_t position, size_t ringBytes, size_t quantum, size_t count) {
    const size_t offset = size_t(position % ringBytes);
    const size_t contiguous = (ringBytes - offset) / quantum;
    if (contiguous >= count) return {offset, count, 0};
    return {offset, contiguous, count - contiguous};
}

int64_t readableBytes(uint64_t readPosition, uint64_t writePosition, size_t ringBytes) {
    const uint64_t ahead = writePosition - readPosition;  // wraps at 2^64 as positions do
    return ahead <= ringBytes ? int64_t(ahead) : -1;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
