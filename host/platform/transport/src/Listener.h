// The listening socket of a published service: accepts connections while descriptors last (an
// accept that fails for want of them pauses and retries, with a back-off), caps the sockets
// served, in all and per peer process, and knows the sessions it opened, so a client's further
// sockets join its own.
#pragma once

#include <hidl/transport/Transport.h>
#include <sys/types.h>
#include <utils/Mutex.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "IoLoop.h"

namespace android {
namespace hardware {
namespace details {

class Session;

class Listener : public Watched, public std::enable_shared_from_this<Listener> {
  public:
    Listener(int fd, sp<::android::hidl::base::V1_0::IBase> service, StubDispatch dispatch,
             std::string descriptor);
    ~Listener() override;

    bool start();
    void onEvent(uint32_t events) override;
    void onTick(SteadyClock::time_point now) override;

    // A new session of a client process, with the service as its root object.
    std::shared_ptr<Session> newSession(pid_t peer);
    // The session a further socket of the same client process joins.
    std::shared_ptr<Session> findSession(uint64_t token, pid_t peer);

    // The connections each peer process has this process serve, over every published service: a
    // slot is taken when a connection is accepted (false when the peer holds its share) and
    // given back when its socket closes or joins a session as its socket for calls the other way.
    static bool enter(pid_t peer);
    static void leave(pid_t peer);

  private:
    void backOff(int error);
    void refuse(int fd);

    const int mFd;
    const uint32_t mGeneration;
    const sp<::android::hidl::base::V1_0::IBase> mService;
    const StubDispatch mDispatch;
    const std::string mDescriptor;

    Mutex mLock;
    struct Opened {
        std::weak_ptr<Session> session;
        pid_t peer;
    };
    std::unordered_map<uint64_t, Opened> mSessions GUARDED_BY(mLock);
    bool mWaiting GUARDED_BY(mLock) = false;  // accepting paused until mRetryAt
    SteadyClock::time_point mRetryAt GUARDED_BY(mLock);
    int mBackoffMs GUARDED_BY(mLock) = limits::kAcceptBackoffMinMs;
    bool mWarnedFull GUARDED_BY(mLock) = false;
};

}  // namespace details
}  // namespace hardware
}  // namespace android
