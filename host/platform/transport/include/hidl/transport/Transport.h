// The host's binder: interface objects cross between processes over Unix sockets. A calling thread
// does its own I/O (one write, one blocking read on a socket it checks out); in the process that
// serves, the pool thread that reads a request runs it and writes the reply. Messages are Cap'n
// Proto messages behind a small header (see Frame.h); interface objects cross as ids in a table
// of their session.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <utils/Mutex.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace android {
namespace hardware {
namespace details {

// What one peer may push at this process. Any violation closes that peer's connection only.
namespace limits {
// The largest frame: binder's transaction buffer is 1 MiB, and so is the largest message of a
// call here (a larger one fails with FAILED_TRANSACTION on the sending side).
constexpr size_t kMaxFrameBytes = 1 << 20;
// A peer that stops half way through a frame, or stops reading our replies, is dropped then.
constexpr int kStallTimeoutMs = 2000;
// Sockets this process serves at once, over all peers; further connections are told the service is
// busy and closed at once.
constexpr size_t kMaxConnections = 256;
// Sockets one peer process (by its credentials) may have this process serve at once, so that one
// process cannot take every connection: a quarter of the total, room for three sessions that use
// every socket they may.
constexpr size_t kMaxConnectionsPerPeer = 64;
// Sockets one client session may hold (its calling threads check them out), besides its one
// socket for calls the other way.
constexpr size_t kMaxChannelsPerSession = 16;
// Interface objects one session may hold of this process, and hand to it.
constexpr size_t kMaxObjectsPerSession = 1024;
// Oneway calls of one connection waiting for their turn; reading pauses there until they run.
constexpr size_t kMaxQueuedOneway = 1024;
// Descriptors one frame may carry (its handles' together): a queue's descriptor has one or two,
// a media event's memory one. The kernel's own bound is 253.
constexpr size_t kMaxFdsPerMessage = 16;
// Descriptors one session may make this process hold at once (waiting for their frame, queued
// with oneway calls, or held by a call or reply being read): a few frames' worth.
constexpr size_t kMaxFdsPerSession = 4 * kMaxFdsPerMessage;
// Ints one handle may carry.
constexpr size_t kMaxHandleInts = 256;
// Accepting pauses this long after EMFILE/ENFILE/ENOMEM, doubling up to the second bound.
constexpr int kAcceptBackoffMinMs = 10;
constexpr int kAcceptBackoffMaxMs = 1000;
}  // namespace limits

// Runs a task on one of the process's RPC pool threads (started with one thread if the process
// never configured its pool).
void submitToRpcPool(std::function<void()> task);
// Makes the pool at least this large.
void growRpcPool(size_t threads);

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

class Session;
class IncomingCall;

// How objects of one interface cross: the dispatch of an incoming call to a local object, the
// proxy of a remote one. Each package's transport registers its interfaces.
using StubDispatch = Status (*)(const sp<::android::hidl::base::V1_0::IBase>& object,
                                IncomingCall& call);
using MakeProxy = sp<::android::hidl::base::V1_0::IBase> (*)(const std::shared_ptr<Session>&,
                                                             uint64_t id);
struct InterfaceTransport {
    StubDispatch dispatch = nullptr;
    MakeProxy makeProxy = nullptr;
    // The passthrough wrapper of a local object (see Passthrough.h).
    std::function<sp<::android::hidl::base::V1_0::IBase>(
            const sp<::android::hidl::base::V1_0::IBase>&)>
            makePassthrough;
};
void registerInterfaceTransport(const std::string& descriptor, InterfaceTransport transport);
const InterfaceTransport* findInterfaceTransport(const std::string& descriptor);

// The object a client in the same process gets: the passthrough wrapper of a local object, the
// object itself if it is remote or already wrapped (or its interface does not cross).
sp<::android::hidl::base::V1_0::IBase> wrapPassthroughBase(
        const sp<::android::hidl::base::V1_0::IBase>& object, const std::string& descriptor);

// The registry of services across processes: one socket per instance in a directory
// ($MOX_HIDL_SERVICE_DIR; else $XDG_RUNTIME_DIR/mox-hidl when XDG_RUNTIME_DIR is a real directory
// of this user that no one else may write to, where no other user can make the name first; else
// /tmp/mox-hidl-<uid>). A service publishes only in a real directory of its own user that no one
// else may write to, and its sockets are 0600. A client trusts only a directory that no one but
// its owner may write to, owned by the client's own user, by root, or by the uid in
// $MOX_HIDL_TRUSTED_UID; and a socket only when the process answering on it runs as the
// directory's owner. It removes nothing: a socket nobody answers on (a dead service's) stays until
// a new instance's replaces it.
status_t publishService(const sp<::android::hidl::base::V1_0::IBase>& service,
                        const std::string& descriptor, const std::string& name);
// Removes the sockets this process published (when its pool is told to stop).
void unpublishServices();
sp<::android::hidl::base::V1_0::IBase> connectToService(const std::string& descriptor,
                                                        const std::string& name);
// Why the calling thread's last connectToService gave no object: nothing answers (no service is
// running), the service has no room for another connection now, or the registry or the socket
// is not trusted (`why` then says what to do, in one line, as the log did).
enum class ConnectFailure { kNone, kNotRunning, kBusy, kUntrusted };
ConnectFailure lastConnectFailure(std::string* why = nullptr);
std::string serviceDirectory();
std::string serviceSocketPath(const std::string& descriptor, const std::string& name);

}  // namespace details
}  // namespace hardware
}  // namespace android
