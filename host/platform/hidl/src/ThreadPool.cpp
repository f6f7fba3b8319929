#include <hidl/HidlTransportSupport.h>
#include <signal.h>
#include <unistd.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <cerrno>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace android {
namespace hardware {
namespace {

// A self-pipe: the signal handler and requestRpcThreadpoolExit() write a byte, the joined thread
// reads it. Writing to a pipe is async-signal-safe.
int gWakeFds[2] = {-1, -1};
std::once_flag gWakeOnce;

void wake() {
    const char byte = 1;
    ssize_t ignored = write(gWakeFds[1], &byte, 1);
    (void)ignored;
}

void onStopSignal(int) {
    int savedErrno = errno;
    wake();
    errno = savedErrno;
}

void setUpWakePipe() {
    std::call_once(gWakeOnce, [] {
        if (pipe(gWakeFds) != 0) gWakeFds[0] = gWakeFds[1] = -1;
    });
}

// The threads that run incoming calls: calls from other processes to this one's objects, and
// oneway calls to this process's callbacks. Workers live as long as the process.
class RpcPool {
  public:
    void grow(size_t threads) {
        AutoMutex guard(mLock);
        while (mThreads < threads) {
            ++mThreads;
            std::thread([this] { work(); }).detach();
        }
    }
    void submit(std::function<void()> task) {
        {
            AutoMutex guard(mLock);
            if (mThreads == 0) {
                ++mThreads;  // a process that never configured its pool gets one thread
                std::thread([this] { work(); }).detach();
            }
            mTasks.push_back(std::move(task));
        }
        mWork.signal();
    }

  private:
    void work() {
        for (;;) {
            std::function<void()> task;
            {
                AutoMutex guard(mLock);
                while (mTasks.empty()) mWork.wait(mLock);
                task = std::move(mTasks.front());
                mTasks.pop_front();
            }
            task();
        }
    }

    Mutex mLock;
    Condition mWork;
    std::deque<std::function<void()>> mTasks GUARDED_BY(mLock);
    size_t mThreads GUARDED_BY(mLock) = 0;
};

RpcPool& pool() {
    static RpcPool* instance = new RpcPool();  // never destroyed: its threads outlive main()
    return *instance;
}

}  // namespace

namespace details {
void submitToRpcPool(std::function<void()> task) {
    pool().submit(std::move(task));
}
}  // namespace details

void configureRpcThreadpool(size_t maxThreads, bool /*callerWillJoin*/) {
    // The joining thread only waits for the end of the process; the pool has maxThreads threads
    // of its own, so that up to maxThreads calls run at once.
    setUpWakePipe();
    pool().grow(maxThreads == 0 ? 1 : maxThreads);
}

void joinRpcThreadpool() {
    setUpWakePipe();
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    char byte;
    while (read(gWakeFds[0], &byte, 1) < 0 && errno == EINTR) {
    }
}

void requestRpcThreadpoolExit() {
    setUpWakePipe();
    wake();
}

}  // namespace hardware
}  // namespace android
