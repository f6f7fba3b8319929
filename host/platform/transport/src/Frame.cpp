#include "Frame.h"

#include <hidl/transport/Transport.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace android {
namespace hardware {
namespace details {

bool OutgoingFrame::build(const FrameHeader& header, capnp::MessageBuilder* message) {
    mHeader = header;
    mHeader.fdCount = 0;
    mFds = nullptr;
    mFdsSent = false;
    mIov[0] = {&mHeader, sizeof(mHeader)};
    mIovCount = 1;
    size_t body = 0;
    if (message != nullptr) {
        auto segments = message->getSegmentsForOutput();
        if (segments.size() > kMaxSegments) return false;
        if (segments.size() > 0 && !(segments.size() == 1 && segments[0].size() == 0)) {
            // The flat form's table: the segment count less one, each size, padded to a word.
            const size_t tableWords = (segments.size() + 2) / 2;
            mTable[0] = uint32_t(segments.size() - 1);
            for (size_t i = 0; i < segments.size(); ++i) {
                mTable[i + 1] = uint32_t(segments[i].size());
                body += segments[i].size() * sizeof(capnp::word);
            }
            if (segments.size() % 2 == 0) mTable[segments.size() + 1] = 0;
            body += tableWords * sizeof(capnp::word);
            mIov[mIovCount++] = {mTable, tableWords * sizeof(capnp::word)};
            for (auto segment : segments) {
                mIov[mIovCount++] = {const_cast<capnp::word*>(segment.begin()),
                                     segment.size() * sizeof(capnp::word)};
            }
        }
    }
    if (body + sizeof(FrameHeader) > limits::kMaxFrameBytes) return false;
    mHeader.bodyBytes = uint32_t(body);
    mBytes = sizeof(FrameHeader) + body;
    return true;
}

namespace {
// Drops `n` written bytes from the front of the gathered frame.
void advance(iovec*& iov, int& count, size_t n) {
    while (count > 0 && n >= iov->iov_len) {
        n -= iov->iov_len;
        ++iov;
        --count;
    }
    if (count > 0 && n > 0) {
        iov->iov_base = static_cast<char*>(iov->iov_base) + n;
        iov->iov_len -= n;
    }
}
}  // namespace

bool OutgoingFrame::attachFds(const std::vector<int>& fds) {
    if (fds.size() > limits::kMaxFdsPerMessage) return false;
    mFds = fds.empty() ? nullptr : &fds;
    mFdsSent = false;
    mHeader.fdCount = uint8_t(fds.size());
    return true;
}

ssize_t sendWithFds(int fd, iovec* iov, int iovCount, const std::vector<int>* fds, int flags) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * limits::kMaxFdsPerMessage)];
    msghdr msg{};
    msg.msg_iov = iov;
    msg.msg_iovlen = size_t(iovCount);
    if (fds != nullptr && !fds->empty()) {
        if (fds->size() > limits::kMaxFdsPerMessage) {
            errno = EINVAL;
            return -1;
        }
        const size_t bytes = sizeof(int) * fds->size();
        memset(control, 0, sizeof(control));
        msg.msg_control = control;
        msg.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
        cmsg->cmsg_level = SOL_SOCKET;
        cmsg->cmsg_type = SCM_RIGHTS;
        cmsg->cmsg_len = CMSG_LEN(bytes);
        memcpy(CMSG_DATA(cmsg), fds->data(), bytes);
    }
    return sendmsg(fd, &msg, flags);
}

bool sendFrame(int fd, OutgoingFrame& frame) {
    iovec* iov = frame.iov();
    int count = frame.iovCount();
    while (count > 0) {
        ssize_t n = sendWithFds(fd, iov, count, frame.pendingFds(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        frame.fdsSent();
        advance(iov, count, size_t(n));
    }
    return true;
}

FrameHeader headerOnly(FrameKind kind, uint16_t method, uint64_t object, uint32_t callId) {
    FrameHeader header{};
    header.kind = kind;
    header.method = method;
    header.object = object;
    header.callId = callId;
    return header;
}

bool sendFrame(int fd, const FrameHeader& header) {
    OutgoingFrame frame;
    frame.build(header, nullptr);
    return sendFrame(fd, frame);
}

ssize_t sendSome(int fd, OutgoingFrame& frame) {
    for (;;) {
        ssize_t n = sendWithFds(fd, frame.iov(), frame.iovCount(), frame.pendingFds(),
                                MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) frame.fdsSent();
        if (n >= 0) return n;
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        return -1;
    }
}

capnp::ReaderOptions readerOptionsFor(size_t bodyWords) {
    capnp::ReaderOptions options;
    options.traversalLimitInWords = bodyWords * 8 + 1024;
    options.nestingLimit = 32;
    return options;
}

bool headerIsSane(const FrameHeader& header) {
    const bool mayCarryFds = header.kind == FrameKind::kCall || header.kind == FrameKind::kOneway ||
                             header.kind == FrameKind::kReply;
    return header.bodyBytes <= limits::kMaxFrameBytes - sizeof(FrameHeader) &&
           header.bodyBytes % sizeof(capnp::word) == 0 &&
           header.fdCount <= (mayCarryFds ? limits::kMaxFdsPerMessage : 0);
}

bool headerMayComeBeforeHello(const FrameHeader& header) {
    return header.kind == FrameKind::kHello && header.bodyBytes == 0;
}

bool bodyIsOneMessage(const uint64_t* words, size_t count) {
    if (count == 0) return true;
    uint32_t table[kMaxSegments + 2];
    uint32_t segmentsLessOne = 0;
    memcpy(&segmentsLessOne, words, sizeof(segmentsLessOne));
    if (segmentsLessOne >= kMaxSegments) return false;
    const size_t segments = size_t(segmentsLessOne) + 1;
    const size_t tableWords = (segments + 2) / 2;
    if (tableWords > count) return false;
    memcpy(table, words, tableWords * sizeof(uint64_t));
    size_t total = tableWords;
    for (size_t i = 0; i < segments; ++i) total += table[i + 1];
    return total == count;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
