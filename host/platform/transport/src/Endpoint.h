// The serving end of a socket: the pool thread handed it reads the frames that arrived, runs each
// call and writes its reply, queues oneway calls behind earlier ones to the same object, and
// drops a peer that breaks the protocol or stalls.
#pragma once

#include <sys/types.h>
#include <utils/Mutex.h>

#include <atomic>
#include <memory>
#include <vector>

#include "Frame.h"
#include "IoLoop.h"
#include "ReceivedFds.h"

namespace android {
namespace hardware {
namespace details {

class Session;
class Listener;

class Endpoint : public Watched, public std::enable_shared_from_this<Endpoint> {
  public:
    // A socket of a session, or a new connection that must say which session it joins.
    Endpoint(int fd, std::shared_ptr<Session> session);
    // `peer` holds a connection slot for it (see Listener.h), given back when the socket goes.
    Endpoint(int fd, std::shared_ptr<Listener> listener, pid_t peer);
    ~Endpoint() override;

    bool start();
    void onEvent(uint32_t events) override;
    void onTick(SteadyClock::time_point now) override;

  private:
    enum class Step {
        kGoOn,           // wait for more input
        kMore,           // whole frames wait in the buffer: another turn soon
        kWaitForOutput,  // a reply is only partly written
        kPaused,         // too many oneway calls wait: resume when they have run
        kHandedOver,     // the socket became the session's channel for calls to the peer
        kClose,          // the peer left
        kViolation,      // the peer broke the protocol
    };
    Step readAndServe();
    Step serveFrame(const FrameHeader& header, const capnp::word* body, IncomingFds fds);
    Step hello(const FrameHeader& header);
    Step call(const FrameHeader& header, const capnp::word* body, IncomingFds fds);
    Step oneway(const FrameHeader& header, const capnp::word* body, IncomingFds fds);
    Step reply(OutgoingFrame& frame);
    bool flush();
    void onewayDone();
    void close(bool violation);
    void setStall(bool stalled);
    void restartStall();
    void makeRoom();
    void giveBackPeerSlot();

    int mFd;
    std::shared_ptr<Session> mSession;  // set once the socket joined a session
    std::shared_ptr<Listener> mListener;
    const SteadyClock::time_point mOpened;
    const uint32_t mGeneration;
    const pid_t mPeer = 0;
    std::atomic<bool> mHoldsPeerSlot{false};
    // Touched by the thread that handles the current event only.
    WordBuffer mIn;
    size_t mHave = 0;
    std::vector<char> mOut;
    size_t mOutSent = 0;
    std::vector<int> mOutFds;  // a reply's descriptors, until its first bytes are sent
    ReceivedFds mReceived;     // descriptors that came and wait for their frame

    Mutex mLock;
    bool mStalled GUARDED_BY(mLock) = false;
    SteadyClock::time_point mStallSince GUARDED_BY(mLock);
    size_t mQueued GUARDED_BY(mLock) = 0;
    bool mPaused GUARDED_BY(mLock) = false;
    bool mClosed GUARDED_BY(mLock) = false;
    bool mJoined GUARDED_BY(mLock) = false;
};

}  // namespace details
}  // namespace hardware
}  // namespace android
