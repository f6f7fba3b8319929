#pragma once

#include <pthread.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace android::hardware::tv::tuner::V1_0::implementation {

// The control side of one frontend's scans: which run is to go on, which runs' threads have
// finished, the wait between polls that a stop cuts short, and who releases the tuner after a stop.
//
// Every scan thread is detached. A thread waits for its turn (every earlier run's thread has
// finished), so runs never overlap and come in the order they were started. A stop ends the run
// and wakes its poll wait. Only a thread that runs no client code then waits for the run's thread
// to finish: a scan thread or a thread inside a client callback could be the very thread that the
// scan's callback is waiting for, so it returns at once, and the run's thread releases the tuner
// as it finishes. Either way the release comes after the run's last driver call.
class ScanControl {
  public:
    using Entry = void* (*)(void*);

    ScanControl() = default;
    ScanControl(const ScanControl&) = delete;
    ScanControl& operator=(const ScanControl&) = delete;

    // Ends the current run, if any, and starts a detached thread at entry(args) for a new one.
    // makeArgs(generation) builds the thread's argument as a std::unique_ptr. Returns the new
    // run's generation, or 0 when no thread could be started (its argument is then destroyed).
    template <typename MakeArgs>
    uint64_t start(Entry entry, MakeArgs makeArgs) {
        Mutex::Autolock guard(mLock);
        const uint64_t generation = mStarted + 1;
        auto args = makeArgs(generation);
        if (!launchLocked(entry, args.get(), generation)) return 0;
        args.release();  // the thread owns it now
        return generation;
    }

    // Ends the current run. release() runs once every run started before this call has finished:
    // here, after waiting for that, unless the caller runs client code; otherwise on the last such
    // run's thread as it finishes. It runs under the control lock, so no run starts meanwhile.
    void stop(std::function<void()> release);

    // True while the run of this generation is to go on.
    bool isRunning(uint64_t generation) const { return mRunning.load() == generation; }
    // True from start() until the run is stopped or ends by itself.
    bool anyRunning() const { return mRunning.load() != 0; }
    // The run ends by itself: it no longer counts as running, unless a newer run replaced it.
    void endRun(uint64_t generation);
    // Runs action under the control lock if the run is still to go on, so it cannot race a stop.
    void ifRunning(uint64_t generation, const std::function<void()>& action);

    // The pause before a poll; a stop of the run ends it early.
    void waitBeforePoll(uint64_t generation, uint32_t microseconds);

    // The thread of one run, for its whole life: waits for the run's turn, counts as running
    // client code, and marks the run finished when it goes (running the releases its stops left).
    class Turn {
      public:
        Turn(ScanControl& control, uint64_t generation);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        ScanControl& mControl;
        const uint64_t mGeneration;
    };

    // Marks the current thread as running client code for the scope's length: a client callback,
    // or a whole scan thread. Such a thread never waits for a scan thread.
    class ClientCodeScope {
      public:
        ClientCodeScope();
        ~ClientCodeScope();
        ClientCodeScope(const ClientCodeScope&) = delete;
        ClientCodeScope& operator=(const ClientCodeScope&) = delete;
    };
    static bool runningClientCode();

  private:
    bool launchLocked(Entry entry, void* args, uint64_t generation) REQUIRES(mLock);
    // True when the time passed with the run still going.
    bool waitWhileRunning(uint64_t generation, uint32_t microseconds);

    mutable Mutex mLock;
    Condition mChanged;                        // a run started, stopped or finished
    uint64_t mStarted GUARDED_BY(mLock) = 0;   // generation of the newest run started
    uint64_t mFinished GUARDED_BY(mLock) = 0;  // generation of the newest run whose thread ended
    // Releases owed by stops from client code: the generation whose end each one waits for.
    std::vector<std::pair<uint64_t, std::function<void()>>> mOwedReleases GUARDED_BY(mLock);
    // The generation of the run that is to go on, 0 when none. Written under mLock; read without
    // it by the scan loops.
    std::atomic<uint64_t> mRunning{0};
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
