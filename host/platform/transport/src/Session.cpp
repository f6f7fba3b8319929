#include "Session.h"

#include <base.capnp.h>
#include <capnp/serialize.h>
#include <log/log.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "IoLoop.h"
#include "SessionClaims.h"

namespace android {
namespace hardware {
namespace details {
namespace {

// A receive buffer that grew for a large reply goes back to this size.
constexpr size_t kKeptBufferWords = 512;

// Reads the reply on a socket that carries nothing else: the frame the calling thread waits for,
// and the descriptors that came with it (exactly as many as it claims).
bool receiveReply(Channel& channel, ReceivedFds& received, FrameHeader& header,
                  const capnp::word*& body, IncomingFds& fds) {
    if (channel.in.size() < kKeptBufferWords) channel.in.resize(kKeptBufferWords);
    size_t have = 0;
    size_t total = 0;
    for (;;) {
        char* buffer = reinterpret_cast<char*>(channel.in.data());
        size_t n = 0;
        const auto result = received.receive(channel.fd, buffer + have,
                                             channel.in.size() * sizeof(uint64_t) - have, 0, &n);
        if (result == ReceivedFds::Result::kError && errno == EINTR) continue;
        if (result != ReceivedFds::Result::kBytes) return false;
        have += n;
        if (total == 0 && have >= sizeof(FrameHeader)) {
            memcpy(&header, buffer, sizeof(header));
            if (!headerIsSane(header)) return false;
            total = sizeof(FrameHeader) + header.bodyBytes;
            if (total > channel.in.size() * sizeof(uint64_t)) {
                channel.in.resize(total / sizeof(uint64_t));
            }
        }
        if (total != 0 && have >= total) break;
    }
    body = asWords(channel.in.data() + sizeof(FrameHeader) / sizeof(uint64_t));
    if (!received.take(header.fdCount, fds)) return false;
    return have == total && received.waiting() == 0;  // anything more is no reply of ours
}

Status statusOf(::wire::base::CallError::Reader error) {
    if (error.getException() == Status::EX_TRANSACTION_FAILED) {
        return Status::fromStatusT(error.getErrorCode());
    }
    return Status::fromExceptionCode(error.getException(), error.getMessage().cStr());
}

}  // namespace

ChannelPool::~ChannelPool() {
    // A forked child leaves its parent's sockets alone (it closed its copies at fork).
    if (!mSession.belongsToThisProcess()) return;
    for (auto& channel : mIdle) closeTrackedFd(channel->fd);
}

std::unique_ptr<Channel> ChannelPool::acquire() {
    for (;;) {
        {
            AutoMutex guard(mLock);
            for (;;) {
                if (!mSession.isAlive()) return nullptr;
                if (!mIdle.empty()) {
                    std::unique_ptr<Channel> channel = std::move(mIdle.back());
                    mIdle.pop_back();
                    return channel;
                }
                if (mCount < mMax && mOpen) {
                    ++mCount;
                    break;
                }
                if (mCount == 0) return nullptr;
                mFree.wait(mLock);
            }
        }
        const int fd = mOpen();
        if (fd >= 0 && mSession.addSocket(fd)) {
            auto channel = std::make_unique<Channel>();
            channel->fd = fd;
            return channel;
        }
        if (fd >= 0) closeTrackedFd(fd);
        AutoMutex guard(mLock);
        --mCount;
        mFree.signal();
        // No further socket now (the peer may have no room for one): the sockets open will do,
        // one caller at a time.
        if (mCount == 0) return nullptr;
        mMax = mCount;
    }
}

void ChannelPool::release(std::unique_ptr<Channel> channel, bool broken) {
    if (broken || !mSession.isAlive()) {
        mSession.removeSocket(channel->fd);
        closeTrackedFd(channel->fd);
        AutoMutex guard(mLock);
        --mCount;
        mFree.signal();
        return;
    }
    if (channel->in.size() > kKeptBufferWords) {
        channel->in.resize(kKeptBufferWords);
        channel->in.shrink_to_fit();
    }
    AutoMutex guard(mLock);
    mIdle.push_back(std::move(channel));
    mFree.signal();
}

void ChannelPool::install(int fd) {
    auto channel = std::make_unique<Channel>();
    channel->fd = fd;
    AutoMutex guard(mLock);
    ++mCount;
    mIdle.push_back(std::move(channel));
    mFree.signal();
}

void ChannelPool::closeAll() {
    std::vector<std::unique_ptr<Channel>> idle;
    {
        AutoMutex guard(mLock);
        idle.swap(mIdle);
        mCount -= idle.size();
        mFree.broadcast();
    }
    for (auto& channel : idle) {
        mSession.removeSocket(channel->fd);
        closeTrackedFd(channel->fd);
    }
}

namespace {
std::atomic<uint64_t> gNextSerial{1};
}  // namespace

Session::Session(std::string peer, uint64_t token)
    : mPeer(std::move(peer)),
      mToken(token),
      mSerial(gNextSerial.fetch_add(1)),
      mGeneration(processGeneration()) {}

Session::~Session() {
    // The pools close their sockets; nothing else of the session is touched then.
    mCalls.reset();
    mOneway.reset();
}

void Session::setPools(std::shared_ptr<ChannelPool> calls, std::shared_ptr<ChannelPool> oneway) {
    mCalls = std::move(calls);
    mOneway = std::move(oneway);
}

Status Session::transact(uint64_t object, uint16_t method, capnp::MessageBuilder* request,
                         const OutgoingFds& fds, FunctionRef<void(IncomingReply&)>* onReply) {
    ChannelPool* pool = onReply != nullptr ? mCalls.get() : mOneway.get();
    if (!belongsToThisProcess() || pool == nullptr) return Status::fromStatusT(DEAD_OBJECT);
    std::unique_ptr<Channel> channel = pool->acquire();
    if (channel == nullptr) return Status::fromStatusT(DEAD_OBJECT);
    FrameHeader header{};
    header.kind = onReply != nullptr ? FrameKind::kCall : FrameKind::kOneway;
    header.method = method;
    header.object = object;
    header.callId = channel->nextCallId++;
    OutgoingFrame frame;
    if (fds.failed() || !frame.build(header, request) || !frame.attachFds(fds.fds())) {
        pool->release(std::move(channel), false);
        return Status::fromStatusT(FAILED_TRANSACTION);
    }
    if (!sendFrame(channel->fd, frame)) {
        pool->release(std::move(channel), true);
        kill("the peer stopped taking calls");
        return Status::fromStatusT(DEAD_OBJECT);
    }
    if (onReply == nullptr) {
        pool->release(std::move(channel), false);
        return Status::ok();
    }
    FrameHeader reply{};
    const capnp::word* body = nullptr;
    ReceivedFds received(mFdBudget);
    IncomingFds replyFds;
    if (!receiveReply(*channel, received, reply, body, replyFds) || reply.callId != header.callId ||
        (reply.kind != FrameKind::kReply && reply.kind != FrameKind::kFailed)) {
        pool->release(std::move(channel), true);
        kill("no reply");
        return Status::fromStatusT(DEAD_OBJECT);
    }
    Status status = Status::ok();
    const size_t words = reply.bodyBytes / sizeof(capnp::word);
    if (!bodyIsOneMessage(reinterpret_cast<const uint64_t*>(body), words)) {
        pool->release(std::move(channel), true);
        kill("a malformed reply");
        return Status::fromStatusT(DEAD_OBJECT);
    }
    kj::Maybe<kj::Exception> malformed = kj::runCatchingExceptions([&]() {
        if (words == 0) {
            IncomingReply empty(*this, nullptr, replyFds);
            if (reply.kind == FrameKind::kFailed) {
                status = Status::fromStatusT(UNKNOWN_ERROR);
            } else {
                (*onReply)(empty);
            }
            return;
        }
        capnp::FlatArrayMessageReader reader(kj::arrayPtr(body, words), readerOptionsFor(words));
        if (reply.kind == FrameKind::kFailed) {
            status = statusOf(reader.getRoot<::wire::base::CallError>());
        } else {
            IncomingReply in(*this, &reader, replyFds);
            (*onReply)(in);
        }
    });
    const bool broken = malformed != nullptr || replyFds.malformed();
    pool->release(std::move(channel), broken);
    if (broken) {
        kill("a malformed reply");
        return Status::fromStatusT(DEAD_OBJECT);
    }
    return status;
}

void Session::sendRelease(uint64_t id, uint32_t count) {
    if (mOneway == nullptr) return;
    std::unique_ptr<Channel> channel = mOneway->acquire();
    if (channel == nullptr) return;
    const bool sent = sendFrame(channel->fd, headerOnly(FrameKind::kRelease, 0, id, count));
    mOneway->release(std::move(channel), !sent);
    if (!sent) kill("the peer stopped taking calls");
}

uint64_t Session::exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                               StubDispatch dispatch) {
    if (object == nullptr) return 0;
    if (object->isRemote()) {
        auto* remote = dynamic_cast<RemoteObject*>(object.get());
        if (remote != nullptr && remote->session().get() == this) {
            return remote->remoteId() | kReceiversObject;
        }
    }
    uint64_t id = 0;
    {
        AutoMutex guard(mLock);
        auto known = mExportIds.find(object.get());
        if (known != mExportIds.end()) {
            ++mExports[known->second].sent;
            return known->second;
        }
        if (mExports.size() >= limits::kMaxObjectsPerSession) return 0;
        id = mNextExport++;
        mExports[id] = Export{object, dispatch, 1, std::make_shared<SerialQueue>()};
        mExportIds[object.get()] = id;
    }
    claimHandedOut(*this, object, dispatch);
    return id;
}

void Session::exportRoot(const sp<::android::hidl::base::V1_0::IBase>& object,
                         StubDispatch dispatch) {
    AutoMutex guard(mLock);
    mExports[kRootObject] =
            Export{object, dispatch, uint64_t(1) << 62, std::make_shared<SerialQueue>()};
    mExportIds[object.get()] = kRootObject;
}

bool Session::findExport(uint64_t id, Export& out) {
    AutoMutex guard(mLock);
    auto it = mExports.find(id);
    if (it == mExports.end()) return false;
    out = it->second;
    return true;
}

bool Session::releaseExport(uint64_t id, uint64_t count) {
    sp<::android::hidl::base::V1_0::IBase> dropped;  // released after the lock
    {
        AutoMutex guard(mLock);
        auto it = mExports.find(id);
        if (it == mExports.end()) return !mAlive;
        if (count > it->second.sent) return false;
        it->second.sent -= count;
        if (it->second.sent == 0) {
            dropped = std::move(it->second.object);
            mExportIds.erase(dropped.get());
            mExports.erase(it);
        }
    }
    // The peer cannot reach the object any more: what it did not close is closed now.
    if (dropped != nullptr) putRightWhatWasLetGo(*this, dropped);
    return true;
}

sp<::android::hidl::base::V1_0::IBase> Session::importObject(uint64_t ref, MakeProxy makeProxy) {
    if (ref == 0) return nullptr;
    if ((ref & kReceiversObject) != 0) {
        Export own;
        return findExport(ref & ~kReceiversObject, own) ? own.object : nullptr;
    }
    {
        AutoMutex guard(mLock);
        auto it = mImports.find(ref);
        if (it != mImports.end()) {
            sp<::android::hidl::base::V1_0::IBase> strong = it->second.weak.promote();
            if (strong != nullptr) {
                it->second.proxy->received();
                return strong;
            }
        }
        // A proxy on its way out sends its own release; the id gets a new one.
        if (it != mImports.end() || mImports.size() < limits::kMaxObjectsPerSession) {
            sp<::android::hidl::base::V1_0::IBase> proxy = makeProxy(shared_from_this(), ref);
            mImports[ref] = Import{dynamic_cast<RemoteObject*>(proxy.get()), proxy};
            return proxy;
        }
    }
    ALOGW("%s hands this process more than %zu objects", mPeer.c_str(),
          limits::kMaxObjectsPerSession);
    kill("too many objects");
    return nullptr;
}

bool Session::forgetImport(RemoteObject* proxy) {
    AutoMutex guard(mLock);
    auto it = mImports.find(proxy->remoteId());
    if (it != mImports.end() && it->second.proxy == proxy) mImports.erase(it);
    return mAlive;
}

bool Session::isAlive() const {
    AutoMutex guard(mLock);
    return mAlive;
}

void Session::kill(const char* why) {
    std::vector<Link> links;
    std::map<uint64_t, Export> dropped;  // released after the lock
    {
        AutoMutex guard(mLock);
        if (!mAlive) return;
        mAlive = false;
        links.swap(mLinks);
        dropped.swap(mExports);
        mExportIds.clear();
        for (int fd : mSockets) shutdown(fd, SHUT_RDWR);
    }
    ALOGV("session with %s ended: %s", mPeer.c_str(), why);
    // While the objects it was handed are still held here.
    putRightWhatIsLeft(*this);
    if (mCalls != nullptr) mCalls->closeAll();
    if (mOneway != nullptr && mOneway != mCalls) mOneway->closeAll();
    for (Link& link : links) {
        submitToRpcPool([link]() { link.recipient->serviceDied(link.cookie, link.who); });
    }
}

bool Session::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                          const wp<::android::hidl::base::V1_0::IBase>& who) {
    AutoMutex guard(mLock);
    if (!mAlive) return false;
    mLinks.push_back({recipient, cookie, who});
    return true;
}

bool Session::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    AutoMutex guard(mLock);
    for (auto it = mLinks.begin(); it != mLinks.end(); ++it) {
        if (it->recipient == recipient) {
            mLinks.erase(it);
            return true;
        }
    }
    return false;
}

bool Session::addSocket(int fd) {
    AutoMutex guard(mLock);
    if (!mAlive) return false;
    mSockets.push_back(fd);
    return true;
}

void Session::removeSocket(int fd) {
    AutoMutex guard(mLock);
    for (auto it = mSockets.begin(); it != mSockets.end(); ++it) {
        if (*it == fd) {
            mSockets.erase(it);
            return;
        }
    }
}

bool Session::addEndpoint(int fd) {
    AutoMutex guard(mLock);
    // The client's sockets for its calls, and one for its oneway calls.
    if (!mAlive || mEndpoints >= limits::kMaxChannelsPerSession + 1) return false;
    mSockets.push_back(fd);
    ++mEndpoints;
    return true;
}

bool Session::removeEndpoint(int fd) {
    removeSocket(fd);
    AutoMutex guard(mLock);
    return --mEndpoints == 0;
}

bool Session::installCallsIn(int fd) {
    {
        AutoMutex guard(mLock);
        if (!mAlive || mHasCallsIn) return false;
        mHasCallsIn = true;
        mSockets.push_back(fd);
    }
    mCalls->install(fd);
    // A kill between the check above and the install found the pool empty: the socket would
    // stay open for as long as anything holds the dead session.
    if (!isAlive()) mCalls->closeAll();
    return true;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
