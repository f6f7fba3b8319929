// The descriptors that arrive on one socket, kept in the order they came until their frame is
// read. Each sendmsg of the peer brings at most one batch (the kernel hands over one batch per
// recvmsg, with the bytes of the frame it belongs to), so a frame that claims descriptors takes
// exactly the next batch, whole.
#pragma once

#include <hidl/transport/HandleCarriage.h>
#include <sys/types.h>

#include <deque>
#include <memory>
#include <vector>

namespace android {
namespace hardware {
namespace details {

class ReceivedFds {
  public:
    // Without a budget (a socket that has not joined a session) no descriptor is accepted.
    explicit ReceivedFds(std::shared_ptr<FdBudget> budget = nullptr) : mBudget(std::move(budget)) {}
    ~ReceivedFds();
    ReceivedFds(const ReceivedFds&) = delete;
    ReceivedFds& operator=(const ReceivedFds&) = delete;

    void setBudget(std::shared_ptr<FdBudget> budget) { mBudget = std::move(budget); }

    enum class Result { kBytes, kEnd, kError, kViolation };
    // One recvmsg (MSG_CMSG_CLOEXEC): the bytes into `buffer`, a batch of descriptors kept. A
    // violation (descriptors cut off, more than a frame may carry, beyond the session's budget,
    // more batches waiting than frames could claim, or any where none may come) closes what came.
    Result receive(int socket, void* buffer, size_t length, int flags, size_t* received);
    // The next batch, for a frame that claims `count` descriptors; false when it is not exactly
    // that many (a frame that claims none takes none).
    bool take(size_t count, IncomingFds& out);
    // Batches waiting for a frame.
    size_t waiting() const { return mBatches.size(); }
    void closeAll();

  private:
    std::shared_ptr<FdBudget> mBudget;
    std::deque<std::vector<int>> mBatches;
};

}  // namespace details
}  // namespace hardware
}  // namespace android
