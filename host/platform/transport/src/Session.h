// A session joins a client process and a service process: the client's sockets for its calls
// (checked out one per calling thread), one socket for calls the other way (callbacks), and each
// side's table of the objects it has handed to the other.
#pragma once

#include <hidl/transport/ProxyStub.h>
#include <hidl/transport/Transport.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Frame.h"
#include "ReceivedFds.h"

namespace android {
namespace hardware {
namespace details {

// The fork generation of this process: a child starts a new one, and sessions of an older one
// are dead in it (their sockets belong to the parent), as binder's ProcessState is after fork.
uint32_t processGeneration();

// One socket on which this process calls the peer: a calling thread holds it from its request to
// its reply, so a reply is always the one frame that thread waits for.
struct Channel {
    int fd = -1;
    uint32_t nextCallId = 1;
    WordBuffer in;
};

// The sockets of one direction of calls, handed out one at a time.
class ChannelPool {
  public:
    using Opener = std::function<int()>;  // a new socket of the session, or -1
    ChannelPool(Session& session, size_t max, Opener open)
        : mSession(session), mOpen(std::move(open)), mMax(max) {}
    ~ChannelPool();

    // Blocks while every socket is out; null when the session is dead or no socket can be had.
    std::unique_ptr<Channel> acquire();
    void release(std::unique_ptr<Channel> channel, bool broken);
    // Hands in a socket made elsewhere (the service's socket toward its client).
    void install(int fd);
    // After the session's end: wakes the waiting threads, closes the sockets not in use (those in
    // use are closed when they come back).
    void closeAll();

  private:
    Session& mSession;
    const Opener mOpen;
    Mutex mLock;
    Condition mFree;
    size_t mMax GUARDED_BY(mLock);  // lowered when the peer refuses a further socket
    std::vector<std::unique_ptr<Channel>> mIdle GUARDED_BY(mLock);
    size_t mCount GUARDED_BY(mLock) = 0;
};

class Session : public std::enable_shared_from_this<Session> {
  public:
    // A reference to an object of the receiver's own (it handed the object out before).
    static constexpr uint64_t kReceiversObject = uint64_t(1) << 63;
    // The service's root object in every session.
    static constexpr uint64_t kRootObject = 1;

    Session(std::string peer, uint64_t token);
    ~Session();

    const std::string& peer() const { return mPeer; }
    uint64_t token() const { return mToken; }
    // Unique among this process's sessions, past and present.
    uint64_t serial() const { return mSerial; }
    bool belongsToThisProcess() const { return mGeneration == processGeneration(); }

    // Where calls go: the calls pool serves two-way calls, the oneway pool oneway calls and
    // releases, in the order they were sent.
    void setPools(std::shared_ptr<ChannelPool> calls, std::shared_ptr<ChannelPool> oneway);

    Status transact(uint64_t object, uint16_t method, capnp::MessageBuilder* request,
                    const OutgoingFds& fds, FunctionRef<void(IncomingReply&)>* onReply);
    // What the peer's descriptors may make this process hold for the session.
    const std::shared_ptr<FdBudget>& fdBudget() const { return mFdBudget; }
    void sendRelease(uint64_t id, uint32_t count);

    // Objects this process hands out: their id (0 when the peer holds too many), and back.
    uint64_t exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                          StubDispatch dispatch);
    void exportRoot(const sp<::android::hidl::base::V1_0::IBase>& object, StubDispatch dispatch);
    struct Export {
        sp<::android::hidl::base::V1_0::IBase> object;
        StubDispatch dispatch = nullptr;
        uint64_t sent = 0;
        std::shared_ptr<SerialQueue> oneway;
    };
    bool findExport(uint64_t id, Export& out);
    // False when the peer releases more than it was sent: a broken or hostile peer.
    bool releaseExport(uint64_t id, uint64_t count);

    // Objects of the peer's: the proxy of an id (one per id while it lives).
    sp<::android::hidl::base::V1_0::IBase> importObject(uint64_t ref, MakeProxy makeProxy);
    // Drops a proxy that is going; true if the session lives (its release is then due).
    bool forgetImport(RemoteObject* proxy);

    bool isAlive() const;
    // Ends the session: every socket shut down, every object handed out dropped, every death
    // recipient told. The sockets' owners close them.
    void kill(const char* why);
    bool linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                     const wp<::android::hidl::base::V1_0::IBase>& who);
    bool unlinkToDeath(const sp<hidl_death_recipient>& recipient);

    // The sockets a kill shuts down; a socket leaves before its owner closes it.
    bool addSocket(int fd);
    void removeSocket(int fd);
    // The sockets this process serves for the session. When the last one closes, the peer is
    // gone and the session ends.
    bool addEndpoint(int fd);
    bool removeEndpoint(int fd);  // true for the last one
    // The service's socket for calls to its client's objects; one per session.
    bool installCallsIn(int fd);

  private:
    struct Link {
        sp<hidl_death_recipient> recipient;
        uint64_t cookie;
        wp<::android::hidl::base::V1_0::IBase> who;
    };
    const std::string mPeer;
    const uint64_t mToken;
    const uint64_t mSerial;
    const uint32_t mGeneration;
    std::shared_ptr<ChannelPool> mCalls;
    std::shared_ptr<ChannelPool> mOneway;
    const std::shared_ptr<FdBudget> mFdBudget = std::make_shared<FdBudget>();

    mutable Mutex mLock;
    bool mAlive GUARDED_BY(mLock) = true;
    std::vector<Link> mLinks GUARDED_BY(mLock);
    std::vector<int> mSockets GUARDED_BY(mLock);
    size_t mEndpoints GUARDED_BY(mLock) = 0;
    bool mHasCallsIn GUARDED_BY(mLock) = false;
    uint64_t mNextExport GUARDED_BY(mLock) = kRootObject + 1;
    std::map<uint64_t, Export> mExports GUARDED_BY(mLock);
    std::unordered_map<const void*, uint64_t> mExportIds GUARDED_BY(mLock);
    struct Import {
        RemoteObject* proxy;
        wp<::android::hidl::base::V1_0::IBase> weak;
    };
    std::unordered_map<uint64_t, Import> mImports GUARDED_BY(mLock);
};

}  // namespace details
}  // namespace hardware
}  // namespace android
