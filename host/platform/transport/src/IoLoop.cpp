#include "IoLoop.h"

#include <log/log.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Session.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#include <sanitizer/tsan_interface.h>
#define IOLOOP_UNDER_TSAN 1
#endif
#endif

namespace android {
namespace hardware {
namespace details {
namespace {

// Arming a socket hands it to whichever thread epoll wakes next: what the arming thread wrote is
// seen by that thread. ThreadSanitizer's epoll model covers EPOLL_CTL_ADD only, so each handoff is
// marked on the object handed over.
#ifdef IOLOOP_UNDER_TSAN
void handOver(Watched* watched) {
    __tsan_release(watched);
}
void takeOver(Watched* watched) {
    __tsan_acquire(watched);
}
#else
void handOver(Watched*) {}
void takeOver(Watched*) {}
#endif

constexpr int kTickMs = 100;
// The epoll data of the task queue's eventfd and of the tick's timerfd.
char gTaskMarker;
char gTickMarker;

std::atomic<uint32_t> gGeneration{0};
std::atomic<bool> gLargeBufferFreed{false};
std::atomic<IoLoop*> gLoop{nullptr};
std::atomic<size_t> gConfiguredThreads{0};

// The transport's descriptors. Its lock is held across fork, so a child sees the set whole.
std::mutex gFdLock;
std::set<int>& trackedFds() {
    static auto* fds = new std::set<int>();
    return *fds;
}

void beforeFork() {
    gFdLock.lock();
}
void afterForkInParent() {
    gFdLock.unlock();
}
void afterForkInChild() {
    // The child's only thread: the parent's sockets, pool and loop stay the parent's.
    for (int fd : trackedFds()) close(fd);
    trackedFds().clear();
    gFdLock.unlock();
    gLoop.store(nullptr);
    gGeneration.fetch_add(1);
}

const bool kForkHandlers = [] {
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    return true;
}();

}  // namespace

uint32_t processGeneration() {
    return gGeneration.load(std::memory_order_relaxed);
}

void noteLargeBufferFreed() {
    gLargeBufferFreed.store(true, std::memory_order_relaxed);
}

int trackFd(int fd) {
    if (fd < 0) return fd;
    std::lock_guard<std::mutex> guard(gFdLock);
    trackedFds().insert(fd);
    return fd;
}

void closeTrackedFd(int fd) {
    if (fd < 0) return;
    {
        std::lock_guard<std::mutex> guard(gFdLock);
        trackedFds().erase(fd);
    }
    close(fd);
}

IoLoop& IoLoop::get() {
    (void)kForkHandlers;
    IoLoop* loop = gLoop.load(std::memory_order_acquire);
    if (loop != nullptr) return *loop;
    auto* created = new IoLoop();  // lives as long as the process: its threads never end
    if (gLoop.compare_exchange_strong(loop, created)) {
        const size_t configured = gConfiguredThreads.load();
        if (configured > 0) created->grow(configured);
        return *created;
    }
    closeTrackedFd(created->mEpoll);
    closeTrackedFd(created->mTasksReady);
    closeTrackedFd(created->mTicks);
    delete created;
    return *loop;
}

IoLoop::IoLoop() {
    mEpoll = trackFd(epoll_create1(EPOLL_CLOEXEC));
    mTasksReady = trackFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
    LOG_ALWAYS_FATAL_IF(mEpoll < 0 || mTasksReady < 0, "no epoll set for the RPC pool");
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &gTaskMarker;
    epoll_ctl(mEpoll, EPOLL_CTL_ADD, mTasksReady, &event);
    // The tick goes to whichever thread is free, one at a time.
    mTicks = trackFd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    itimerspec period{};
    period.it_interval.tv_nsec = kTickMs * 1000000L;
    period.it_value = period.it_interval;
    timerfd_settime(mTicks, 0, &period, nullptr);
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.ptr = &gTickMarker;
    epoll_ctl(mEpoll, EPOLL_CTL_ADD, mTicks, &event);
}

void IoLoop::grow(size_t threads) {
    size_t configured = gConfiguredThreads.load();
    while (configured < threads && !gConfiguredThreads.compare_exchange_weak(configured, threads)) {
    }
    AutoMutex guard(mLock);
    while (mThreads < threads) {
        ++mThreads;
        std::thread([this] { run(); }).detach();
    }
}

void IoLoop::submit(std::function<void()> task) {
    {
        AutoMutex guard(mLock);
        if (mThreads == 0) {
            ++mThreads;  // a process that never configured its pool gets one thread
            std::thread([this] { run(); }).detach();
        }
        mTasks.push_back(std::move(task));
    }
    const uint64_t one = 1;
    ssize_t ignored = write(mTasksReady, &one, sizeof(one));
    (void)ignored;
}

bool IoLoop::add(const std::shared_ptr<Watched>& watched, int fd, uint32_t events) {
    {
        AutoMutex guard(mLock);
        if (mThreads == 0) {
            ++mThreads;
            std::thread([this] { run(); }).detach();
        }
        mWatched[watched.get()] = watched;
    }
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.ptr = watched.get();
    handOver(watched.get());
    if (epoll_ctl(mEpoll, EPOLL_CTL_ADD, fd, &event) == 0) return true;
    AutoMutex guard(mLock);
    mWatched.erase(watched.get());
    return false;
}

void IoLoop::rearm(Watched* watched, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.ptr = watched;
    handOver(watched);
    // The raw system call: ThreadSanitizer would count epoll_ctl as a use of fd on this thread,
    // racing with the close by the thread the socket is handed to, which cannot happen before it.
    syscall(SYS_epoll_ctl, mEpoll, EPOLL_CTL_MOD, fd, &event);
}

namespace {
// What a thread removed during its event: destroyed after the event's handler has returned.
thread_local std::vector<std::shared_ptr<Watched>> tRemoved;
}  // namespace

void IoLoop::remove(Watched* watched, int fd) {
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, fd, nullptr);
    AutoMutex guard(mLock);
    auto it = mWatched.find(watched);
    if (it == mWatched.end()) return;
    tRemoved.push_back(std::move(it->second));
    mWatched.erase(it);
}

size_t IoLoop::servedCount() const {
    AutoMutex guard(mLock);
    return mWatched.size();
}

void IoLoop::runOneTask() {
    uint64_t count = 0;
    if (read(mTasksReady, &count, sizeof(count)) != sizeof(count)) return;
    std::function<void()> task;
    {
        AutoMutex guard(mLock);
        if (mTasks.empty()) return;
        task = std::move(mTasks.front());
        mTasks.pop_front();
    }
    task();
}

void IoLoop::tick() {
    uint64_t expirations = 0;
    ssize_t ignored = read(mTicks, &expirations, sizeof(expirations));
    (void)ignored;
    const auto now = SteadyClock::now();
    std::vector<std::shared_ptr<Watched>> watched;
    {
        AutoMutex guard(mLock);
        watched.reserve(mWatched.size());
        for (auto& entry : mWatched) watched.push_back(entry.second);
    }
    for (auto& w : watched) w->onTick(now);
    watched.clear();
    // At most once a tick, however many connections went.
    if (gLargeBufferFreed.exchange(false, std::memory_order_relaxed)) malloc_trim(0);
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.ptr = &gTickMarker;
    epoll_ctl(mEpoll, EPOLL_CTL_MOD, mTicks, &event);
}

void IoLoop::run() {
    for (;;) {
        epoll_event event{};
        if (epoll_wait(mEpoll, &event, 1, -1) <= 0) continue;
        if (event.data.ptr == &gTaskMarker) {
            runOneTask();
        } else if (event.data.ptr == &gTickMarker) {
            tick();
        } else {
            auto* watched = static_cast<Watched*>(event.data.ptr);
            takeOver(watched);
            watched->onEvent(event.events);
        }
        tRemoved.clear();
    }
}

void submitToRpcPool(std::function<void()> task) {
    IoLoop::get().submit(std::move(task));
}

void growRpcPool(size_t threads) {
    IoLoop::get().grow(threads);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
