#include "Listener.h"

#include <log/log.h>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Endpoint.h"
#include "Session.h"

namespace android {
namespace hardware {
namespace details {
namespace {

// Connections one event accepts before others get a turn.
constexpr int kAcceptsPerTurn = 32;

struct PeerCount {
    size_t connections = 0;
    bool warned = false;
};
// Never destroyed: pool threads use it until the process ends.
Mutex& peersLock() {
    static auto* lock = new Mutex();
    return *lock;
}
std::unordered_map<pid_t, PeerCount>& peers() {
    static auto* map = new std::unordered_map<pid_t, PeerCount>();
    return *map;
}

uint64_t newToken() {
    uint64_t token = 0;
    while (token == 0) {
        if (getrandom(&token, sizeof(token), 0) != sizeof(token)) token = 0;
    }
    return token;
}

}  // namespace

Listener::Listener(int fd, sp<::android::hidl::base::V1_0::IBase> service, StubDispatch dispatch,
                   std::string descriptor)
    : mFd(fd),
      mGeneration(processGeneration()),
      mService(std::move(service)),
      mDispatch(dispatch),
      mDescriptor(std::move(descriptor)) {}

Listener::~Listener() {
    if (processGeneration() == mGeneration) closeTrackedFd(mFd);
}

bool Listener::start() {
    return IoLoop::get().add(shared_from_this(), mFd, EPOLLIN);
}

void Listener::onEvent(uint32_t /*events*/) {
    IoLoop& loop = IoLoop::get();
    for (int i = 0; i < kAcceptsPerTurn; ++i) {
        const int fd = trackFd(accept4(mFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
                return backOff(errno);  // no rearm: the tick resumes accepting
            }
            break;  // EAGAIN: accepted everything waiting
        }
        {
            AutoMutex guard(mLock);
            mBackoffMs = limits::kAcceptBackoffMinMs;
        }
        if (loop.servedCount() >= limits::kMaxConnections) {
            refuse(fd);
            AutoMutex guard(mLock);
            if (!mWarnedFull) {
                ALOGW("%s: %zu connections served, refusing more", mDescriptor.c_str(),
                      limits::kMaxConnections);
            }
            mWarnedFull = true;
            continue;
        }
        {
            AutoMutex guard(mLock);
            mWarnedFull = false;
        }
        ucred peer{};
        socklen_t length = sizeof(peer);
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
            closeTrackedFd(fd);
            continue;
        }
        if (!enter(peer.pid)) {
            refuse(fd);
            continue;
        }
        auto endpoint = std::make_shared<Endpoint>(fd, shared_from_this(), peer.pid);
        if (!endpoint->start())
            continue;  // its destructor closes the socket and gives back the slot
    }
    loop.rearm(this, mFd, EPOLLIN);
}

// The client reads that the service is busy, not that it is gone; the socket is new, so the frame
// fits its buffer.
void Listener::refuse(int fd) {
    OutgoingFrame frame;
    frame.build(headerOnly(FrameKind::kBusy, 0, 0), nullptr);
    sendSome(fd, frame);
    closeTrackedFd(fd);
}

bool Listener::enter(pid_t peer) {
    AutoMutex guard(peersLock());
    PeerCount& count = peers()[peer];
    if (count.connections < limits::kMaxConnectionsPerPeer) {
        ++count.connections;
        count.warned = false;
        return true;
    }
    if (!count.warned) {
        ALOGW("process %d has %zu connections served, refusing more of it", int(peer),
              limits::kMaxConnectionsPerPeer);
    }
    count.warned = true;
    return false;
}

void Listener::leave(pid_t peer) {
    AutoMutex guard(peersLock());
    auto it = peers().find(peer);
    if (it != peers().end() && --it->second.connections == 0) peers().erase(it);
}

void Listener::backOff(int error) {
    AutoMutex guard(mLock);
    ALOGW("%s: accept failed (%s); accepting again in %d ms", mDescriptor.c_str(), strerror(error),
          mBackoffMs);
    mWaiting = true;
    mRetryAt = SteadyClock::now() + std::chrono::milliseconds(mBackoffMs);
    mBackoffMs = std::min(mBackoffMs * 2, limits::kAcceptBackoffMaxMs);
}

void Listener::onTick(SteadyClock::time_point now) {
    {
        AutoMutex guard(mLock);
        if (!mWaiting || now < mRetryAt) return;
        mWaiting = false;
    }
    IoLoop::get().rearm(this, mFd, EPOLLIN);
}

std::shared_ptr<Session> Listener::newSession(pid_t peer) {
    const uint64_t token = newToken();
    auto session = std::make_shared<Session>(mDescriptor + " client " + std::to_string(peer), token);
    // The service calls the client's objects on one socket the client opens for them.
    auto callsIn = std::make_shared<ChannelPool>(*session, 1, nullptr);
    session->setPools(callsIn, callsIn);
    session->exportRoot(mService, mDispatch);
    AutoMutex guard(mLock);
    for (auto it = mSessions.begin(); it != mSessions.end();) {
        it = it->second.session.expired() ? mSessions.erase(it) : std::next(it);
    }
    mSessions[token] = Opened{session, peer};
    return session;
}

std::shared_ptr<Session> Listener::findSession(uint64_t token, pid_t peer) {
    AutoMutex guard(mLock);
    auto it = mSessions.find(token);
    if (it == mSessions.end() || it->second.peer != peer) return nullptr;
    return it->second.session.lock();
}

}  // namespace details
}  // namespace hardware
}  // namespace android
