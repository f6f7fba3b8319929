#include "Endpoint.h"

#include <base.capnp.h>
#include <capnp/serialize.h>
#include <fcntl.h>
#include <log/log.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "IncomingDispatch.h"
#include "Listener.h"
#include "Session.h"

namespace android {
namespace hardware {
namespace details {
namespace {

// The receive buffer of a joined socket; one of a socket that has not said hello holds a hello.
constexpr size_t kKeptBufferWords = 512;
constexpr size_t kHelloWords = sizeof(FrameHeader) / sizeof(uint64_t);
// Frames one event serves before the socket goes back to the end of the line.
constexpr int kFramesPerTurn = 16;

size_t bufferBytes(const WordBuffer& buffer) {
    return buffer.size() * sizeof(uint64_t);
}

}  // namespace

Endpoint::Endpoint(int fd, std::shared_ptr<Session> session)
    : mFd(fd),
      mSession(std::move(session)),
      mOpened(SteadyClock::now()),
      mGeneration(processGeneration()),
      mIn(kKeptBufferWords),
      mReceived(mSession->fdBudget()),
      mJoined(true) {}

Endpoint::Endpoint(int fd, std::shared_ptr<Listener> listener, pid_t peer)
    : mFd(fd),
      mListener(std::move(listener)),
      mOpened(SteadyClock::now()),
      mGeneration(processGeneration()),
      mPeer(peer),
      mHoldsPeerSlot(true),
      mIn(kHelloWords) {}

Endpoint::~Endpoint() {
    if (mFd >= 0 && processGeneration() == mGeneration) closeTrackedFd(mFd);
    for (int fd : mOutFds) close(fd);
    giveBackPeerSlot();
    if (mIn.size() > kKeptBufferWords) noteLargeBufferFreed();
}

void Endpoint::giveBackPeerSlot() {
    if (mHoldsPeerSlot.exchange(false)) Listener::leave(mPeer);
}

bool Endpoint::start() {
    if (mSession != nullptr && !mSession->addEndpoint(mFd)) return false;
    if (IoLoop::get().add(shared_from_this(), mFd, EPOLLIN)) return true;
    if (mSession != nullptr) mSession->removeEndpoint(mFd);
    return false;
}

void Endpoint::onEvent(uint32_t /*events*/) {
    if (!mOut.empty()) {
        if (!flush()) return close(false);
        if (!mOut.empty()) return IoLoop::get().rearm(this, mFd, EPOLLOUT);
        setStall(false);
    }
    switch (readAndServe()) {
        case Step::kGoOn:
            return IoLoop::get().rearm(this, mFd, EPOLLIN);
        case Step::kMore:
            // Frames are waiting in the buffer: come back at once, behind the other sockets.
            return IoLoop::get().rearm(this, mFd, EPOLLIN | EPOLLOUT);
        case Step::kWaitForOutput:
            setStall(true);
            return IoLoop::get().rearm(this, mFd, EPOLLOUT);
        case Step::kPaused:
        case Step::kHandedOver:
            return;
        case Step::kClose:
            return close(false);
        case Step::kViolation:
            return close(true);
    }
}

Endpoint::Step Endpoint::readAndServe() {
    int budget = kFramesPerTurn;
    for (;;) {
        char* bytes = reinterpret_cast<char*>(mIn.data());
        size_t offset = 0;
        Step step = Step::kGoOn;
        while (step == Step::kGoOn && mHave - offset >= sizeof(FrameHeader)) {
            FrameHeader header;
            memcpy(&header, bytes + offset, sizeof(header));
            if (!headerIsSane(header)) return Step::kViolation;
            if (mSession == nullptr && !headerMayComeBeforeHello(header)) return Step::kViolation;
            const size_t total = sizeof(FrameHeader) + header.bodyBytes;
            if (mHave - offset < total) break;
            IncomingFds fds;
            if (!mReceived.take(header.fdCount, fds)) {
                ALOGW("closed a connection whose frame claims descriptors that did not come");
                return Step::kViolation;
            }
            step = serveFrame(
                    header, asWords(mIn.data() + (offset + sizeof(FrameHeader)) / sizeof(uint64_t)),
                    std::move(fds));
            offset += total;
            if (step == Step::kGoOn && --budget == 0) step = Step::kMore;
        }
        if (step == Step::kHandedOver || step == Step::kClose || step == Step::kViolation) {
            return step;
        }
        if (offset > 0) {
            memmove(bytes, bytes + offset, mHave - offset);
            mHave -= offset;
            setStall(false);  // a whole frame arrived
        }
        if (step != Step::kGoOn) return step;
        // Descriptors come with the first bytes of their frame: with no frame begun, any that
        // wait were sent with a frame that did not claim them.
        if (mHave == 0 && mReceived.waiting() > 0) {
            ALOGW("closed a connection that sent descriptors no frame claims");
            return Step::kViolation;
        }
        makeRoom();
        bytes = reinterpret_cast<char*>(mIn.data());
        size_t n = 0;
        const auto result =
                mReceived.receive(mFd, bytes + mHave, bufferBytes(mIn) - mHave, MSG_DONTWAIT, &n);
        if (result == ReceivedFds::Result::kViolation) return Step::kViolation;
        if (result == ReceivedFds::Result::kEnd) return Step::kClose;
        if (result == ReceivedFds::Result::kError) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return Step::kClose;
            if (mHave > 0) setStall(true);  // part of a frame: the rest must follow in time
            return Step::kGoOn;
        }
        mHave += n;
    }
}

// Room for what may come next, and no more: before hello a hello's header; then the kept size; a
// larger frame's buffer grows as its bytes arrive (doubling up to the frame), never to the size a
// header announces before the bytes are there; and it goes back to the kept size once empty.
void Endpoint::makeRoom() {
    const size_t floor = mSession == nullptr ? kHelloWords : kKeptBufferWords;
    if (mIn.size() < floor) mIn.resize(floor);
    if (mHave >= sizeof(FrameHeader) && mHave == bufferBytes(mIn)) {
        FrameHeader header;
        memcpy(&header, mIn.data(), sizeof(header));
        const size_t total = sizeof(FrameHeader) + header.bodyBytes;  // more than mHave
        mIn.resize(std::min(total, 2 * mHave) / sizeof(uint64_t));
    } else if (mHave == 0 && mIn.size() > kKeptBufferWords) {
        mIn.resize(kKeptBufferWords);
        mIn.shrink_to_fit();
        noteLargeBufferFreed();
    }
}

Endpoint::Step Endpoint::serveFrame(const FrameHeader& header, const capnp::word* body,
                                    IncomingFds fds) {
    if (mSession == nullptr) return hello(header);
    switch (header.kind) {
        case FrameKind::kCall:
            return call(header, body, std::move(fds));
        case FrameKind::kOneway:
            return oneway(header, body, std::move(fds));
        case FrameKind::kRelease:
            if (header.bodyBytes != 0) return Step::kViolation;
            return mSession->releaseExport(header.object, header.callId) ? Step::kGoOn
                                                                         : Step::kViolation;
        default:
            return Step::kViolation;
    }
}

Endpoint::Step Endpoint::hello(const FrameHeader& header) {
    if (header.kind != FrameKind::kHello || header.bodyBytes != 0 || mListener == nullptr) {
        return Step::kViolation;
    }
    std::shared_ptr<Session> session;
    if (header.method == kRoleCalls && header.object == 0) {
        session = mListener->newSession(mPeer);
    } else if (header.method == kRoleCalls || header.method == kRoleCallsIn) {
        session = mListener->findSession(header.object, mPeer);
    }
    if (session == nullptr) return Step::kViolation;

    OutgoingFrame frame;
    frame.build(headerOnly(FrameKind::kWelcome, 0, session->token()), nullptr);
    if (header.method == kRoleCalls) {
        if (!session->addEndpoint(mFd)) return Step::kViolation;
        mReceived.setBudget(session->fdBudget());
        mSession = std::move(session);
        mListener.reset();
        {
            AutoMutex guard(mLock);
            mJoined = true;
        }
        return reply(frame);
    }
    // This socket carries the service's calls to the client's objects from now on: the calling
    // threads own it, blocking, bounded by the stall time-out when the client stops reading.
    if (sendSome(mFd, frame) != ssize_t(frame.bytes())) return Step::kClose;
    const int fd = mFd;
    IoLoop::get().remove(this, fd);
    {
        AutoMutex guard(mLock);
        mClosed = true;
        mFd = -1;
    }
    giveBackPeerSlot();  // the session holds the socket now, as the total cap counts it
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    timeval timeout{limits::kStallTimeoutMs / 1000, (limits::kStallTimeoutMs % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    // The service's own calls to a client's objects answer at once (getDebugInfo for a dump): a
    // client that does not answer in time loses its session rather than holding a service thread.
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    if (!session->installCallsIn(fd)) closeTrackedFd(fd);
    return Step::kHandedOver;
}

Endpoint::Step Endpoint::call(const FrameHeader& header, const capnp::word* body, IncomingFds fds) {
    FrameHeader replyHeader{};
    replyHeader.callId = header.callId;
    OutgoingFrame frame;
    Step step = Step::kGoOn;
    const size_t words = header.bodyBytes / sizeof(capnp::word);
    if (!bodyIsOneMessage(reinterpret_cast<const uint64_t*>(body), words)) {
        return Step::kViolation;
    }
    kj::Maybe<kj::Exception> malformed = kj::runCatchingExceptions([&]() {
        kj::Maybe<capnp::FlatArrayMessageReader> reader;
        if (words > 0) reader.emplace(kj::arrayPtr(body, words), readerOptionsFor(words));
        capnp::MessageReader* params = nullptr;
        KJ_IF_MAYBE (r, reader) {
            params = r;
        }
        IncomingCall in(*mSession, header.method, params, std::move(fds));
        Status status = serveIncoming(*mSession, header.object, in);
        if (in.failed() || in.malformed()) {
            step = Step::kViolation;
            return;
        }
        capnp::word scratch[32] = {};
        capnp::MallocMessageBuilder failure(kj::arrayPtr(scratch, 32));
        replyHeader.kind = FrameKind::kReply;
        if (status.isOk() && (in.replyFds()->failed() || !frame.build(replyHeader, &in.reply()) ||
                              !frame.attachFds(in.replyFds()->fds()))) {
            // Results larger than a frame, or handles whose descriptors cannot go with it.
            status = Status::fromStatusT(FAILED_TRANSACTION);
        }
        if (!status.isOk()) {
            replyHeader.kind = FrameKind::kFailed;
            writeCallError(status, failure);
            frame.build(replyHeader, &failure);
        }
        step = reply(frame);
    });
    return malformed != nullptr ? Step::kViolation : step;
}

Endpoint::Step Endpoint::oneway(const FrameHeader& header, const capnp::word* body,
                                IncomingFds fds) {
    const auto* first = reinterpret_cast<const uint64_t*>(body);
    if (!bodyIsOneMessage(first, header.bodyBytes / sizeof(uint64_t))) return Step::kViolation;
    Session::Export target;
    if (!mSession->findExport(header.object, target)) return Step::kGoOn;  // released: dropped
    WordBuffer params(first, first + header.bodyBytes / sizeof(uint64_t));
    {
        AutoMutex guard(mLock);
        ++mQueued;
    }
    std::shared_ptr<Endpoint> self = shared_from_this();
    std::shared_ptr<Session> session = mSession;
    const uint16_t method = header.method;
    const uint64_t object = header.object;
    // Held (and counted against the session's descriptors) until the call has run.
    auto callFds = std::make_shared<IncomingFds>(std::move(fds));
    target.oneway->post([self, session, method, object, params = std::move(params), callFds]() {
        kj::Maybe<kj::Exception> malformed = kj::runCatchingExceptions([&]() {
            kj::Maybe<capnp::FlatArrayMessageReader> reader;
            if (!params.empty()) {
                reader.emplace(kj::arrayPtr(asWords(params.data()), params.size()),
                               readerOptionsFor(params.size()));
            }
            capnp::MessageReader* in = nullptr;
            KJ_IF_MAYBE (r, reader) {
                in = r;
            }
            IncomingCall call(*session, method, in, std::move(*callFds));
            serveIncoming(*session, object, call);
            if (call.malformed()) session->kill("a oneway call's descriptors did not match it");
        });
        if (malformed != nullptr) session->kill("a malformed oneway call");
        self->onewayDone();
    });
    AutoMutex guard(mLock);
    if (mQueued < limits::kMaxQueuedOneway) return Step::kGoOn;
    mPaused = true;  // until the queue drains: the peer's sends block meanwhile
    return Step::kPaused;
}

void Endpoint::onewayDone() {
    {
        AutoMutex guard(mLock);
        --mQueued;
        if (!mPaused || mClosed || mQueued > limits::kMaxQueuedOneway / 2) return;
        mPaused = false;
    }
    IoLoop::get().rearm(this, mFd, EPOLLIN | EPOLLOUT);
}

Endpoint::Step Endpoint::reply(OutgoingFrame& frame) {
    const ssize_t n = sendSome(mFd, frame);
    if (n < 0) return Step::kClose;
    if (size_t(n) == frame.bytes()) return Step::kGoOn;
    // Nothing went: the descriptors go with the first bytes flushed (the frame's are the call's,
    // gone by then).
    if (const std::vector<int>* fds = frame.pendingFds()) {
        for (int fd : *fds) {
            const int kept = fcntl(fd, F_DUPFD_CLOEXEC, 0);
            if (kept < 0) return Step::kClose;
            mOutFds.push_back(kept);
        }
    }
    // The peer is not reading: keep the rest, serve nothing more until it has been taken.
    size_t skip = size_t(n);
    mOut.clear();
    mOutSent = 0;
    for (int i = 0; i < frame.iovCount(); ++i) {
        const iovec& part = frame.iov()[i];
        if (skip >= part.iov_len) {
            skip -= part.iov_len;
            continue;
        }
        const char* start = static_cast<const char*>(part.iov_base) + skip;
        mOut.insert(mOut.end(), start, start + (part.iov_len - skip));
        skip = 0;
    }
    return Step::kWaitForOutput;
}

bool Endpoint::flush() {
    while (mOutSent < mOut.size()) {
        iovec rest{mOut.data() + mOutSent, mOut.size() - mOutSent};
        const ssize_t n = sendWithFds(mFd, &rest, 1, &mOutFds, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
        if (n <= 0) return false;
        for (int fd : mOutFds) close(fd);
        mOutFds.clear();
        mOutSent += size_t(n);
        restartStall();  // progress: the time-out starts again
    }
    if (mOut.capacity() > kKeptBufferWords * sizeof(uint64_t)) noteLargeBufferFreed();
    mOut.clear();
    mOut.shrink_to_fit();
    mOutSent = 0;
    return true;
}

void Endpoint::setStall(bool stalled) {
    AutoMutex guard(mLock);
    if (stalled && !mStalled) mStallSince = SteadyClock::now();
    mStalled = stalled;
}

void Endpoint::restartStall() {
    AutoMutex guard(mLock);
    mStalled = true;
    mStallSince = SteadyClock::now();
}

void Endpoint::close(bool violation) {
    const int fd = mFd;
    {
        AutoMutex guard(mLock);
        mClosed = true;
        mFd = -1;
    }
    const bool last = mSession != nullptr && mSession->removeEndpoint(fd);
    IoLoop::get().remove(this, fd);
    closeTrackedFd(fd);
    mReceived.closeAll();
    giveBackPeerSlot();
    if (violation) ALOGW("closed a connection that broke the protocol");
    if (mSession != nullptr && (violation || last)) {
        mSession->kill(violation ? "the peer broke the protocol" : "the peer left");
    }
}

void Endpoint::onTick(SteadyClock::time_point now) {
    AutoMutex guard(mLock);
    if (mClosed) return;
    const auto limit = std::chrono::milliseconds(limits::kStallTimeoutMs);
    const bool stalled = mStalled && now - mStallSince > limit;
    const bool silent = !mJoined && now - mOpened > limit;  // never said which session
    // The thread that gets the socket's next event finds it shut and closes it.
    if (stalled || silent) shutdown(mFd, SHUT_RDWR);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
