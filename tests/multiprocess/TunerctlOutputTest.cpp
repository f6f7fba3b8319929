// What a person reads from tunerctl against the running service: exit codes, figures the service
// does not measure, PLPs, channel files and their refusals, one wording per fault, the service's
// log under -v. The service polls fifty times faster than a box, on the same simulated clock.
#include <gtest/gtest.h>
#include <libdvbv5/dvb-file.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "ServiceProcess.h"

namespace {

using namespace testing_support;

class TunerctlOutputTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mDir = getenv("MOX_HIDL_SERVICE_DIR");
        mService = spawnService(mDir + "/service.log");
        ASSERT_TRUE(eventually([&] { return run({"frontends"}).code == 0; }))
                << readFile(mDir + "/service.log");
    }
    void TearDown() override {
        kill(mService, SIGTERM);
        waitForChild(mService);
    }

    struct Outcome {
        int code;
        std::string out;
        std::string err;
    };
    ProgramRun start(const std::vector<std::string>& args) {
        std::vector<std::string> argv{TUNERCTL_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        return startProgram(argv, mDir + "/tunerctl-" + std::to_string(++mRuns));
    }
    Outcome run(const std::vector<std::string>& args) {
        ProgramRun r = start(args);
        const int status = finishProgram(r);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(r.out), readFile(r.err)};
    }
    std::string file(const std::string& name, const std::string& text = "") {
        const std::string path = mDir + "/" + name;
        if (!text.empty()) std::ofstream(path) << text;
        return path;
    }
    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    std::string mDir;
    pid_t mService = -1;
    int mRuns = 0;
};

// status says by its exit code whether the frontend has lock, as tune does. A tune lasts as long
// as the client that made it: another client's status sees it while that client watches.
TEST_F(TunerctlOutputTest, StatusExitsOneWithoutLockAndZeroWithIt) {
    Outcome idle = run({"status", "1"});
    EXPECT_EQ(idle.code, 1) << idle.out << idle.err;
    EXPECT_TRUE(has(idle.out, "lock      no lock")) << idle.out;
    EXPECT_TRUE(has(idle.out, "channel   frontend 1 (DVBT, not tuned here)")) << idle.out;
    Outcome tuned = run({"status", "1", "--dvbt", "482MHz"});
    EXPECT_EQ(tuned.code, 0) << tuned.out << tuned.err;
    Outcome stillNoSignal = run({"status", "1", "--dvbt", "490MHz"});
    EXPECT_EQ(stillNoSignal.code, 1) << stillNoSignal.out;

    ProgramRun watch = start({"status", "1", "--dvbt", "482MHz", "--watch"});
    ASSERT_TRUE(eventually([&] { return has(readFile(watch.out), "#1 "); })) << readFile(watch.err);
    Outcome locked = run({"status", "1"});
    EXPECT_EQ(locked.code, 0) << locked.out << locked.err;
    EXPECT_TRUE(has(locked.out, "lock      LOCKED")) << locked.out;
    EXPECT_TRUE(has(locked.out, "channel   DVB-T 482.000 MHz (tuned before)")) << locked.out;
    kill(watch.pid, SIGINT);
    EXPECT_EQ(WEXITSTATUS(finishProgram(watch)), 130);
}

// RF lock is answered "yes" whatever the air does: not a measurement, so not shown as one.
TEST_F(TunerctlOutputTest, FiguresTheServiceDoesNotMeasureReadNotAvailable) {
    Outcome text = run({"tune", "0", "--dvbt", "482MHz"});
    ASSERT_EQ(text.code, 0) << text.err;
    EXPECT_TRUE(has(text.out, "  RF lock   not available\n")) << text.out;
    EXPECT_TRUE(has(text.out, "  channel   DVB-T 482.000 MHz\n")) << text.out;
    EXPECT_TRUE(has(text.out, "  SNR       ")) << text.out;
    Outcome json = run({"status", "0", "--dvbt", "482MHz", "--json"});
    EXPECT_TRUE(has(json.out, "\"rfLocked\":null")) << json.out;
    EXPECT_TRUE(has(json.out, "\"locked\":true")) << json.out;
    // A watch names the channel on each line and the unmeasured figures once.
    ProgramRun watch = start({"status", "0", "--dvbt", "650MHz", "--watch"});
    ASSERT_TRUE(eventually([&] { return has(readFile(watch.out), "#2 "); })) << readFile(watch.err);
    kill(watch.pid, SIGINT);
    EXPECT_EQ(WEXITSTATUS(finishProgram(watch)), 130);
    const std::string lines = readFile(watch.out);
    EXPECT_TRUE(has(lines, "  DVB-T 650.000 MHz  lock LOCKED")) << lines;
    EXPECT_FALSE(has(lines, "RF lock")) << lines;
    EXPECT_TRUE(has(readFile(watch.err), "not measured by this frontend, so not shown: RF lock"))
            << readFile(watch.err);
}

TEST_F(TunerctlOutputTest, AutoLocksTheStandardTheTransmitterSendsInTuneAndScanAlike) {
    const struct {
        std::vector<std::string> args;
        const char* expected;
    } cases[] = {
            {{"tune", "0", "--dvbt", "474MHz", "--standard", "AUTO", "--json"},
             R"({"event":"LOCKED","standard":"T2","channel":"DVB-T2 474.000 MHz"})"},
            {{"tune", "3", "--dvbs", "1318MHz", "--standard", "AUTO", "--json"},
             R"({"event":"LOCKED","standard":"S","channel":"DVB-S 1318.000 MHz"})"},
            {{"scan", "3", "--dvbs", "1318MHz", "--standard", "AUTO", "--json"},
             R"({"found":[{"frequency":1318000000)"},
            {{"scan", "0", "--dvbt", "474MHz", "--standard", "AUTO", "--json"},
             R"({"found":[{"frequency":474000000)"},
    };
    for (const auto& c : cases) {
        Outcome o = run(c.args);
        EXPECT_EQ(o.code, 0) << c.args[0] << " " << c.args[2] << ": " << o.out << o.err;
        EXPECT_TRUE(has(o.out, c.expected)) << o.out;
    }
}

// This driver picks the PLP itself: asked for another, tunerctl says which one it uses, and a
// scan writes the one it locked on.
TEST_F(TunerctlOutputTest, APlpTheFrontendDoesNotUseIsSaidAndAScanWritesTheOneItLockedOn) {
    Outcome asked = run({"tune", "0", "--dvbt", "506MHz", "--standard", "T2", "--plp", "7"});
    EXPECT_EQ(asked.code, 0) << asked.err;
    EXPECT_TRUE(has(asked.err, "PLP 7 asked, but the frontend picks the PLP itself: it uses PLP 3"))
            << asked.err;
    Outcome same = run({"tune", "0", "--dvbt", "506MHz", "--standard", "T2", "--plp", "3"});
    EXPECT_FALSE(has(same.err, "PLP")) << same.err;
    const std::vector<std::vector<std::string>> refused = {
            {"tune", "0", "--dvbt", "506MHz", "--plp", "3"},  // DVB-T has no PLP
            {"tune", "0", "--dvbt", "506MHz", "--standard", "T2", "--plp", "256"},
            {"tune", "2", "--dvbc", "306MHz", "--symbol-rate", "6.9M", "--plp", "1"}};
    for (const auto& args : refused) EXPECT_EQ(run(args).code, 2) << args.back();

    const std::string channels = file("t2.conf");
    ASSERT_EQ(run({"scan", "0", "--dvbt", "506MHz", "--standard", "T2", "-o", channels}).code, 0);
    EXPECT_TRUE(has(readFile(channels), "STREAM_ID = 3")) << readFile(channels);
    Outcome byName = run({"tune", "0", "--channel", "506.000 MHz", "-c", channels});
    EXPECT_EQ(byName.code, 0) << byName.err;
    EXPECT_FALSE(has(byName.err, "PLP")) << byName.err;
}

TEST_F(TunerctlOutputTest, ChannelFilesAreRefusedByFileAndLine) {
    const std::string twice = file("twice.conf",
                                   "[A]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 482000000\n"
                                   "[A]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 650000000\n");
    Outcome dup = run({"tune", "0", "--channel", "A", "-c", twice});
    EXPECT_EQ(dup.code, 2);
    EXPECT_EQ(dup.err, twice + ":4: a second channel named 'A' (the first is at line 1): give each "
                               "channel a name of its own\n");
    const std::string bad = file("bad.conf", "[A]\n\tDELIVERY_SYSTEM = NOPE\n");
    Outcome unreadable = run({"tune", "0", "--channel", "A", "-c", bad});
    EXPECT_EQ(unreadable.code, 2);
    EXPECT_EQ(unreadable.err, bad + ":2: value NOPE is invalid for DELIVERY_SYSTEM\n")
            << "libdvbv5's own line is said once, in tunerctl's words";
    // A bare number is Hz, as the file itself writes FREQUENCY; one that cannot be is refused.
    EXPECT_EQ(run({"tune", "0", "--dvbt", "482000000"}).code, 0);
    Outcome tooSmall = run({"tune", "0", "--dvbt", "482"});
    EXPECT_EQ(tooSmall.code, 2);
    EXPECT_EQ(tooSmall.err, "frequency '482' has no unit: write 482MHz (or Hz, kHz, GHz)\n");
}

// Two satellites' transponders of one downlink are two channels: the file names them apart.
TEST_F(TunerctlOutputTest, SatelliteEntriesAreNamedByDownlinkPolarisationAndSatellite) {
    const std::string channels = file("sat.conf");
    EXPECT_EQ(run({"scan", "3", "--dvbs", "11362MHz", "--polarisation", "V", "--lnb", "UNIVERSAL",
                   "--sat", "1", "-o", channels})
                      .code,
              1)
            << "the built-in box's dish passes nothing: the file is left alone";
    EXPECT_EQ(readFile(channels), "");
    dvb_file* none = dvb_read_file(channels.c_str());
    EXPECT_EQ(none, nullptr);
    if (none != nullptr) dvb_file_free(none);
}

TEST_F(TunerctlOutputTest, AnInterruptedScanLeavesThePreviousFileOrAWholeOne) {
    const std::string previous =
            "[kept]\n\tDELIVERY_SYSTEM = DVBC/ANNEX_A\n\tFREQUENCY = "
            "306000000\n\tSYMBOL_RATE = 6900000\n";
    const std::string channels = file("cable.conf", previous);
    for (const char* stopAt : {"FREQUENCY", "LOCKED"}) {
        SCOPED_TRACE(stopAt);
        ProgramRun sweep =
                start({"scan", "2", "--dvbc", "474MHz", "--blind", "--json", "-o", channels});
        ASSERT_TRUE(eventually([&] { return has(readFile(sweep.out), stopAt); }))
                << readFile(sweep.err);
        kill(sweep.pid, SIGINT);
        EXPECT_EQ(WEXITSTATUS(finishProgram(sweep)), 130) << readFile(sweep.err);
        const std::string now = readFile(channels);
        if (now == previous) continue;
        dvb_file* whole = dvb_read_file(channels.c_str());
        ASSERT_NE(whole, nullptr) << now;
        EXPECT_NE(whole->first_entry, nullptr) << now;
        dvb_file_free(whole);
    }
}

TEST_F(TunerctlOutputTest, OneWordingForAnIdTheServiceDoesNotHave) {
    const std::string line = "no such frontend 9 (the service has 0, 1, 2, 3)\n";
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"info", "9"},
                                               {"tune", "9", "--dvbt", "482MHz"},
                                               {"status", "9"},
                                               {"scan", "9", "--dvbt", "482MHz"},
                                               {"demux", "--frontend", "9"}}) {
        Outcome o = run(args);
        EXPECT_EQ(o.code, 2) << args[0];
        EXPECT_EQ(o.err, line) << args[0];
    }
    // A scan's summary has every key every time, null where there is nothing.
    Outcome nothing = run({"scan", "0", "--dvbt", "490MHz", "--json"});
    EXPECT_EQ(nothing.code, 1);
    EXPECT_EQ(nothing.out, "{\"found\":[],\"stopped\":false,\"leftOn\":null}\n");
    Outcome json = run({"info", "9", "--json"});
    EXPECT_EQ(json.out,
              "{\"error\":\"no such frontend 9 (the service has 0, 1, 2, 3)\",\"exit\":2}\n");
}

// -v and -vv show what the service logged for the command; without them only its warnings.
TEST_F(TunerctlOutputTest, VerboseShowsTheRunningServicesLogOfTheCommand) {
    Outcome quiet = run({"tune", "0", "--dvbt", "482MHz"});
    EXPECT_FALSE(has(quiet.err, "Frontend::tune")) << quiet.err;
    Outcome debug = run({"-vv", "tune", "0", "--dvbt", "482MHz"});
    EXPECT_TRUE(has(debug.err, " D android.hardware.tv.tuner@1.0-Frontend: [Frontend::tune:"))
            << debug.err;
    EXPECT_FALSE(has(debug.err, "Tuner::getFrontendIds:117")) << "discovery was another command's";
    Outcome info = run({"-v", "tune", "0", "--dvbt", "482MHz"});
    EXPECT_FALSE(has(info.err, " D android.hardware")) << info.err;
    Outcome none = run({"-q", "-vv", "status", "0"});
    EXPECT_EQ(none.err, "");
}

}  // namespace
