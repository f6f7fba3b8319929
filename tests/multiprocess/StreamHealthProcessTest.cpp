// What tunerctl shows of a stream's health while another client changes the world under the
// service process: the TR 101 290 counts of `status --stream --watch` follow the stream faults and
// the C/N, and a recording reports the stream it lost when its transmitter went off the air.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ServiceProcess.h"
#include "TunerctlRuns.h"

namespace {

using namespace testing_support;
using nlohmann::json;

class StreamHealthProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mDir = getenv("MOX_HIDL_SERVICE_DIR");
        mRuns.setDirectory(mDir);
        mService = spawnService(mDir + "/service.log");
        ASSERT_TRUE(eventually([&] { return tunerctl({"world"}) == 0; }))
                << readFile(mDir + "/service.log");
    }
    void TearDown() override {
        if (mWatch.pid > 0) {
            kill(mWatch.pid, SIGINT);
            finishProgram(mWatch);
        }
        kill(mService, SIGTERM);
        waitForChild(mService);
    }
    ProgramRun start(const std::vector<std::string>& args) { return mRuns.start(args); }
    int tunerctl(const std::vector<std::string>& args, ProgramRun* kept = nullptr,
                 std::chrono::milliseconds bound = kBound) {
        return mRuns.run(args, kept, bound);
    }
    void world(const std::vector<std::string>& change) {
        std::vector<std::string> args{"world"};
        args.insert(args.end(), change.begin(), change.end());
        ASSERT_EQ(tunerctl(args), 0);
    }

    // The watch's samples so far, each a JSON object with the RF status and the stream's figures.
    std::vector<json> samples() const {
        std::vector<json> found;
        std::istringstream lines(readFile(mWatch.out));
        for (std::string line; std::getline(lines, line);) {
            const json sample = json::parse(line, nullptr, false);
            if (sample.is_object() && sample.contains("sample") && sample.contains("stream")) {
                found.push_back(sample);
            }
        }
        return found;
    }
    // The samples once there are at least n.
    std::vector<json> atLeast(size_t n) const {
        std::vector<json> s;
        const bool came = eventually([&] { return (s = samples()).size() >= n; });
        EXPECT_TRUE(came) << "only " << s.size() << " samples\n"
                          << readFile(mWatch.out) << readFile(mWatch.err);
        return s;
    }

    std::string mDir;
    pid_t mService = -1;
    ProgramRun mWatch;
    TunerctlRuns mRuns;
};

struct Counted {
    const char* priority;
    const char* name;
};

uint64_t countOf(const json& sample, const Counted& c) {
    return sample["stream"][c.priority][c.name].get<uint64_t>();
}

TEST_F(StreamHealthProcessTest, CountsFollowTheStreamFaultsSetThroughTheWorld) {
    mWatch = start({"status", "0", "--dvbt", "482MHz", "--stream", "--watch", "--json"});
    struct Case {
        std::vector<std::string> fault;
        Counted counted;
    };
    const Case cases[] = {
            {{"continuity-errors", "20/s"}, {"firstPriority", "Continuity_count_error"}},
            {{"crc-errors", "5/s"}, {"secondPriority", "CRC_error"}},
            {{"without", "SDT"}, {"thirdPriority", "SDT_actual_error"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.counted.name);
        // Two samples of the clean stream (the first may still hold the last fault's end).
        const size_t from = samples().size();
        const std::vector<json> clean = atLeast(from + 3);
        ASSERT_GE(clean.size(), from + 3);
        const uint64_t before = countOf(clean[from + 1], c.counted);
        EXPECT_EQ(countOf(clean[from + 2], c.counted), before) << "the clean stream counts none";
        EXPECT_GT(clean[from + 2]["stream"]["bitRate"].get<uint64_t>(), 6000000u);

        std::vector<std::string> fault{"stream", "482MHz"};
        fault.insert(fault.end(), c.fault.begin(), c.fault.end());
        world(fault);
        EXPECT_TRUE(eventually([&] { return countOf(samples().back(), c.counted) > before; }))
                << readFile(mWatch.out);
        world({"stream", "482MHz", "clean"});
    }
}

TEST_F(StreamHealthProcessTest, TransportErrorsComeWithACnRampBelowWhatTheModulationNeeds) {
    mWatch = start({"status", "0", "--dvbt", "482MHz", "--stream", "--watch", "--json"});
    const Counted transport{"secondPriority", "Transport_error"};
    const size_t from = atLeast(2).size();
    const uint64_t clean = countOf(samples()[from - 1], transport);
    EXPECT_EQ(clean, 0u) << "quasi error-free at the installation's C/N";

    // Down to 2 dB, far below what this multiplex's modulation needs, over two seconds.
    world({"transmitter", "482MHz", "cn", "2", "over", "2s"});
    ASSERT_TRUE(eventually([&] { return countOf(samples().back(), transport) > 1000; }))
            << readFile(mWatch.out);
    const json low = samples().back();
    EXPECT_TRUE(low["status"]["locked"].get<bool>()) << "errors, but the lock holds";
    EXPECT_GT(low["stream"]["bitRate"].get<uint64_t>(), 6000000u) << "damaged packets still come";

    // Back up: the count stops growing.
    world({"transmitter", "482MHz", "cn", "30", "over", "1s"});
    const size_t back = samples().size();
    const std::vector<json> after = atLeast(back + 4);
    ASSERT_GE(after.size(), back + 4);
    EXPECT_EQ(countOf(after[back + 3], transport), countOf(after[back + 2], transport));
}

TEST_F(StreamHealthProcessTest, StatusWithoutATuneOfItsOwnLeavesAnotherClientsStreamAlone) {
    // A recording's demux is fed by frontend 0: --stream would take that stream away.
    ProgramRun recording =
            start({"record", "0", "--dvbt", "482MHz", "-t", "5s", "-o", mDir + "/busy.ts"});
    ASSERT_TRUE(eventually([&] {
        struct stat s {};
        return stat((mDir + "/busy.ts").c_str(), &s) == 0 && s.st_size > 0;
    }));
    ProgramRun refused;
    EXPECT_EQ(tunerctl({"status", "0", "--stream"}, &refused), 2);
    EXPECT_NE(readFile(refused.err).find("which --stream would take from it"), std::string::npos)
            << readFile(refused.err);
    EXPECT_EQ(finishProgram(recording), 0) << readFile(recording.err);
}

TEST_F(StreamHealthProcessTest, ARecordingReportsTheStreamItLostWhenTheTransmitterWentOff) {
    const std::string file = mDir + "/cut.ts";
    ProgramRun recording =
            start({"record", "0", "--dvbt", "482MHz", "-t", "3s", "-o", file, "--json"});
    ASSERT_TRUE(eventually([&] {
        struct stat s {};
        return stat(file.c_str(), &s) == 0 && s.st_size > 200000;
    })) << readFile(recording.err);
    world({"transmitter", "482MHz", "off"});
    ASSERT_EQ(finishProgram(recording), 0) << readFile(recording.err);

    std::istringstream lines(readFile(recording.out));
    std::string last;
    for (std::string line; std::getline(lines, line);) last = line;
    const json summary = json::parse(last, nullptr, false);
    ASSERT_TRUE(summary.is_object()) << readFile(recording.out);
    EXPECT_TRUE(summary["lostLock"].get<bool>()) << last;
    EXPECT_GT(summary["lostMilliseconds"].get<uint64_t>(), 500u) << last;
    EXPECT_GT(summary["packets"].get<uint64_t>(), 1000u) << last;
    EXPECT_EQ(summary["bytes"].get<uint64_t>() % 188, 0u) << last;
}

}  // namespace
