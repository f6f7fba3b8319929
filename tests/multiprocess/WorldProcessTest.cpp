// The simulated world changed under the running service by other client processes (tunerctl
// world), or by the installation's timeline: the service's answers follow what the driver
// reports.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <string>
#include <vector>

#include "ServiceProcess.h"
#include "TunerctlRuns.h"

namespace {

using namespace testing_support;

class WorldProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mDir = getenv("MOX_HIDL_SERVICE_DIR");
        mRuns.setDirectory(mDir);
    }
    void TearDown() override {
        if (mService > 0) {
            kill(mService, SIGTERM);
            waitForChild(mService);
        }
        unsetenv("MOX_SIMULATOR_ENVIRONMENT");
    }
    void startService(const std::string& installation = "") {
        if (!installation.empty()) {
            const std::string file = mDir + "/installation.json";
            std::ofstream(file) << installation;
            setenv("MOX_SIMULATOR_ENVIRONMENT", file.c_str(), 1);
        }
        mService = spawnService(mDir + "/service.log");
        ASSERT_TRUE(eventually([&] { return tunerctl({"world"}) == 0; }))
                << readFile(mDir + "/service.log");
    }
    ProgramRun start(const std::vector<std::string>& args) { return mRuns.start(args); }
    int tunerctl(const std::vector<std::string>& args, ProgramRun* kept = nullptr,
                 std::chrono::milliseconds bound = kBound) {
        return mRuns.run(args, kept, bound);
    }
    std::string worldJson() {
        ProgramRun r;
        tunerctl({"world", "--json"}, &r);
        return readFile(r.out);
    }

    std::string mDir;
    pid_t mService = -1;
    TunerctlRuns mRuns;
};

TEST_F(WorldProcessTest, TheWorldShowsWhatAnotherClientsLnbCommandsDid) {
    startService();
    ProgramRun lnb;
    ASSERT_EQ(tunerctl({"lnb", "0", "--voltage", "18V", "--diseqc", "E0 10 38 F1"}, &lnb), 0);
    EXPECT_NE(readFile(lnb.out).find("driver LNB 0: mode 2 (18 V)"), std::string::npos)
            << readFile(lnb.out);
    const std::string world = worldJson();
    EXPECT_NE(world.find(R"("diseqc":"E0 10 38 F1")"), std::string::npos) << world;
    EXPECT_NE(world.find(R"("supply":"18 V")"), std::string::npos) << world;
}

TEST_F(WorldProcessTest, AWatchSeesTheLockGoAndComeBackWithItsTransmitter) {
    startService();
    ProgramRun watch = start({"status", "0", "--dvbt", "482MHz", "--watch", "--json"});
    auto samplesSince = [&](size_t from, const char* text) {
        return eventually([&] { return readFile(watch.out).find(text, from) != std::string::npos; });
    };
    ASSERT_TRUE(samplesSince(0, R"("locked":true)")) << readFile(watch.err);
    ASSERT_EQ(tunerctl({"world", "transmitter", "482MHz", "off"}), 0);
    size_t mark = readFile(watch.out).size();
    EXPECT_TRUE(samplesSince(mark, R"("locked":false)")) << readFile(watch.out);
    ASSERT_EQ(tunerctl({"world", "transmitter", "482MHz", "on"}), 0);
    mark = readFile(watch.out).size();
    EXPECT_TRUE(samplesSince(mark, R"("locked":true)")) << readFile(watch.out);
    kill(watch.pid, SIGINT);
    EXPECT_EQ(finishProgram(watch), 130 << 8);
}

TEST_F(WorldProcessTest, ABlindSweepFindsATransmitterSwitchedOnHalfWay) {
    startService(R"({
      "frontends": [{"systems": ["DVB-C"], "channels": 1, "frequencyMHz": {"min": 47, "max": 862},
                     "symbolRateKsym": {"min": 1000, "max": 7200}, "bandwidths": ["8MHz"],
                     "dvbc": {"modulations": ["64QAM", "256QAM"], "annexes": ["A"]}}],
      "transmitters": [
        {"system": "DVB-C", "frequencyMHz": 474, "symbolRate": 6875000, "lockDelayMs": 100},
        {"system": "DVB-C", "frequencyMHz": 477, "symbolRate": 6875000, "lockDelayMs": 100}],
      "timeline": [{"at": "0s", "do": "transmitter 477MHz off"},
                   {"at": "100s", "do": "transmitter 477MHz on"}]
    })");
    ProgramRun sweep;
    ASSERT_EQ(tunerctl({"scan", "0", "--dvbc", "474MHz", "--blind", "--json"}, &sweep, 60s), 0)
            << readFile(sweep.err);
    const std::string out = readFile(sweep.out);
    EXPECT_NE(out.find(R"("found":[{"frequency":474)"), std::string::npos) << out;
    EXPECT_NE(out.find(R"({"frequency":477)"), std::string::npos) << "switched on half way\n"
                                                                  << out;
}

TEST_F(WorldProcessTest, ASatelliteTuneFindsNothingWhileTheDishIsDisconnected) {
    startService();
    const std::vector<std::string> tune = {"tune", "3", "--dvbs", "1210MHz"};
    ASSERT_EQ(tunerctl({"world", "disconnect", "dish"}), 0);
    ProgramRun unplugged;
    EXPECT_EQ(tunerctl(tune, &unplugged), 1);
    EXPECT_NE(readFile(unplugged.out).find("NO_SIGNAL"), std::string::npos);
    EXPECT_NE(worldJson().find(R"("dish":false)"), std::string::npos);
    ASSERT_EQ(tunerctl({"world", "connect", "dish"}), 0);
    EXPECT_EQ(tunerctl(tune), 0);
}

TEST_F(WorldProcessTest, FiguresAndFaultsChangeFromAnotherClient) {
    startService();
    ASSERT_EQ(tunerctl({"world", "transmitter", "482MHz", "level", "30", "over", "100ms"}), 0);
    EXPECT_TRUE(eventually([&] {
        return worldJson().find(R"("frequencyMHz":482,"levelDbuV":30.0)") != std::string::npos;
    })) << worldJson();
    ASSERT_EQ(tunerctl({"world", "fail", "Scan", "-3", "first", "1"}), 0);
    ProgramRun refused;
    EXPECT_EQ(tunerctl({"tune", "0", "--dvbt", "482MHz"}, &refused), 3);
    EXPECT_NE(readFile(refused.err).find("the driver refused the tune"), std::string::npos)
            << readFile(refused.err);
    EXPECT_EQ(tunerctl({"tune", "0", "--dvbt", "482MHz"}), 0) << "only the first call failed";
}

TEST_F(WorldProcessTest, BadChangesAreOneLineAndTheServiceGoesOn) {
    startService();
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"world", "transmitter", "999MHz", "off"},
          std::vector<std::string>{"world", "explode"},
          std::vector<std::string>{"world", "fail", "Scan", "0", "--json"}}) {
        ProgramRun r;
        EXPECT_EQ(tunerctl(bad, &r), 2);
        const std::string said = readFile(r.err) + readFile(r.out);
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
    EXPECT_EQ(tunerctl({"world"}), 0);

    // A timeline the simulator cannot use ends the service at start with one line.
    kill(mService, SIGTERM);
    waitForChild(mService);
    const std::string file = mDir + "/bad.json";
    std::ofstream(file) << R"({"frontends": [{"systems": ["DVB-T"], "channels": 1,
        "frequencyMHz": {"min": 47, "max": 862}, "bandwidths": ["8MHz"]}],
        "timeline": [{"at": "1s", "do": "transmitter 482MHz off"}]})";
    setenv("MOX_SIMULATOR_ENVIRONMENT", file.c_str(), 1);
    mService = spawnService(mDir + "/bad.log");
    const int status = waitForChild(mService);
    mService = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
    EXPECT_NE(readFile(mDir + "/bad.log").find("timeline[0].do: no transmitter at 482 MHz"),
              std::string::npos)
            << readFile(mDir + "/bad.log");
}

}  // namespace
