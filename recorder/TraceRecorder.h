// The trace of a session: one JSON line per driver call, per client call and its return, and per
// callback the service sends, written to a file by a thread of its own so that no caller waits
// for the disk. Recording is off unless MOX_TUNER_TRACE names a file when the process starts.
#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "recorder/DriverFunctions.h"

namespace mox::trace {

constexpr const char* kTraceVariable = "MOX_TUNER_TRACE";
constexpr int kFormatVersion = 1;
// Records waiting for the writer beyond this many are dropped (and counted in the end record):
// a stalled disk must not grow the service without bound.
constexpr size_t kMaxQueuedRecords = 1 << 16;

// One call at the driver boundary, as the calling thread hands it over: raw bytes, formatted later
// by the writer.
struct DriverCall {
    DriverFunction function = DriverFunction::Init;
    int64_t target = 0;  // tuner index, LNB id or data path
    int64_t value = 0;   // the second scalar argument, where the function has one
    int32_t result = 0;
    std::string in;   // the record passed in (by value, or the buffer before the driver fills it)
    std::string out;  // the record the driver filled
};

// Where the lines go. The file recorder is the one a process switches on; a replay gives its own.
class TraceSink {
  public:
    virtual ~TraceSink() = default;
    virtual void driverCall(uint64_t timeUs, uint32_t thread, DriverCall&& call) = 0;
    // body: the members of an interface record after "t" and "thread".
    virtual void interfaceRecord(uint64_t timeUs, uint32_t thread, std::string&& body) = 0;
};

// The sink of this process: null when nothing records.
TraceSink* activeSink();
// A replay records into its own sink; tests too. Set before the first call that records.
void setActiveSink(TraceSink* sink);
// The time a record is stamped with: the monotonic clock, or a host's simulated one.
void setTraceClock(uint64_t (*nowUs)());
uint64_t traceNowUs();
// A small number for the calling thread, the same for its whole life.
uint32_t traceThread();

// Formats one driver call as the members after "t" and "thread".
void formatDriverCall(std::string& out, const DriverCall& call);

// Records into a file, from a writer thread that wakes every few milliseconds: a calling thread
// only appends to a queue under a lock.
class FileRecorder final : public TraceSink {
  public:
    // Opens path (a new file; when one is there, path.PID), or returns null and logs why.
    static FileRecorder* open(const std::string& path);
    void driverCall(uint64_t timeUs, uint32_t thread, DriverCall&& call) override;
    void interfaceRecord(uint64_t timeUs, uint32_t thread, std::string&& body) override;
    // Writes what is queued and the end record, then closes the file; later records are dropped.
    void finish(const char* why);
    // Records dropped so far because the writer fell behind by kMaxQueuedRecords.
    uint64_t dropped() const;
    // Lets a SIGTERM end the recording first: installed only where nothing else handles it.
    void handleTermination();
    ~FileRecorder() override;

  private:
    struct Entry {
        uint64_t timeUs;
        uint32_t thread;
        bool driver;
        DriverCall call;
        std::string body;
    };

    FileRecorder(int fd, int wakeRead, int wakeWrite);
    void enqueue(Entry&& entry);
    void writerLoop();
    void writeEntries(std::vector<Entry>& entries);
    void writeHeader(const std::string* capabilities);
    void writeOut(const std::string& text);
    void writeEnd(const char* why);

    mutable android::Mutex mLock;
    std::vector<Entry> mQueue GUARDED_BY(mLock);
    uint64_t mDropped GUARDED_BY(mLock) = 0;
    bool mClosed GUARDED_BY(mLock) = false;
    // Written by the writer thread only (and by finish() once it has joined it).
    const int mFd;
    const int mWakeRead;
    const int mWakeWrite;
    bool mHeaderWritten = false;
    std::string mBeforeHeader;  // lines held until the capability record is known
    uint64_t mLastTimeUs = 0;
    std::thread mWriter;
    std::atomic<bool> mFinished{false};
};

}  // namespace mox::trace
