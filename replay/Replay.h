// A recorded session, run again: the service is driven with the trace's client calls in their
// order, the driver answers from the trace, and every driver call, return and callback the
// service makes is compared with the one the trace holds.
//
// Order: a client call goes out once every record before it has been seen again; a driver call
// waits for the client calls recorded before it. Calls to one tuner (one LNB) keep their order;
// callbacks keep theirs per object; different tuners interleave freely. Poll waits take no time,
// except that a waiting service thread lets a due client call go first, as it did on the box.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "frontend/PollWait.h"
#include "recorder/TraceRecorder.h"
#include "replay/Trace.h"

namespace mox::trace {

struct Divergence {
    int line;
    std::string expected;
    std::string came;
};

class Replay final : public TraceSink {
  public:
    // With keepGoing, a divergence is noted and the replay goes on: a call the trace lacks is
    // answered by fallback (the simulator), a record the service no longer makes is skipped.
    Replay(const Trace& trace, bool keepGoing);
    ~Replay() override;

    // Runs the whole session; false when it diverged.
    bool run();
    std::vector<Divergence> divergences() const;
    // "N driver calls, M client calls, K callbacks"
    std::string counts() const;

    // A driver call from the service: answered from the trace (filled gets the recorded record),
    // or by fallback where the trace has nothing for it.
    int answer(DriverCall& call, void* filled, const std::function<int()>& fallback);
    // A poll wait of the service.
    void pollWait(uint32_t microseconds,
                  android::hardware::tv::tuner::V1_0::implementation::PollInterrupt* interrupt);
    // Virtual time since the session began, in microseconds.
    uint64_t nowUs() const;

    void driverCall(uint64_t, uint32_t, DriverCall&&) override {}
    void interfaceRecord(uint64_t timeUs, uint32_t thread, std::string&& body) override;

  private:
    struct Caller {
        std::vector<size_t> calls;
        bool busy = false;
    };
    using Clock = std::chrono::steady_clock;

    void callerLoop(uint32_t thread);
    void issue(size_t index);
    void consumeLocked(size_t index) REQUIRES(mLock);
    void divergeLocked(int line, std::string expected, std::string came) REQUIRES(mLock);
    bool issuableLocked() const REQUIRES(mLock);
    bool mustHoldLocked(uint32_t caller) const REQUIRES(mLock);
    bool driverReadyLocked(size_t index) const REQUIRES(mLock);
    bool doneLocked() const REQUIRES(mLock);
    void stalledLocked() REQUIRES(mLock);
    void skipLocked(size_t index) REQUIRES(mLock);
    void waitLocked(std::chrono::microseconds bound) REQUIRES(mLock);
    // The line of the last record of a channel or object: where a call beyond them came.
    int lastLineOf(const std::string& key) const;
    void compareReturn(const nlohmann::json& came, const std::string& text);
    void compareCallback(const nlohmann::json& came, const std::string& text);

    const Trace& mTrace;
    const bool mKeepGoing;
    const uint64_t mStartUs;
    mutable android::Mutex mLock;
    android::Condition mChanged;  // a record was consumed, a call went out or returned
    std::vector<bool> mConsumed GUARDED_BY(mLock);
    size_t mPrefix GUARDED_BY(mLock) = 0;  // every record before it is consumed
    std::vector<size_t> mCalls;            // the client calls, in the trace's order
    size_t mNextCall GUARDED_BY(mLock) = 0;
    std::map<std::string, std::deque<size_t>> mChannels GUARDED_BY(mLock);
    std::map<uint32_t, std::deque<size_t>> mCallbacks GUARDED_BY(mLock);
    std::map<std::string, int> mLastLineOf;  // of each channel's and object's records; const
                                             // after construction
    std::map<uint32_t, Caller> mCallers GUARDED_BY(mLock);
    size_t mCallersDone GUARDED_BY(mLock) = 0;
    // The objects callers that are done were handed, kept until the replay ends.
    std::vector<::android::sp<::android::hidl::base::V1_0::IBase>> mKept GUARDED_BY(mLock);
    // Calls and callbacks the trace has no record for, waiting for the trace to end.
    // Each is the line after which it came and what came; one reported is taken out, and its
    // caller then goes on to the simulator.
    std::map<uint64_t, std::pair<int, std::string>> mExtras GUARDED_BY(mLock);
    uint64_t mNextExtra GUARDED_BY(mLock) = 0;
    std::vector<Divergence> mDivergences GUARDED_BY(mLock);
    bool mStopped GUARDED_BY(mLock) = false;
    Clock::time_point mLastProgress GUARDED_BY(mLock);
    uint64_t mNowUs GUARDED_BY(mLock) = 0;
    size_t mDriverCalls GUARDED_BY(mLock) = 0;
    size_t mClientCalls GUARDED_BY(mLock) = 0;
    size_t mCallbacksSeen GUARDED_BY(mLock) = 0;
    std::vector<std::thread> mThreads;
};

// The replay the driver's entry points and the poll wait of this process answer from.
Replay* activeReplay();
void setActiveReplay(Replay* replay);

}  // namespace mox::trace
