#include <fcntl.h>
#include <hidl/transport/HandleCarriage.h>
#include <hidl/transport/Transport.h>
#include <log/log.h>
#include <unistd.h>

#include <cstring>

namespace android {
namespace hardware {
namespace details {

bool FdBudget::take(size_t count) {
    size_t held = mHeld.load();
    do {
        if (count > limits::kMaxFdsPerSession - held) return false;
    } while (!mHeld.compare_exchange_weak(held, held + count));
    return true;
}

void FdBudget::giveBack(size_t count) {
    mHeld.fetch_sub(count);
}

IncomingFds::IncomingFds(std::vector<int> fds, std::shared_ptr<FdBudget> budget)
    : mFds(std::move(fds)), mBudget(std::move(budget)), mCounted(mFds.size()) {}

IncomingFds::~IncomingFds() {
    closeAll();
}

IncomingFds::IncomingFds(IncomingFds&& other) noexcept {
    *this = std::move(other);
}

IncomingFds& IncomingFds::operator=(IncomingFds&& other) noexcept {
    if (this == &other) return *this;
    closeAll();
    mFds = std::move(other.mFds);
    mBudget = std::move(other.mBudget);
    mCounted = other.mCounted;
    mMalformed = other.mMalformed;
    other.mFds.clear();
    other.mCounted = 0;
    return *this;
}

void IncomingFds::closeAll() {
    for (int fd : mFds) {
        if (fd >= 0) close(fd);
    }
    mFds.clear();
    if (mBudget != nullptr && mCounted > 0) mBudget->giveBack(mCounted);
    mCounted = 0;
}

bool IncomingFds::allTaken() const {
    for (int fd : mFds) {
        if (fd >= 0) return false;
    }
    return true;
}

native_handle_t* IncomingFds::takeHandle(uint32_t first, uint32_t count, size_t ints) {
    if (first > mFds.size() || count > mFds.size() - first || ints > limits::kMaxHandleInts) {
        mMalformed = true;
        return nullptr;
    }
    for (uint32_t i = first; i < first + count; ++i) {
        if (mFds[i] < 0) {
            mMalformed = true;  // a descriptor claimed twice
            return nullptr;
        }
    }
    native_handle_t* handle = native_handle_create(int(count), int(ints));
    if (handle == nullptr) return nullptr;  // left to close with the frame
    for (uint32_t i = 0; i < count; ++i) {
        handle->data[i] = mFds[first + i];
        mFds[first + i] = -1;
    }
    return handle;
}

OutgoingFds::~OutgoingFds() {
    for (int fd : mFds) close(fd);
}

bool OutgoingFds::add(const native_handle_t* handle, uint32_t* first) {
    *first = uint32_t(mFds.size());
    if (handle->numFds < 0 || size_t(handle->numFds) > limits::kMaxFdsPerMessage - mFds.size()) {
        ALOGW("a message may carry %zu descriptors, not %zu", limits::kMaxFdsPerMessage,
              mFds.size() + size_t(std::max(handle->numFds, 0)));
        mFailed = true;
        return false;
    }
    for (int i = 0; i < handle->numFds; ++i) {
        const int fd = fcntl(handle->data[i], F_DUPFD_CLOEXEC, 0);
        if (fd < 0) {
            ALOGW("a handle's descriptor %d cannot be sent: %s", handle->data[i], strerror(errno));
            mFailed = true;
            return false;
        }
        mFds.push_back(fd);
    }
    return true;
}

void writeHandle(const native_handle_t* handle, ::wire::base::NativeHandle::Builder out,
                 OutgoingFds* fds) {
    if (handle == nullptr) return;
    uint32_t first = 0;
    if (fds == nullptr || handle->numInts < 0 || size_t(handle->numInts) > limits::kMaxHandleInts ||
        !fds->add(handle, &first)) {
        return;  // the message is not sent (a conversion outside a call has no descriptors)
    }
    out.setFirstFd(first);
    out.setFdCount(uint32_t(handle->numFds));
    auto ints = out.initInts(unsigned(handle->numInts));
    for (int i = 0; i < handle->numInts; ++i)
        ints.set(unsigned(i), handle->data[handle->numFds + i]);
}

namespace {
native_handle_t* takeHandle(::wire::base::NativeHandle::Reader in, IncomingFds* fds) {
    if (fds == nullptr) return nullptr;
    auto ints = in.getInts();
    native_handle_t* handle = fds->takeHandle(in.getFirstFd(), in.getFdCount(), ints.size());
    if (handle == nullptr) return nullptr;
    for (unsigned i = 0; i < ints.size(); ++i) handle->data[handle->numFds + int(i)] = ints[i];
    return handle;
}
}  // namespace

void readHandle(::wire::base::NativeHandle::Reader in, hidl_handle& out, IncomingFds* fds) {
    // Owned for as long as `out` lives: a stub's argument until the call returns, a proxy's
    // result until its callback returns.
    out.setTo(takeHandle(in, fds), true);
}

void writeQueueParts(const hidl_vec<GrantorDescriptor>& grantors, const native_handle_t* handle,
                     size_t quantum, ::wire::base::QueueDescriptor::Builder out, OutgoingFds* fds) {
    auto list = out.initGrantors(unsigned(grantors.size()));
    for (unsigned i = 0; i < list.size(); ++i) {
        list[i].setFlags(grantors[i].flags);
        list[i].setFdIndex(grantors[i].fdIndex);
        list[i].setOffset(grantors[i].offset);
        list[i].setExtent(grantors[i].extent);
    }
    if (handle != nullptr) writeHandle(handle, out.initHandle(), fds);
    out.setQuantum(uint32_t(quantum));
    out.setFlags(kSynchronizedReadWrite);
}

bool readQueueParts(::wire::base::QueueDescriptor::Reader in,
                    std::vector<GrantorDescriptor>& grantors, native_handle_t** handle,
                    IncomingFds* fds) {
    auto list = in.getGrantors();
    // More grantors than a queue has are refused by whoever maps it; none are carried beyond that.
    if (list.size() > size_t(kMinGrantorCountForEvFlagSupport)) {
        if (fds != nullptr) fds->markMalformed();
        return false;
    }
    grantors.resize(list.size());
    for (unsigned i = 0; i < list.size(); ++i) {
        grantors[i] = {list[i].getFlags(), list[i].getFdIndex(), list[i].getOffset(),
                       list[i].getExtent()};
    }
    *handle = in.hasHandle() ? takeHandle(in.getHandle(), fds) : nullptr;
    return true;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
