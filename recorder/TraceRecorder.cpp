#include "recorder/TraceRecorder.h"

#include <fcntl.h>
#include <log/log.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "recorder/JsonText.h"

namespace mox::trace {
namespace {

constexpr const char* kTag = "mox-tuner-trace";
// The writer's pace: records reach the file within this many milliseconds.
constexpr int kWriterPeriodMs = 10;
// Lines written before the capability record is known are held up to this size; past it the
// header goes out without the record (a driver that never answered it).
constexpr size_t kMaxHeldBeforeHeader = 1 << 20;

uint64_t monotonicNowUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

std::atomic<uint64_t (*)()> gClock{monotonicNowUs};
std::atomic<uint32_t> gNextThread{1};
std::atomic<TraceSink*> gSink{nullptr};
std::once_flag gSinkChosen;
FileRecorder* gFileRecorder = nullptr;  // written once, under gSinkChosen
int gTerminationFd = -1;

void onTermination(int) {
    const char byte = 'T';
    (void)!write(gTerminationFd, &byte, 1);
}

void finishAtExit() {
    if (gFileRecorder != nullptr) gFileRecorder->finish("exit");
}

void chooseSinkFromEnvironment() {
    const char* path = getenv(kTraceVariable);
    if (path == nullptr || *path == '\0') return;
    gFileRecorder = FileRecorder::open(path);
    if (gFileRecorder == nullptr) return;
    gFileRecorder->handleTermination();
    atexit(finishAtExit);
    gSink.store(gFileRecorder);
}

}  // namespace

TraceSink* activeSink() {
    std::call_once(gSinkChosen, chooseSinkFromEnvironment);
    return gSink.load(std::memory_order_acquire);
}

void setActiveSink(TraceSink* sink) {
    std::call_once(gSinkChosen, [] {});
    gSink.store(sink, std::memory_order_release);
}

void setTraceClock(uint64_t (*nowUs)()) {
    gClock.store(nowUs != nullptr ? nowUs : monotonicNowUs);
}

uint64_t traceNowUs() {
    return gClock.load()();
}

uint32_t traceThread() {
    thread_local const uint32_t number = gNextThread.fetch_add(1);
    return number;
}

void formatDriverCall(std::string& out, const DriverCall& call) {
    const DriverFunctionInfo& info = infoOf(call.function);
    out += "\"driver\":\"";
    out += info.name;
    out += '"';
    if (info.target != Target::None) {
        out += ",\"";
        out += targetName(info.target);
        out += "\":";
        appendNumber(out, call.target);
    }
    if (info.value != nullptr) {
        out += ",\"";
        out += info.value;
        out += "\":";
        appendNumber(out, call.value);
    }
    // The buffer the driver fills is shown as it went in only when the service left something in
    // it: the service zero-fills what it hands over.
    const bool filled = info.outSize != 0;
    if (!filled || call.in.find_first_not_of('\0') != std::string::npos) {
        if (!call.in.empty() || info.inSize != 0) {
            out += ",\"in\":";
            appendHex(out, call.in.data(), call.in.size());
        }
    }
    if (filled) {
        out += ",\"out\":";
        appendHex(out, call.out.data(), call.out.size());
    }
    out += ",\"result\":";
    appendNumber(out, static_cast<int64_t>(call.result));
}

// ---- FileRecorder ----

FileRecorder* FileRecorder::open(const std::string& path) {
    // A new file of this service's own, never one that is there already (nor a link to one).
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    std::string chosen = path;
    int fd = ::open(chosen.c_str(), kFlags, 0600);
    if (fd < 0 && errno == EEXIST) {
        chosen = path + "." + std::to_string(getpid());
        fd = ::open(chosen.c_str(), kFlags, 0600);
    }
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "not recording: cannot create %s: %s",
                            chosen.c_str(), strerror(errno));
        return nullptr;
    }
    int wake[2];
    if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        close(fd);
        return nullptr;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "recording this session to %s", chosen.c_str());
    return new FileRecorder(fd, wake[0], wake[1]);
}

FileRecorder::FileRecorder(int fd, int wakeRead, int wakeWrite)
    : mFd(fd), mWakeRead(wakeRead), mWakeWrite(wakeWrite) {
    mWriter = std::thread([this] { writerLoop(); });
}

FileRecorder::~FileRecorder() {
    finish("closed");
    close(mWakeRead);
    close(mWakeWrite);
}

uint64_t FileRecorder::dropped() const {
    android::Mutex::Autolock guard(mLock);
    return mDropped;
}

void FileRecorder::handleTermination() {
    struct sigaction current {};
    if (sigaction(SIGTERM, nullptr, &current) != 0 || current.sa_handler != SIG_DFL) return;
    gTerminationFd = mWakeWrite;
    struct sigaction action {};
    action.sa_handler = onTermination;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
}

void FileRecorder::driverCall(uint64_t timeUs, uint32_t thread, DriverCall&& call) {
    enqueue(Entry{timeUs, thread, true, std::move(call), {}});
}

void FileRecorder::interfaceRecord(uint64_t timeUs, uint32_t thread, std::string&& body) {
    enqueue(Entry{timeUs, thread, false, {}, std::move(body)});
}

void FileRecorder::enqueue(Entry&& entry) {
    android::Mutex::Autolock guard(mLock);
    if (mClosed) return;
    if (mQueue.size() >= kMaxQueuedRecords) {
        ++mDropped;
        return;
    }
    mQueue.push_back(std::move(entry));
}

void FileRecorder::writerLoop() {
    std::vector<Entry> taken;
    for (;;) {
        pollfd wake{mWakeRead, POLLIN, 0};
        char why = 0;
        if (poll(&wake, 1, kWriterPeriodMs) > 0) (void)!read(mWakeRead, &why, 1);
        {
            android::Mutex::Autolock guard(mLock);
            taken.swap(mQueue);
            if (why != 0) mClosed = true;
        }
        writeEntries(taken);
        taken.clear();
        if (why == 'F') return;
        if (why == 'T') {
            // SIGTERM with no one else to handle it: end the file, then end as the signal would.
            writeEnd("SIGTERM");
            signal(SIGTERM, SIG_DFL);
            raise(SIGTERM);
            return;
        }
    }
}

void FileRecorder::finish(const char* why) {
    if (mFinished.exchange(true)) return;
    const char byte = 'F';
    (void)!write(mWakeWrite, &byte, 1);
    if (mWriter.joinable()) mWriter.join();
    writeEnd(why);
}

void FileRecorder::writeEntries(std::vector<Entry>& entries) {
    std::string text;
    for (Entry& e : entries) {
        std::string line = "{\"t\":";
        appendUnsigned(line, e.timeUs);
        line += ",\"thread\":";
        appendUnsigned(line, e.thread);
        line += ',';
        if (e.driver) {
            formatDriverCall(line, e.call);
        } else {
            line += e.body;
        }
        line += "}\n";
        mLastTimeUs = e.timeUs;
        if (!mHeaderWritten && e.driver && e.call.function == DriverFunction::GetCapabilities) {
            writeHeader(e.call.result == 0 ? &e.call.out : nullptr);
        }
        if (mHeaderWritten) {
            text += line;
        } else {
            mBeforeHeader += line;
            if (mBeforeHeader.size() > kMaxHeldBeforeHeader) writeHeader(nullptr);
        }
    }
    writeOut(text);
}

void FileRecorder::writeHeader(const std::string* capabilities) {
    std::string header = "{\"trace\":\"mox-tuner\",\"version\":";
    appendNumber(header, static_cast<int64_t>(kFormatVersion));
    header += ",\"capabilities\":";
    if (capabilities != nullptr) {
        appendHex(header, capabilities->data(), capabilities->size());
    } else {
        header += "null";
    }
    header += "}\n";
    mHeaderWritten = true;
    writeOut(header + mBeforeHeader);
    mBeforeHeader.clear();
}

void FileRecorder::writeOut(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(mFd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // a full disk: the rest of this batch is lost, the service goes on
        done += static_cast<size_t>(n);
    }
}

void FileRecorder::writeEnd(const char* why) {
    if (!mHeaderWritten) writeHeader(nullptr);
    uint64_t dropped;
    {
        android::Mutex::Autolock guard(mLock);
        mClosed = true;
        dropped = mDropped;
    }
    std::string end = "{\"t\":";
    appendUnsigned(end, mLastTimeUs);
    end += ",\"end\":\"";
    end += why;
    end += "\",\"dropped\":";
    appendUnsigned(end, dropped);
    end += "}\n";
    writeOut(end);
    fsync(mFd);
    close(mFd);
}

}  // namespace mox::trace
