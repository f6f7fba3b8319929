// The host's binder: interface objects cross between processes as Cap'n Proto capabilities over
// Unix sockets. One transport thread per process runs the Cap'n Proto event loop and never runs
// interface code: incoming calls are handed to the RPC thread pool, outgoing calls from any other
// thread are handed to the transport thread and waited for.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <capnp/capability.h>
#include <hidl/HidlSupport.h>
#include <kj/async.h>
#include <utils/Mutex.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace android {
namespace hardware {
namespace details {

// The event loop of the transport thread, started on first use.
const kj::Executor& transportExecutor();
bool onTransportThread();
// Runs work on the transport thread (at once when already there) and waits for it.
void runOnTransportThread(const std::function<void()>& work);

// Runs a task on one of the process's RPC pool threads (started with one thread if the process
// never configured its pool).
void submitToRpcPool(std::function<void()> task);

// Oneway calls to one object run one at a time, in the order they arrived, on pool threads.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
  public:
    void post(std::function<void()> task);

  private:
    void drain();
    Mutex mLock;
    std::deque<std::function<void()>> mTasks GUARDED_BY(mLock);
    bool mScheduled GUARDED_BY(mLock) = false;
};

// One socket to another process. Dies when the socket closes; death recipients linked to objects
// of the connection are then told on a pool thread.
class Connection {
  public:
    explicit Connection(std::string peer) : mPeer(std::move(peer)) {}

    bool isAlive() const;
    const std::string& peer() const { return mPeer; }
    // False if the connection is already dead, as linkToDeath on a dead object is.
    bool linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                     const wp<::android::hidl::base::V1_0::IBase>& who);
    bool unlinkToDeath(const sp<hidl_death_recipient>& recipient);
    void markDead();

  private:
    struct Link {
        sp<hidl_death_recipient> recipient;
        uint64_t cookie;
        wp<::android::hidl::base::V1_0::IBase> who;
    };
    const std::string mPeer;
    mutable Mutex mLock;
    bool mAlive GUARDED_BY(mLock) = true;
    std::vector<Link> mLinks GUARDED_BY(mLock);
};

// The status of a call that could not reach the other process.
Status deadObject(const std::string& what);

// How objects of one interface cross: a stub serves a local object to the other side, a proxy
// stands for a remote one. Each package's transport registers its interfaces.
struct InterfaceTransport {
    std::function<capnp::Capability::Client(const sp<::android::hidl::base::V1_0::IBase>&,
                                            const std::shared_ptr<Connection>&)>
            makeStub;
    std::function<sp<::android::hidl::base::V1_0::IBase>(capnp::Capability::Client,
                                                         const std::shared_ptr<Connection>&)>
            makeProxy;
    // The passthrough wrapper of a local object (see Passthrough.h).
    std::function<sp<::android::hidl::base::V1_0::IBase>(
            const sp<::android::hidl::base::V1_0::IBase>&)>
            makePassthrough;
};
void registerInterfaceTransport(const std::string& descriptor, InterfaceTransport transport);

// The object a client in the same process gets: the passthrough wrapper of a local object, the
// object itself if it is remote or already wrapped (or its interface does not cross).
sp<::android::hidl::base::V1_0::IBase> wrapPassthroughBase(
        const sp<::android::hidl::base::V1_0::IBase>& object, const std::string& descriptor);

// The registry of services across processes: one socket per instance in a directory
// ($MOX_HIDL_SERVICE_DIR, else /tmp/mox-hidl-<uid>). A socket nobody answers on is a stale entry
// of a dead service and is removed.
status_t publishService(const sp<::android::hidl::base::V1_0::IBase>& service,
                        const std::string& descriptor, const std::string& name);
sp<::android::hidl::base::V1_0::IBase> connectToService(const std::string& descriptor,
                                                        const std::string& name);
std::string serviceSocketPath(const std::string& descriptor, const std::string& name);

}  // namespace details
}  // namespace hardware
}  // namespace android
