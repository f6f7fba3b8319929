#include "simulator/ServiceLogTap.h"

#include <android-base/thread_annotations.h>
#include <android/log.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/Mutex.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <deque>

namespace mox::sim {

namespace {

uint64_t nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
}

// liblog's default when nothing set one.
int effective(int priority) {
    return priority == ANDROID_LOG_DEFAULT ? ANDROID_LOG_INFO : priority;
}

struct Record {
    uint64_t number;
    int priority;
    std::string line;
};

class Tap {
  public:
    explicit Tap(int ownPriority) : mOwnPriority(effective(ownPriority)) {}

    void take(const __android_logger_data* data, const char* message) {
        if (data->priority >= mOwnPriority) __android_log_stderr_logger(data, message);
        const std::string line = format(data, message);
        ::android::Mutex::Autolock guard(mLock);
        mRecords.push_back({++mNewest, data->priority, line});
        if (mRecords.size() > kServiceLogRecords) mRecords.pop_front();
        restoreIfDueLocked();
    }

    ServiceLogExcerpt since(uint64_t after, int priority) {
        ServiceLogExcerpt excerpt;
        ::android::Mutex::Autolock guard(mLock);
        excerpt.newest = mNewest;
        for (const Record& r : mRecords) {
            if (r.number > after && r.priority >= priority) excerpt.lines.push_back(r.line);
        }
        // Asked for less than the process logs: lower the level until the lease runs out.
        if (priority < mOwnPriority) {
            mLeaseEndUs = nowUs() + kServiceLogLeaseUs;
            if (priority < mLeasedPriority || mLeasedPriority == 0) mLeasedPriority = priority;
            __android_log_set_minimum_priority(mLeasedPriority);
        }
        return excerpt;
    }

  private:
    void restoreIfDueLocked() REQUIRES(mLock) {
        if (mLeasedPriority != 0 && nowUs() > mLeaseEndUs) {
            mLeasedPriority = 0;
            __android_log_set_minimum_priority(mOwnPriority);
        }
    }

    // As logcat's threadtime format: date, time, pid, tid, priority letter, tag, message.
    static std::string format(const __android_logger_data* data, const char* message) {
        static const char kLetters[] = "??VDIWEFS";
        const std::time_t now = std::time(nullptr);
        char stamp[32];
        std::strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", std::localtime(&now));
        const int p =
                data->priority >= 0 && data->priority <= ANDROID_LOG_SILENT ? data->priority : 0;
        char head[96];
        snprintf(head, sizeof(head), "%s %5d %5ld %c ", stamp, getpid(), syscall(SYS_gettid),
                 kLetters[p]);
        std::string line = std::string(head) + (data->tag ? data->tag : "") + ": " +
                           std::string(message).substr(0, kServiceLogTextBytes);
        while (!line.empty() && line.back() == '\n') line.pop_back();
        return line;
    }

    const int mOwnPriority;
    ::android::Mutex mLock;
    std::deque<Record> mRecords GUARDED_BY(mLock);
    uint64_t mNewest GUARDED_BY(mLock) = 0;
    int mLeasedPriority GUARDED_BY(mLock) = 0;  // 0: none asked for
    uint64_t mLeaseEndUs GUARDED_BY(mLock) = 0;
};

std::atomic<Tap*> gTap{nullptr};

void logger(const __android_logger_data* data, const char* message) {
    if (Tap* tap = gTap.load()) tap->take(data, message);
}

}  // namespace

void installServiceLogTap() {
    Tap* expected = nullptr;
    // Never freed: liblog may call the logger until the process ends.
    Tap* tap = new Tap(__android_log_get_minimum_priority());
    if (!gTap.compare_exchange_strong(expected, tap)) {
        delete tap;
        return;
    }
    __android_log_set_logger(logger);
}

ServiceLogExcerpt serviceLogSince(uint64_t after, int priority) {
    Tap* tap = gTap.load();
    return tap != nullptr ? tap->since(after, priority) : ServiceLogExcerpt{};
}

}  // namespace mox::sim
