#include "replay/Replay.h"

#include <atomic>
#include <cstring>

#include "recorder/InterfaceRecording.h"
#include "tunerTraceRead.h"

namespace mox::trace {
namespace {

using android::sp;
using android::hidl::base::V1_0::IBase;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || defined(TUNER_UNDER_EMULATION)
constexpr int kSlowdown = 5;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
constexpr int kSlowdown = 5;
#else
constexpr int kSlowdown = 1;
#endif
#else
constexpr int kSlowdown = 1;
#endif
// Real time in which nothing of the trace came again: what the service was to do next did not
// come, or it is stuck on a call the trace does not have.
constexpr std::chrono::milliseconds kStall{2000 * kSlowdown};
// The longest a poll wait holds a service thread for a client call to go first, should that call
// itself wait for the thread.
constexpr std::chrono::milliseconds kHoldBound{50 * kSlowdown};

std::atomic<Replay*> gReplay{nullptr};
thread_local uint32_t tCaller = 0;  // the recorded thread this caller stands for
// What the caller on this thread was handed, held as the client held it.
thread_local std::vector<sp<IBase>> tKept;
thread_local size_t tCall = SIZE_MAX;  // the call it is making

std::string describeCall(const DriverCall& call) {
    std::string text = "{";
    formatDriverCall(text, call);
    return text + "}";
}

bool sameCall(const TraceRecord& r, const DriverCall& call) {
    return r.function == call.function && r.target == call.target && r.value == call.value &&
           r.in == call.in;
}

}  // namespace

Replay* activeReplay() {
    return gReplay.load();
}

void setActiveReplay(Replay* replay) {
    gReplay.store(replay);
}

Replay::Replay(const Trace& trace, bool keepGoing)
    : mTrace(trace),
      mKeepGoing(keepGoing),
      mStartUs(trace.records.empty() ? 0 : trace.records.front().timeUs) {
    android::Mutex::Autolock guard(mLock);
    mConsumed.assign(trace.records.size(), false);
    for (size_t i = 0; i < trace.records.size(); ++i) {
        const TraceRecord& r = trace.records[i];
        switch (r.kind) {
            case TraceRecord::Kind::Driver: {
                const std::string channel = channelOf(r.function, r.target);
                mChannels[channel].push_back(i);
                mLastLineOf[channel] = r.line;
                break;
            }
            case TraceRecord::Kind::Call:
                mCalls.push_back(i);
                mCallers[r.thread].calls.push_back(i);
                break;
            case TraceRecord::Kind::Callback:
                mCallbacks[r.object].push_back(i);
                mLastLineOf["object " + std::to_string(r.object)] = r.line;
                break;
            case TraceRecord::Kind::Return:
                if (mLastLineOf.count("return") == 0) mLastLineOf["return"] = r.line;
                break;
            case TraceRecord::Kind::End:
                break;
        }
    }
    // A return no call of the trace made (the call began before the recording) is not waited for.
    std::vector<bool> paired(trace.records.size(), false);
    for (size_t c : mCalls) {
        if (trace.records[c].returnIndex != SIZE_MAX) paired[trace.records[c].returnIndex] = true;
    }
    for (size_t i = 0; i < trace.records.size(); ++i) {
        if (trace.records[i].kind == TraceRecord::Kind::Return && !paired[i]) mConsumed[i] = true;
    }
    while (mPrefix < mConsumed.size() && mConsumed[mPrefix]) ++mPrefix;
    mLastProgress = Clock::now();
}

Replay::~Replay() {
    for (std::thread& t : mThreads) {
        if (t.joinable()) t.detach();
    }
}

bool Replay::run() {
    std::vector<uint32_t> callers;
    {
        android::Mutex::Autolock guard(mLock);
        for (const auto& entry : mCallers) callers.push_back(entry.first);
        mLastProgress = Clock::now();
    }
    for (uint32_t thread : callers) mThreads.emplace_back([this, thread] { callerLoop(thread); });
    bool stopped;
    {
        android::Mutex::Autolock guard(mLock);
        while (!mStopped && !doneLocked()) {
            waitLocked(std::chrono::milliseconds(50));
            if (Clock::now() - mLastProgress > kStall) stalledLocked();
        }
        stopped = mStopped;
    }
    // After a divergence a caller may be stuck in a call the trace will not answer: let it be.
    for (std::thread& t : mThreads) stopped ? t.detach() : t.join();
    mThreads.clear();
    if (stopped) return false;
    android::Mutex::Autolock guard(mLock);
    return mDivergences.empty();
}

std::vector<Divergence> Replay::divergences() const {
    android::Mutex::Autolock guard(mLock);
    return mDivergences;
}

std::string Replay::counts() const {
    android::Mutex::Autolock guard(mLock);
    return std::to_string(mDriverCalls) + " driver calls, " + std::to_string(mClientCalls) +
           " client calls, " + std::to_string(mCallbacksSeen) + " callbacks";
}

uint64_t Replay::nowUs() const {
    android::Mutex::Autolock guard(mLock);
    return mNowUs;
}

// ---- the client's side ----

void Replay::callerLoop(uint32_t thread) {
    tCaller = thread;
    std::vector<size_t> calls;
    {
        android::Mutex::Autolock guard(mLock);
        calls = mCallers[thread].calls;
    }
    for (size_t index : calls) {
        {
            android::Mutex::Autolock guard(mLock);
            while (!mStopped && mPrefix != index) waitLocked(std::chrono::milliseconds(50));
            if (mStopped) break;
            consumeLocked(index);
            ++mNextCall;
            ++mClientCalls;
            mCallers[thread].busy = true;
        }
        issue(index);
        android::Mutex::Autolock guard(mLock);
        mCallers[thread].busy = false;
        mChanged.broadcast();
    }
    android::Mutex::Autolock guard(mLock);
    // What this caller was handed stays for the callers after it: a service puts right what a
    // client that is gone left (it stops its tune), through the objects it had handed out.
    for (sp<IBase>& object : tKept) mKept.push_back(std::move(object));
    tKept.clear();
    ++mCallersDone;
    mChanged.broadcast();
}

void Replay::issue(size_t index) {
    const TraceRecord& r = mTrace.records[index];
    std::vector<sp<IBase>>& keep = tKept;
    const sp<IBase> object = objectNumbered(r.object);
    if (object == nullptr) {
        android::Mutex::Autolock guard(mLock);
        divergeLocked(r.line, r.text, "no object numbered " + std::to_string(r.object));
        return;
    }
    tCall = index;
    std::string error;
    if (!tuner::invoke(object, r.method, r.members, true, keep, error)) {
        android::Mutex::Autolock guard(mLock);
        divergeLocked(r.line, r.text,
                      "object " + std::to_string(r.object) + " is not one: " + error);
    }
    tCall = SIZE_MAX;
}

// ---- what the service does ----

int Replay::answer(DriverCall& call, void* filled, const std::function<int()>& fallback) {
    const std::string channel = channelOf(call.function, call.target);
    {
        android::Mutex::Autolock guard(mLock);
        const std::string came = describeCall(call);
        uint64_t extra = 0;
        for (;;) {
            if (mStopped) break;
            auto& queue = mChannels[channel];
            if (queue.empty()) {
                if (mPrefix >= mConsumed.size()) break;  // past the end of the trace
                // Nothing more for this tuner, yet the trace goes on: a call it does not have,
                // unless the trace ends first.
                if (extra == 0) {
                    extra = ++mNextExtra;
                    mExtras[extra] = {lastLineOf(channel), came};
                } else if (mExtras.count(extra) == 0) {
                    break;  // reported, and let go to the simulator
                }
                waitLocked(std::chrono::milliseconds(50));
                continue;
            }
            const size_t index = queue.front();
            if (!driverReadyLocked(index)) {
                waitLocked(std::chrono::milliseconds(50));
                continue;
            }
            const TraceRecord& r = mTrace.records[index];
            const bool same = sameCall(r, call);
            if (!same) divergeLocked(r.line, r.text, came);
            // A changed call stands for the recorded one; another function is one call more.
            if (!same && (!mKeepGoing || r.function != call.function)) break;
            if (filled != nullptr) memcpy(filled, r.out.data(), r.out.size());
            queue.pop_front();
            consumeLocked(index);
            mExtras.erase(extra);
            ++mDriverCalls;
            return r.result;
        }
        mExtras.erase(extra);
    }
    return fallback();
}

int Replay::lastLineOf(const std::string& key) const {
    const auto found = mLastLineOf.find(key);
    return found != mLastLineOf.end() ? found->second : 1;
}

bool Replay::driverReadyLocked(size_t index) const {
    // Every client call recorded before it has gone out.
    return mNextCall >= mCalls.size() || mCalls[mNextCall] > index;
}

void Replay::interfaceRecord(uint64_t, uint32_t, std::string&& body) {
    const nlohmann::json record = nlohmann::json::parse("{" + body + "}", nullptr, false);
    const std::string text = "{" + body + "}";
    if (record.contains("return")) {
        compareReturn(record, text);
    } else if (record.contains("callback")) {
        compareCallback(record, text);
    }
    // A call record is the replay's own call going out.
}

void Replay::compareReturn(const nlohmann::json& came, const std::string& text) {
    if (tCall == SIZE_MAX) return;
    const size_t index = mTrace.records[tCall].returnIndex;
    if (index == SIZE_MAX) return;  // the recording ended during the call
    const TraceRecord& r = mTrace.records[index];
    const bool same = r.transportError ? came.contains("transportError")
                                       : came.value("results", nlohmann::json()) == r.members;
    android::Mutex::Autolock guard(mLock);
    if (mStopped) return;
    if (!same) {
        divergeLocked(r.line, r.text, text);
        if (!mKeepGoing) return;
    }
    consumeLocked(index);
}

void Replay::compareCallback(const nlohmann::json& came, const std::string& text) {
    const uint32_t object = came.value("object", 0u);
    const std::string key = "object " + std::to_string(object);
    android::Mutex::Autolock guard(mLock);
    uint64_t extra = 0;
    while (!mStopped) {
        auto& queue = mCallbacks[object];
        if (queue.empty()) {
            if (mPrefix >= mConsumed.size()) break;
            if (extra == 0) {
                extra = ++mNextExtra;
                mExtras[extra] = {lastLineOf(key), text};
            } else if (mExtras.count(extra) == 0) {
                break;
            }
            waitLocked(std::chrono::milliseconds(50));
            continue;
        }
        const size_t index = queue.front();
        const TraceRecord& r = mTrace.records[index];
        const bool same = came.value("callback", "") == r.method &&
                          came.value("args", nlohmann::json()) == r.members;
        if (!same) {
            divergeLocked(r.line, r.text, text);
            if (!mKeepGoing || came.value("callback", "") != r.method) break;
        }
        queue.pop_front();
        consumeLocked(index);
        mExtras.erase(extra);
        ++mCallbacksSeen;
        return;
    }
    mExtras.erase(extra);
}

// ---- time ----

void Replay::pollWait(uint32_t microseconds,
                      android::hardware::tv::tuner::V1_0::implementation::PollInterrupt* interrupt) {
    android::Mutex::Autolock guard(mLock);
    mNowUs += microseconds;
    const Clock::time_point bound = Clock::now() + kHoldBound;
    while (mustHoldLocked(tCaller) && Clock::now() < bound) {
        if (interrupt == nullptr) {
            waitLocked(std::chrono::milliseconds(1));
            continue;
        }
        // A stop cuts the wait short, as it does on the box.
        mLock.unlock();
        const bool waitedFully = interrupt->waitFor(1000);
        mLock.lock();
        if (!waitedFully) break;
    }
}

bool Replay::issuableLocked() const {
    return mNextCall < mCalls.size() && mCalls[mNextCall] == mPrefix &&
           !mCallers.at(mTrace.records[mCalls[mNextCall]].thread).busy;
}

bool Replay::mustHoldLocked(uint32_t caller) const {
    if (mStopped) return false;
    // A client call that is due goes first; so does one under way on another thread.
    if (issuableLocked()) return true;
    for (const auto& [thread, state] : mCallers) {
        if (state.busy && thread != caller) return true;
    }
    return false;
}

// ---- bookkeeping ----

void Replay::consumeLocked(size_t index) {
    mConsumed[index] = true;
    while (mPrefix < mConsumed.size() && mConsumed[mPrefix]) ++mPrefix;
    const uint64_t at = mTrace.records[index].timeUs - mStartUs;
    if (at > mNowUs) mNowUs = at;
    mLastProgress = Clock::now();
    mChanged.broadcast();
}

void Replay::divergeLocked(int line, std::string expected, std::string came) {
    mDivergences.push_back({line, std::move(expected), std::move(came)});
    if (!mKeepGoing) mStopped = true;
    mChanged.broadcast();
}

bool Replay::doneLocked() const {
    return mPrefix >= mConsumed.size() && mCallersDone == mCallers.size();
}

void Replay::stalledLocked() {
    if (!mExtras.empty()) {
        // Something the trace does not have holds the service up: reported, and let go.
        const std::pair<int, std::string> extra = mExtras.begin()->second;
        mExtras.erase(mExtras.begin());
        divergeLocked(extra.first, "nothing more here", extra.second);
    } else if (mPrefix < mConsumed.size()) {
        const size_t index = mPrefix;
        const TraceRecord& r = mTrace.records[index];
        divergeLocked(r.line, r.text, "nothing");
        if (r.kind == TraceRecord::Kind::Call) {
            mStopped = true;  // its caller is stuck in the call before: nothing can go on
        } else if (mKeepGoing) {
            skipLocked(index);
        }
    }
    mLastProgress = Clock::now();
    mChanged.broadcast();
}

void Replay::skipLocked(size_t index) {
    const TraceRecord& r = mTrace.records[index];
    auto& queue = r.kind == TraceRecord::Kind::Driver ? mChannels[channelOf(r.function, r.target)]
                                                      : mCallbacks[r.object];
    for (auto it = queue.begin(); it != queue.end(); ++it) {
        if (*it == index) {
            queue.erase(it);
            break;
        }
    }
    consumeLocked(index);
}

void Replay::waitLocked(std::chrono::microseconds bound) {
    mChanged.waitRelative(mLock,
                          std::chrono::duration_cast<std::chrono::nanoseconds>(bound).count());
}

}  // namespace mox::trace
