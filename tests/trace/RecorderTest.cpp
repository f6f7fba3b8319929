// The driver boundary recorded in this process (linked with --wrap over the fake driver): every
// call reaches the file in order with its bytes, and the calling thread never writes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "FakeMoxDriver.h"
#include "recorder/TraceRecorder.h"
#include "replay/Trace.h"

namespace {
thread_local long tWrites = 0;
}  // namespace

extern "C" ssize_t write(int fd, const void* buffer, size_t size) {
    ++tWrites;
    return syscall(SYS_write, fd, buffer, size);
}

// The player library's entry point, which this test does not call: the recording layer wraps it.
extern "C" int MOX_DvbSetSMP(int, int) {
    return 0;
}

namespace {

using mox::trace::FileRecorder;
using mox::trace::Trace;

// Calls of write() this thread has made: the test's own write() counts them and goes on to the
// system call (a sanitizer's runtime writes through its own system calls, which do not count).
long writesOfThisThread() {
    return tWrites;
}

class RecorderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fake::Driver::get().reset();
        mPath = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/recorded.jsonl";
        unlink(mPath.c_str());
        mRecorder = FileRecorder::open(mPath);
        ASSERT_NE(mRecorder, nullptr);
        mox::trace::setActiveSink(mRecorder);
    }
    void TearDown() override {
        mox::trace::setActiveSink(nullptr);
        delete mRecorder;
    }
    Trace finished() {
        mRecorder->finish("exit");
        std::ifstream file(mPath);
        std::stringstream text;
        text << file.rdbuf();
        Trace trace;
        std::string error;
        EXPECT_TRUE(mox::trace::parseTrace(text.str(), mPath, trace, error)) << error;
        return trace;
    }

    std::string mPath;
    FileRecorder* mRecorder = nullptr;
};

TEST_F(RecorderTest, EveryCallReachesTheFileInOrderAndNoneIsWrittenByItsCaller) {
    fake::Driver::get().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->strength = fake::Driver::get().count("GetInfo");
        return 0;
    });
    constexpr int kCalls = 5000;
    MOX_TunerParam_t param{};
    param.eTunerType = MOX_TUNER_TYPE_DVBC;
    param.uiFreqMHz = 306;
    const long writesBefore = writesOfThisThread();
    EXPECT_EQ(MOX_Tuner_Scan(1, param), 0);
    for (int i = 0; i < kCalls; ++i) {
        MOX_TunerSignalInfo_t info;
        memset(&info, 0, sizeof(info));
        MOX_Tuner_GetInfo(1, &info);
    }
    MOX_DiSEqCCmd_t command{{0xe0, 0x10, 0x38, 0xf3, 0, 0}, 4};
    EXPECT_EQ(MOX_Tuner_SendDiSEqCCmd(0, command), 0);
    EXPECT_EQ(writesOfThisThread(), writesBefore);

    const Trace trace = finished();
    ASSERT_EQ(trace.records.size(), static_cast<size_t>(kCalls) + 2);
    EXPECT_TRUE(trace.ended);
    EXPECT_EQ(trace.records.front().in, std::string(reinterpret_cast<char*>(&param), sizeof(param)));
    for (int i = 1; i <= kCalls; ++i) {
        MOX_TunerSignalInfo_t info;
        memcpy(&info, trace.records[i].out.data(), sizeof(info));
        ASSERT_EQ(info.strength, static_cast<uint32_t>(i)) << "record " << i;
        ASSERT_GE(trace.records[i].timeUs, trace.records[i - 1].timeUs);
    }
    EXPECT_EQ(trace.records.back().in,
              std::string(reinterpret_cast<char*>(&command), sizeof(command)));
}

// The first line carries the capability record, though it is known only once the driver answered.
TEST_F(RecorderTest, TheHeaderCarriesTheCapabilityRecord) {
    MOX_TunerCapability_t capability{};
    capability.ucFrontendCnt = 1;
    capability.tFrontend[0].ucChannelCnt = 1;
    capability.tFrontend[0].tFreqRange = {47, 862};
    fake::Driver::get().setCapabilities(0, capability);
    EXPECT_EQ(MOX_Tuner_Init(), 0);
    MOX_TunerCapability_t read;
    memset(&read, 0, sizeof(read));
    EXPECT_EQ(MOX_Tuner_GetCapabilities(&read), 0);

    const Trace trace = finished();
    EXPECT_EQ(trace.capabilities,
              std::string(reinterpret_cast<const char*>(&capability), sizeof(capability)));
    ASSERT_EQ(trace.records.size(), 2u);
    EXPECT_EQ(trace.records[0].line, 2) << "the Init held back comes right after the header";
}

}  // namespace

namespace {

using mox::trace::FileRecorder;
using mox::trace::Trace;

// As on a device, where nothing else handles SIGTERM: the recorder ends the file, then the
// process ends by the signal.
TEST(RecorderTerminationTest, SigtermWritesEverythingThenEndsTheProcess) {
    const std::string path = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/terminated.jsonl";
    unlink(path.c_str());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGTERM, SIG_DFL);
        FileRecorder* recorder = FileRecorder::open(path);
        if (recorder == nullptr) _exit(10);
        recorder->handleTermination();
        mox::trace::setActiveSink(recorder);
        for (int i = 0; i < 1000; ++i) MOX_Tuner_IsLocked(0);
        raise(SIGTERM);
        pause();  // the writer ends the process
        _exit(11);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "exit " << WEXITSTATUS(status);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    Trace trace;
    std::string error;
    ASSERT_TRUE(mox::trace::readTrace(path, trace, error)) << error;
    EXPECT_EQ(trace.records.size(), 1000u);
    EXPECT_TRUE(trace.ended);
}

}  // namespace
