#include "ServiceCalls.h"

#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "ExitCodes.h"
#include "Output.h"
#include "TunerClient.h"

namespace tunerctl {
namespace {

using Clock = std::chrono::steady_clock;

// The watchdog's state. Never destroyed: its thread waits on it until the process ends.
struct Watchdog {
    std::mutex lock;
    std::condition_variable changed;
    std::chrono::milliseconds timeout{10000};
    const char* waitingFor = nullptr;  // the call under way, if any
    Clock::time_point deadline;
};
Watchdog& watchdog() {
    static auto* instance = new Watchdog();
    return *instance;
}

[[noreturn]] void endWith(const std::string& message) {
    reportFailure(jsonOutput(), kServiceError, message);
    fflush(stdout);
    fflush(stderr);
    _exit(kServiceError);  // other threads may be inside the transport: no static destructors
}

void watch() {
    Watchdog& w = watchdog();
    std::unique_lock<std::mutex> lock(w.lock);
    for (;;) {
        if (w.waitingFor == nullptr) {
            w.changed.wait(lock);
            continue;
        }
        const Clock::time_point deadline = w.deadline;
        w.changed.wait_until(lock, deadline);
        if (w.waitingFor != nullptr && w.deadline == deadline && Clock::now() >= deadline) {
            char limit[32];
            snprintf(limit, sizeof(limit), "%g s", std::chrono::duration<double>(w.timeout).count());
            endWith(std::string("no answer from the tuner service within ") + limit + " (" +
                    w.waitingFor + "): is it stopped?");
        }
    }
}

}  // namespace

void setCallTimeout(std::chrono::milliseconds timeout) {
    Watchdog& w = watchdog();
    std::lock_guard<std::mutex> guard(w.lock);
    w.timeout = timeout;
}

void serviceLost(const std::string& during) {
    endWith("the tuner service died (during " + during + ")");
}

CallDeadline::CallDeadline(const char* what) {
    static const bool kWatching = [] {
        std::thread(watch).detach();
        return true;
    }();
    (void)kWatching;
    Watchdog& w = watchdog();
    std::lock_guard<std::mutex> guard(w.lock);
    mPrevious = w.waitingFor;
    w.waitingFor = what;
    w.deadline = Clock::now() + w.timeout;
    w.changed.notify_all();
}

CallDeadline::~CallDeadline() {
    Watchdog& w = watchdog();
    std::lock_guard<std::mutex> guard(w.lock);
    w.waitingFor = mPrevious;
    if (mPrevious != nullptr) w.deadline = Clock::now() + w.timeout;
    w.changed.notify_all();
}

}  // namespace tunerctl
