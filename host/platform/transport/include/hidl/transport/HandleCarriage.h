// Handles across processes: a handle's descriptors travel beside a frame's message (SCM_RIGHTS on
// the session's socket), its ints and the index of its first descriptor in the message. The side
// that receives a frame owns its descriptors until a handle of the message takes them; whatever no
// handle took is closed with the frame, so every descriptor that arrives has exactly one owner.
#pragma once

#include <base.capnp.h>
#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>
#include <hidl/MQDescriptor.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace android {
namespace hardware {
namespace details {

// Descriptors one session may make this process hold at once: those that arrived and wait for
// their frame, those of oneway calls waiting their turn, and those of calls and replies being
// read. A peer that sends more loses its session.
class FdBudget {
  public:
    bool take(size_t count);
    void giveBack(size_t count);
    size_t held() const { return mHeld.load(); }

  private:
    std::atomic<size_t> mHeld{0};
};

// The descriptors that came with one frame, owned until a handle takes them (each at most once);
// the rest are closed when the frame's reading ends. Counted against the session's budget for as
// long as the frame is read or waits.
class IncomingFds {
  public:
    IncomingFds() = default;
    IncomingFds(std::vector<int> fds, std::shared_ptr<FdBudget> budget);
    ~IncomingFds();
    IncomingFds(IncomingFds&& other) noexcept;
    IncomingFds& operator=(IncomingFds&& other) noexcept;
    IncomingFds(const IncomingFds&) = delete;
    IncomingFds& operator=(const IncomingFds&) = delete;

    size_t size() const { return mFds.size(); }
    // The descriptors [first, first + count) for a handle of its own, or null (and the frame is
    // malformed) when they are not all there and untaken.
    native_handle_t* takeHandle(uint32_t first, uint32_t count, size_t ints);
    // A handle claimed what it could not have, or a descriptor was claimed by none.
    bool malformed() const { return mMalformed || !allTaken(); }
    void markMalformed() { mMalformed = true; }

  private:
    bool allTaken() const;
    void closeAll();

    std::vector<int> mFds;  // -1 once taken
    std::shared_ptr<FdBudget> mBudget;
    size_t mCounted = 0;
    bool mMalformed = false;
};

// The descriptors of the handles of an outgoing message: duplicates, closed once the frame is
// sent (the caller's handle may be gone by then, as a stub's results are).
class OutgoingFds {
  public:
    OutgoingFds() = default;
    ~OutgoingFds();
    OutgoingFds(const OutgoingFds&) = delete;
    OutgoingFds& operator=(const OutgoingFds&) = delete;

    // Adds the handle's descriptors; false (and the message may not be sent) beyond the bound
    // or when a duplicate cannot be made.
    bool add(const native_handle_t* handle, uint32_t* first);
    const std::vector<int>& fds() const { return mFds; }
    bool failed() const { return mFailed; }

  private:
    std::vector<int> mFds;
    bool mFailed = false;
};

// A handle into a message and out of one. A null handle crosses as an absent field; without the
// frame's descriptors (a conversion outside a call) a handle crosses without descriptors.
void writeHandle(const native_handle_t* handle, ::wire::base::NativeHandle::Builder out,
                 OutgoingFds* fds);
void readHandle(::wire::base::NativeHandle::Reader in, hidl_handle& out, IncomingFds* fds);
// A fast message queue's descriptor: its grantors, quantum and flags in the message, its handle's
// descriptors beside it. What it describes is checked by the side that maps it.
void writeQueueParts(const hidl_vec<GrantorDescriptor>& grantors, const native_handle_t* handle,
                     size_t quantum, ::wire::base::QueueDescriptor::Builder out, OutgoingFds* fds);
bool readQueueParts(::wire::base::QueueDescriptor::Reader in,
                    std::vector<GrantorDescriptor>& grantors, native_handle_t** handle,
                    IncomingFds* fds);

template <typename T, MQFlavor flavor>
void writeQueue(const MQDescriptor<T, flavor>& desc, ::wire::base::QueueDescriptor::Builder out,
                OutgoingFds* fds) {
    writeQueueParts(desc.grantors(), desc.handle(), desc.getQuantum(), out, fds);
}

template <typename T, MQFlavor flavor>
void readQueue(::wire::base::QueueDescriptor::Reader in, MQDescriptor<T, flavor>& out,
               IncomingFds* fds) {
    std::vector<GrantorDescriptor> grantors;
    native_handle_t* handle = nullptr;
    if (!readQueueParts(in, grantors, &handle, fds)) return;
    // The quantum read is the peer's word; the queue that maps it compares it with sizeof(T).
    const MQDescriptor<T, flavor> received(grantors, handle, in.getQuantum());
    out = received;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
