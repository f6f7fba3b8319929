#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Transport.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

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

}  // namespace

void configureRpcThreadpool(size_t maxThreads, bool /*callerWillJoin*/) {
    // The joining thread only waits for the end of the process; the pool has maxThreads threads
    // of its own, so that up to maxThreads calls run at once.
    setUpWakePipe();
    details::growRpcPool(maxThreads == 0 ? 1 : maxThreads);
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
    // The process stops serving: its registrations go with it, as a dead binder's do.
    details::unpublishServices();
}

void requestRpcThreadpoolExit() {
    setUpWakePipe();
    wake();
}

}  // namespace hardware
}  // namespace android
