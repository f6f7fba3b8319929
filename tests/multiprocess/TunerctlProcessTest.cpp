// tunerctl as a process against the service as a process, when things go wrong: a client killed
// in a sweep, a service killed or stopped under a command, a frontend taken by another client.
// The service polls in real time here (200 ms), so commands last long enough to be cut short.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "ServiceProcess.h"

namespace {

using namespace testing_support;

class TunerctlProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mDir = getenv("MOX_HIDL_SERVICE_DIR");
        startService();
    }
    void TearDown() override {
        if (mService > 0) {
            kill(mService, SIGCONT);
            kill(mService, SIGTERM);
            waitForChild(mService);
        }
    }
    void startService() {
        mService = spawnService(mDir + "/service.log", 0, REALTIME_SERVICE_BINARY);
        ASSERT_TRUE(eventually([&] { return run({"frontends"}) == 0; }))
                << readFile(mDir + "/service.log");
    }
    void killService() {
        kill(mService, SIGKILL);
        waitForChild(mService);
        mService = -1;
    }
    ProgramRun start(const std::vector<std::string>& args) {
        std::vector<std::string> argv{TUNERCTL_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        return startProgram(argv, mDir + "/tunerctl-" + std::to_string(++mRuns));
    }
    // The exit code of a whole run, or -1 for a signal or a run that did not end in time.
    int run(const std::vector<std::string>& args, ProgramRun* kept = nullptr) {
        ProgramRun r = start(args);
        const int status = finishProgram(r);
        if (kept != nullptr) *kept = r;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static int exitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
    // The command ended with exit code 3 and one line naming what went wrong.
    static void expectServiceLost(const ProgramRun& r, int status, const std::string& words) {
        EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        EXPECT_EQ(exitCode(status), 3) << readFile(r.err);
        EXPECT_NE(readFile(r.err).find(words), std::string::npos) << readFile(r.err);
    }

    std::string mDir;
    pid_t mService = -1;
    int mRuns = 0;
};

TEST_F(TunerctlProcessTest, ASweepLeftByAKilledClientDoesNotReachTheNextClientsScan) {
    ProgramRun sweep = start({"scan", "2", "--dvbc", "474MHz", "--blind", "--json"});
    ASSERT_TRUE(eventually([&] {
        return readFile(sweep.out).find("PROGRESS") != std::string::npos;
    })) << readFile(sweep.err);
    kill(sweep.pid, SIGKILL);
    finishProgram(sweep);

    ProgramRun scan;
    EXPECT_EQ(run({"tune", "2", "--dvbc", "306MHz", "--symbol-rate", "6.9M"}), 0);
    EXPECT_EQ(run({"scan", "2", "--dvbc", "306MHz", "--no-services", "--json"}, &scan), 0)
            << readFile(scan.err);
    const std::string summary = readFile(scan.out);
    EXPECT_NE(summary.find("\"found\":[{\"frequency\":306000000"), std::string::npos) << summary;
    EXPECT_EQ(summary.find("4740"), std::string::npos) << "nothing of the orphaned sweep";
}

TEST_F(TunerctlProcessTest, AServiceKilledUnderACommandEndsItWithExit3AndOneLine) {
    struct Case {
        const char* name;
        std::vector<std::string> args;
    };
    const Case cases[] = {
            {"tune", {"tune", "0", "--dvbt", "700MHz"}},  // no transmitter: 15 polls, 3 s
            {"scan", {"scan", "2", "--dvbc", "474MHz", "--blind"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (mService < 0) startService();
        ProgramRun r = start(c.args);
        std::this_thread::sleep_for(800ms);
        killService();
        const int status = finishProgram(r);
        expectServiceLost(r, status, "the tuner service died");
        EXPECT_EQ(readFile(r.err).find("Abort"), std::string::npos);
    }
}

TEST_F(TunerctlProcessTest, AWatchWaitsForANewInstanceAndGoesOn) {
    ProgramRun watch = start({"status", "0", "--dvbt", "482MHz", "--watch", "--json"});
    ASSERT_TRUE(eventually([&] {
        return readFile(watch.out).find("\"sample\":2") != std::string::npos;
    })) << readFile(watch.err);
    killService();
    ASSERT_TRUE(eventually([&] { return readFile(watch.out).find("died") != std::string::npos; }));
    startService();
    EXPECT_TRUE(eventually([&] { return readFile(watch.out).find("is back") != std::string::npos; }))
            << readFile(watch.out) << readFile(watch.err);
    const size_t back = readFile(watch.out).find("is back");
    EXPECT_TRUE(eventually([&] {
        return readFile(watch.out).find("\"sample\"", back) != std::string::npos;
    })) << "samples of the new instance";
    kill(watch.pid, SIGINT);
    EXPECT_EQ(exitCode(finishProgram(watch)), 130);
}

TEST_F(TunerctlProcessTest, AStoppedServiceIsGivenUpOnAfterTheTimeout) {
    kill(mService, SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    ProgramRun r;
    EXPECT_EQ(run({"frontends", "--timeout", "500ms"}, &r), 3);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, 500ms);
    EXPECT_LT(took, 5s);
    EXPECT_NE(readFile(r.err).find("no answer from the tuner service within 0.5 s"), std::string::npos)
            << readFile(r.err);
    ProgramRun json;
    EXPECT_EQ(run({"info", "0", "--json", "--timeout", "200ms"}, &json), 3);
    EXPECT_NE(readFile(json.out).find("\"exit\":3"), std::string::npos) << readFile(json.out);
    kill(mService, SIGCONT);
    EXPECT_EQ(run({"frontends"}), 0);
}

TEST_F(TunerctlProcessTest, AClientWhoseFrontendAnotherClientTookIsToldSo) {
    ProgramRun sweep = start({"scan", "2", "--dvbc", "474MHz", "--blind"});
    ASSERT_TRUE(eventually([&] {
        ProgramRun dump;
        run({"dump"}, &dump);
        const std::string text = readFile(dump.out);
        const size_t line = text.find("frontend 2: ");
        return line != std::string::npos &&
               text.substr(line, text.find('\n', line) - line).find("scan running yes") !=
                       std::string::npos;
    }));
    // Another client sets its own callback on the frontend (its tune stops the sweep first).
    EXPECT_EQ(run({"tune", "2", "--dvbc", "306MHz", "--symbol-rate", "6.9M"}), 0);
    const int status = finishProgram(sweep);
    expectServiceLost(sweep, status, "frontend 2 was taken by another client");
}

}  // namespace
