// What crosses a socket: a frame is a fixed header and, for calls and replies, a Cap'n Proto
// message in its standard flat form (segment table, then the segments).
#pragma once

#include <capnp/message.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {
namespace hardware {
namespace details {

enum class FrameKind : uint8_t {
    kCall = 1,     // a two-way call: object, method, call id; params in the body
    kOneway = 2,   // a oneway call: no reply
    kReply = 3,    // the results of call `callId`
    kFailed = 4,   // call `callId` failed: a CallError in the body
    kRelease = 5,  // the peer drops `callId` references to its object `object`
    kHello = 6,    // the first frame on a socket: method is the role, object the session token
    kWelcome = 7,  // the answer to kHello: object is the session's token
    kBusy = 8,     // the answer instead of kWelcome: no room for another connection now
};

enum SocketRole : uint16_t {
    kRoleCalls = 1,    // the connecting side calls, the accepting side serves
    kRoleCallsIn = 2,  // the accepting side calls the connecting side's objects
};

struct FrameHeader {
    uint32_t bodyBytes;
    FrameKind kind;
    uint8_t fdCount;  // descriptors sent with the frame (calls and replies only)
    uint16_t method;
    uint32_t callId;
    uint32_t padding;
    uint64_t object;
};
static_assert(sizeof(FrameHeader) == 24 && sizeof(FrameHeader) % sizeof(capnp::word) == 0,
              "bodies start word-aligned behind the header");

// Received frames are kept in whole words, so that every body starts word-aligned. (capnp::word
// itself cannot be copied in debug builds.)
using WordBuffer = std::vector<uint64_t>;
inline const capnp::word* asWords(const uint64_t* words) {
    return reinterpret_cast<const capnp::word*>(words);
}

// The most segments a message of a frame may have.
constexpr size_t kMaxSegments = 64;

// An outgoing frame gathered for one sendmsg: header, segment table, segments.
class OutgoingFrame {
  public:
    // False when the message is larger than a frame may be.
    bool build(const FrameHeader& header, capnp::MessageBuilder* message);
    // Descriptors that go with the frame's first bytes (the caller keeps them open until sent);
    // false when there are more than a frame may carry.
    bool attachFds(const std::vector<int>& fds);
    iovec* iov() { return mIov; }
    int iovCount() const { return mIovCount; }
    size_t bytes() const { return mBytes; }
    const std::vector<int>* pendingFds() const { return mFdsSent ? nullptr : mFds; }
    void fdsSent() { mFdsSent = true; }

  private:
    const std::vector<int>* mFds = nullptr;
    bool mFdsSent = false;
    FrameHeader mHeader;
    uint32_t mTable[kMaxSegments + 2];
    iovec mIov[kMaxSegments + 2];
    int mIovCount = 0;
    size_t mBytes = 0;
};

// A frame of a header alone (hello, welcome, release).
FrameHeader headerOnly(FrameKind kind, uint16_t method, uint64_t object, uint32_t callId = 0);

// Writes a whole frame on a blocking socket; false if the peer is gone or stopped reading for
// longer than the socket's send timeout.
bool sendFrame(int fd, OutgoingFrame& frame);
bool sendFrame(int fd, const FrameHeader& header);
// Writes what a non-blocking socket takes now; the number of bytes written, or -1 if it failed.
// The frame's descriptors go with its first byte written.
ssize_t sendSome(int fd, OutgoingFrame& frame);
// One sendmsg of `iov` with `fds` (if any, at most kMaxFdsPerMessage) as SCM_RIGHTS.
ssize_t sendWithFds(int fd, iovec* iov, int iovCount, const std::vector<int>* fds, int flags);

// How far a reader of a body of this size may go: each word read a few times over at most, so a
// list of empty elements that claims more than the frame holds is refused.
capnp::ReaderOptions readerOptionsFor(size_t bodyWords);

// A header is acceptable when its body fits a frame and is whole words, and only a call or a
// reply carries descriptors, no more than a frame may.
bool headerIsSane(const FrameHeader& header);
// Before a socket has said hello, a hello is all it may send: a header alone.
bool headerMayComeBeforeHello(const FrameHeader& header);
// A body is one message in the flat form, exactly: a segment count from 1 to kMaxSegments (a
// count of 0xFFFFFFFF + 1 would wrap to none, and the call would run on default parameters), and
// a table whose sizes add up to the body. An empty body is a message of no parameters.
bool bodyIsOneMessage(const uint64_t* words, size_t count);

}  // namespace details
}  // namespace hardware
}  // namespace android
