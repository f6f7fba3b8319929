// A session recorded by the service process and replayed: what the recording holds, where it
// goes, and that it comes out identical.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "ServiceProcess.h"

namespace {

using namespace testing_support;

class RecordingProcessTest : public ::testing::Test {
  protected:
    void SetUp() override { mDir = getenv("MOX_HIDL_SERVICE_DIR"); }
    // Runs the service recording to `trace` while the tunerctl commands run, then stops it.
    void record(const std::string& trace, const std::vector<std::vector<std::string>>& commands) {
        setenv("MOX_TUNER_TRACE", trace.c_str(), 1);
        const pid_t service = spawnService(mDir + "/service.log");
        unsetenv("MOX_TUNER_TRACE");
        ASSERT_TRUE(eventually([&] { return run({"frontends"}) == 0; }));
        for (const auto& command : commands) {
            run(command);
            // What a command left tuned is stopped for it once it is gone, by calls the trace
            // records too: they come before the next command's, as a replay issues them.
            const std::string gone = "client " + std::to_string(mLast.pid) + " is gone";
            eventually(
                    [&] { return readFile(mDir + "/service.log").find(gone) != std::string::npos; },
                    std::chrono::milliseconds(2000));
        }
        kill(service, SIGTERM);
        const int status = waitForChild(service);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
                << readFile(mDir + "/service.log");
    }
    int run(const std::vector<std::string>& args, const char* binary = TUNERCTL_BINARY) {
        std::vector<std::string> argv{binary};
        argv.insert(argv.end(), args.begin(), args.end());
        mLast = startProgram(argv, mDir + "/run-" + std::to_string(++mRuns));
        const int status = finishProgram(mLast);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string mDir;
    ProgramRun mLast;
    int mRuns = 0;
};

TEST_F(RecordingProcessTest, ASessionRecordedByTheServiceReplaysIdentically) {
    const std::string trace = mDir + "/session.jsonl";
    record(trace, {{"tune", "0", "--dvbt", "482MHz"}, {"status", "0"}});
    const std::string text = readFile(trace);
    EXPECT_EQ(text.rfind(R"({"trace":"mox-tuner","version":1,"capabilities":")", 0), 0u);
    for (const char* part :
         {R"("driver":"MOX_Tuner_Scan","tuner":0,"in":"0400000003000000e201)",
          R"("call":"IFrontend.tune","object":2,"args":{"settings":{"dvbt":{"frequency":482000000)",
          R"("callback":"IFrontendCallback.onEvent","object":2,"args":{"frontendEventType":"LOCKED"})",
          R"("return":"IFrontend.getStatus")", R"("end":"exit","dropped":0})",
          // tunerctl tune leaves the frontend tuned; the service stops it once tunerctl is gone,
          // through the frontend the recording handed out.
          R"("call":"IFrontend.stopTune","object":2)"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part;
    }
    struct stat info {};
    ASSERT_EQ(stat(trace.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(run({trace}, TUNER_REPLAY_BINARY), 0) << readFile(mLast.out);
    EXPECT_EQ(readFile(mLast.out).rfind("identical: ", 0), 0u) << readFile(mLast.out);
}

// The service writes only a file it creates: a file or a link already at the path stays as it
// is, and the trace goes beside it, named with the service's pid.
TEST_F(RecordingProcessTest, WhatIsAlreadyThereIsNeverWrittenThrough) {
    const std::string victim = mDir + "/victim";
    std::ofstream(victim) << "keep";
    const std::string trace = mDir + "/linked.jsonl";
    ASSERT_EQ(symlink(victim.c_str(), trace.c_str()), 0);
    record(trace, {});
    EXPECT_EQ(readFile(victim), "keep");
    EXPECT_NE(readFile(mDir + "/service.log").find("recording this session to " + trace + "."),
              std::string::npos)
            << readFile(mDir + "/service.log");
}

}  // namespace
