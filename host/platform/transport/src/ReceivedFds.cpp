#include "ReceivedFds.h"

#include <hidl/transport/Transport.h>
#include <log/log.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace android {
namespace hardware {
namespace details {
namespace {

// A frame's batch, and the next frame's that came with the rest of its bytes: a peer's frames
// never leave more waiting.
constexpr size_t kMaxWaitingBatches = 2;

void closeEach(const std::vector<int>& fds) {
    for (int fd : fds) close(fd);
}

}  // namespace

ReceivedFds::~ReceivedFds() {
    closeAll();
}

void ReceivedFds::closeAll() {
    for (const auto& batch : mBatches) {
        closeEach(batch);
        if (mBudget != nullptr) mBudget->giveBack(batch.size());
    }
    mBatches.clear();
}

ReceivedFds::Result ReceivedFds::receive(int socket, void* buffer, size_t length, int flags,
                                         size_t* received) {
    // Room for one more descriptor than a frame may carry: a larger batch is seen whole enough
    // to be refused rather than cut (the kernel closes what does not fit).
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * (limits::kMaxFdsPerMessage + 1))];
    iovec iov{buffer, length};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    const ssize_t n = recvmsg(socket, &msg, flags | MSG_CMSG_CLOEXEC);
    if (n < 0) return Result::kError;

    std::vector<int> batch;
    for (cmsghdr* cmsg = CMSG_FIRSTHDR(&msg); cmsg != nullptr; cmsg = CMSG_NXTHDR(&msg, cmsg)) {
        if (cmsg->cmsg_level != SOL_SOCKET || cmsg->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (cmsg->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        const size_t at = batch.size();
        batch.resize(at + count);
        memcpy(batch.data() + at, CMSG_DATA(cmsg), count * sizeof(int));
    }
    *received = size_t(n);
    if (batch.empty() && (msg.msg_flags & MSG_CTRUNC) == 0)
        return n == 0 ? Result::kEnd : Result::kBytes;

    const char* refusal = nullptr;
    if ((msg.msg_flags & MSG_CTRUNC) != 0 || batch.size() > limits::kMaxFdsPerMessage) {
        refusal = "more descriptors than a frame may carry";
    } else if (mBudget == nullptr) {
        refusal = "descriptors where none may come";
    } else if (mBatches.size() >= kMaxWaitingBatches) {
        refusal = "descriptors no frame claims";
    } else if (!mBudget->take(batch.size())) {
        refusal = "more descriptors than a session may have held";
    }
    if (refusal != nullptr) {
        ALOGW("closed a connection that sent %s", refusal);
        closeEach(batch);
        return Result::kViolation;
    }
    mBatches.push_back(std::move(batch));
    return n == 0 ? Result::kEnd : Result::kBytes;
}

bool ReceivedFds::take(size_t count, IncomingFds& out) {
    if (count == 0) return true;
    if (mBatches.empty() || mBatches.front().size() != count) return false;
    out = IncomingFds(std::move(mBatches.front()), mBudget);
    mBatches.pop_front();
    return true;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
