// tuner-replay as a process on recorded sessions changed by hand, standing for a service that
// changed: it names the line of the first divergence, what was expected and what came.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ServiceProcess.h"

namespace {

using namespace testing_support;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class ReplayProcessTest : public ::testing::Test {
  protected:
    // The committed trace `name` with the first line that contains `where` changed by `change`;
    // returns the changed line's number.
    int changed(const std::string& name, const std::string& where,
                const std::function<std::string(const std::string&)>& change) {
        mLines = linesOf(readFile(std::string(TRACES_DIR) + "/" + name + ".jsonl"));
        for (size_t i = 0; i < mLines.size(); ++i) {
            if (mLines[i].find(where) == std::string::npos) continue;
            const std::string before = mLines[i];
            mLines[i] = change(before);
            EXPECT_NE(mLines[i], before) << "the change changed nothing";
            return static_cast<int>(i) + 1;
        }
        ADD_FAILURE() << name << " has no line with " << where;
        return 0;
    }
    std::string write() {
        const std::string path = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/changed.jsonl";
        std::ofstream out(path);
        for (const std::string& line : mLines) out << line << '\n';
        return path;
    }
    // Runs tuner-replay; its exit code, what it printed in `output` and its errors in mErrors.
    int replay(const std::vector<std::string>& args, std::string& output) {
        std::vector<std::string> argv{TUNER_REPLAY_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        const ProgramRun run =
                startProgram(argv, std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/replay");
        // A replay waits up to 2 s (10 s under a sanitizer) for a record that does not come.
        const int status = finishProgram(run, std::chrono::seconds(60));
        output = readFile(run.out);
        mErrors = readFile(run.err);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static std::string replaced(const std::string& line, const std::string& from,
                                const std::string& to) {
        return std::regex_replace(line, std::regex(from), to,
                                  std::regex_constants::format_first_only);
    }

    std::vector<std::string> mLines;
    std::string mErrors;
};

struct Change {
    const char* what;
    const char* trace;
    const char* where;  // the first line holding this is changed
    const char* from;   // a regular expression in it
    const char* to;
    const char* came;  // what the service did instead, as the replay shows it
};

void PrintTo(const Change& c, std::ostream* os) {
    *os << c.what;
}

class DivergenceTest : public ReplayProcessTest, public ::testing::WithParamInterface<Change> {};

TEST_P(DivergenceTest, NamesTheLineWhatWasExpectedAndWhatCame) {
    const Change& c = GetParam();
    const int line = changed(c.trace, c.where,
                             [&](const std::string& l) { return replaced(l, c.from, c.to); });
    const std::string path = write();
    std::string output;
    EXPECT_EQ(replay({path}, output), 1) << output;
    const std::string expected = path + ":" + std::to_string(line) + ": diverged: expected ";
    const std::vector<std::string> lines = linesOf(output);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().rfind(expected, 0), 0u) << output;
    EXPECT_NE(lines.back().find(", came " + std::string(c.came)), std::string::npos) << output;
}

INSTANTIATE_TEST_SUITE_P(
        Replay, DivergenceTest,
        ::testing::Values(
                // The tuning record the service writes: 538 MHz (0x21a) was recorded as 539.
                Change{"TuningRecord", "terrestrial-tune-status", "\"MOX_Tuner_Scan\"",
                       "\"in\":\"0400000003000000"
                       "1a02",
                       "\"in\":\"0400000003000000"
                       "1b02",
                       R"({"driver":"MOX_Tuner_Scan","tuner":0,"in":"04000000030000001a02)"},
                // A status the service converts from the driver's record.
                Change{"StatusConversion", "terrestrial-tune-status",
                       "\"return\":\"IFrontend.getStatus\"", "\\{\"snr\":[0-9]+\\}", "{\"snr\":1}",
                       R"({"return":"IFrontend.getStatus")"},
                // The event a tune sends.
                Change{"Event", "terrestrial-tune-status", "\"IFrontendCallback.onEvent\"",
                       "LOCKED", "NO_SIGNAL",
                       R"({"callback":"IFrontendCallback.onEvent","object":2,"args":{"frontendEventType":"LOCKED"}})"},
                // What a sweep reports of a multiplex it found.
                Change{"ScanMessage", "cable-blind-sweep", "\"frequencies\"",
                       "\"frequencies\":\\[[0-9]+", "\"frequencies\":[1",
                       R"({"callback":"IFrontendCallback.onScanMessage")"},
                // A DiSEqC message on its way to the switch.
                Change{"Diseqc", "satellite-diseqc", "\"MOX_Tuner_SendDiSEqCCmd\"", "\"in\":\"e0",
                       "\"in\":\"e1", R"({"driver":"MOX_Tuner_SendDiSEqCCmd","lnb":0,"in":"e0)"}),
        [](const auto& info) { return std::string(info.param.what); });

TEST_F(ReplayProcessTest, EveryCommittedTraceReplaysIdentically) {
    for (const char* name : {"cable-blind-sweep", "terrestrial-tune-status", "satellite-diseqc",
                             "misbehaving-board"}) {
        std::string output;
        EXPECT_EQ(replay({std::string(TRACES_DIR) + "/" + name + ".jsonl"}, output), 0) << output;
        EXPECT_EQ(linesOf(output).back().rfind("identical: ", 0), 0u) << output;
    }
}

// A call the service does not make (a driver record added before a tune returns): the replay
// waits for it, then says nothing came.
TEST_F(ReplayProcessTest, ACallThatDoesNotComeIsNamed) {
    mLines = linesOf(readFile(std::string(TRACES_DIR) + "/terrestrial-tune-status.jsonl"));
    size_t at = 0;
    for (size_t i = 0; i < mLines.size(); ++i) {
        if (mLines[i].find("\"return\":\"IFrontend.tune\"") != std::string::npos) {
            at = i;
            break;
        }
    }
    ASSERT_GT(at, 0u);
    mLines.insert(mLines.begin() + static_cast<long>(at),
                  R"({"t":1,"thread":9,"driver":"MOX_Tuner_Release","tuner":3,"result":0})");
    std::string output;
    EXPECT_EQ(replay({write()}, output), 1) << output;
    EXPECT_NE(
            output.find(
                    ":" + std::to_string(at + 1) +
                    R"(: diverged: expected {"driver":"MOX_Tuner_Release","tuner":3,"result":0}, came nothing)"),
            std::string::npos)
            << output;
}

TEST_F(ReplayProcessTest, ContinueListsEveryDivergence) {
    changed("terrestrial-tune-status", "\"MOX_Tuner_Scan\",\"tuner\":1",
            [](const std::string& l) { return replaced(l, "\"in\":\"07", "\"in\":\"04"); });
    const std::string path = write();
    std::string output;
    EXPECT_EQ(replay({path, "--continue"}, output), 1) << output;
    const auto lines = linesOf(output);
    EXPECT_EQ(lines.back().rfind("1 divergences; ", 0), 0u) << output;
}

TEST_F(ReplayProcessTest, ABadTraceOrUsageEndsWithExitCode2) {
    mLines = {R"({"trace":"mox-tuner","version":1,"capabilities":null})",
              R"({"t":1,"thread":1,"driver":"MOX_Tuner_Scan","tuner":0,"in":"00","result":0})"};
    const std::string path = write();
    std::string output;
    EXPECT_EQ(replay({path}, output), 2);
    EXPECT_EQ(mErrors, path + ":2: \"in\" holds 1 bytes; the record has 24\n");
    EXPECT_EQ(replay({}, output), 2);
    EXPECT_EQ(mErrors.rfind("usage: tuner-replay", 0), 0u) << mErrors;
    EXPECT_EQ(replay({"/nonexistent/trace.jsonl"}, output), 2);
    EXPECT_EQ(mErrors, "/nonexistent/trace.jsonl: cannot be read\n");
}

}  // namespace
