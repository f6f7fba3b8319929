// The RPC pool: threads that take turns at one epoll set. A thread that is handed a socket reads
// it, runs what arrived and writes the reply itself; the set also holds the pool's task queue
// (oneway calls, death notices) and the listening sockets of published services. Each socket is
// armed for one event at a time, so one thread at a time owns it.
#pragma once

#include <utils/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>

namespace android {
namespace hardware {
namespace details {

using SteadyClock = std::chrono::steady_clock;

// Something in the epoll set.
class Watched {
  public:
    virtual ~Watched() = default;
    // Runs on a pool thread, for the one event the object was armed for.
    virtual void onEvent(uint32_t events) = 0;
    // Runs about ten times a second on a pool thread, beside the events: time-outs.
    virtual void onTick(SteadyClock::time_point /*now*/) {}
};

class IoLoop {
  public:
    // The loop of this process (a forked child gets a new one).
    static IoLoop& get();

    void grow(size_t threads);
    void submit(std::function<void()> task);

    // Adds an object for one event on fd (EPOLLIN, EPOLLOUT ...); the loop holds it until removed.
    bool add(const std::shared_ptr<Watched>& watched, int fd, uint32_t events);
    // Arms it for its next event.
    void rearm(Watched* watched, int fd, uint32_t events);
    // Takes it out of the set; it is released once its current event is handled.
    void remove(Watched* watched, int fd);
    // Sockets served now: the connection cap counts these.
    size_t servedCount() const;

  private:
    IoLoop();
    void run();
    void runOneTask();
    void tick();

    int mEpoll = -1;
    int mTasksReady = -1;  // an eventfd counting queued tasks
    int mTicks = -1;       // a timerfd: time-outs are checked on each of its expirations
    mutable Mutex mLock;
    std::deque<std::function<void()>> mTasks GUARDED_BY(mLock);
    size_t mThreads GUARDED_BY(mLock) = 0;
    std::map<Watched*, std::shared_ptr<Watched>> mWatched GUARDED_BY(mLock);
};

// A large buffer was given back: the next tick hands the heap's free pages back to the system, so
// that what a peer made this process hold does not stay resident once it is gone.
void noteLargeBufferFreed();

// Every socket and descriptor of the transport, so that a forked child can close the ones it
// inherited (they belong to its parent's sessions).
int trackFd(int fd);
void closeTrackedFd(int fd);

}  // namespace details
}  // namespace hardware
}  // namespace android
