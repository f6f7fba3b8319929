// Installation files: what a good file becomes, and the one line a bad file gets.
#include <gtest/gtest.h>

#include <regex>

#include "simulator/Environment.h"

using mox::sim::EnvironmentError;
using mox::sim::loadEnvironmentFile;
using mox::sim::parseEnvironment;

namespace {

const char* const kCableBox = R"({
  "frontends": [
    {"systems": ["DVB-C"], "channels": 1, "frequencyMHz": {"min": 47, "max": 862},
     "dvbc": {"modulations": ["64QAM", "256QAM"], "annexes": ["A"]}}
  ],
  "transmitters": [
    {"system": "DVB-C", "frequencyMHz": 306, "symbolRate": 6900000, "modulation": "64QAM"}
  ]
})";

TEST(EnvironmentFileTest, AGoodFileBecomesTheRecordAndTheAir) {
    const mox::sim::Environment env = parseEnvironment(kCableBox, "box.json");
    EXPECT_EQ(env.capability.ucFrontendCnt, 1);
    const MOX_TunerFrontendCap_t& entry = env.capability.tFrontend[0];
    EXPECT_EQ(entry.ucChannelCnt, 1);
    EXPECT_EQ(entry.tTypeSupport.ucCnt, 1);
    EXPECT_EQ(entry.tTypeSupport.eValues[0], MOX_TUNER_TYPE_DVBC);
    EXPECT_EQ(entry.tFreqRange.uiMin, 47u);
    EXPECT_EQ(entry.tFreqRange.uiMax, 862u);
    EXPECT_EQ(entry.uiStatusCap, 0x3FFFFFu) << "every status type unless the file says";
    EXPECT_EQ(entry.tCapability.tDvbc.tQam.ucCnt, 2);
    EXPECT_EQ(entry.tCapability.tDvbc.tQam.eValues[1], MOX_CABLE_MOD_256QAM);
    EXPECT_EQ(entry.tCapability.tDvbc.tAnnex.eValues[0], MOX_DVBC_ANNEX_A);
    ASSERT_EQ(env.air.size(), 1u);
    EXPECT_EQ(env.air[0].frequencyMHz, 306u);
    EXPECT_EQ(env.air[0].symbolRate, 6900000u);
    EXPECT_EQ(env.air[0].modulation, MOX_CABLE_MOD_64QAM);
    EXPECT_EQ(env.air[0].annex, 0u) << "not given: any annex";
}

TEST(EnvironmentFileTest, EveryBadFileGetsOneLineNamingFileLineAndField) {
    struct Case {
        const char* what;
        std::string text;
        std::string message;  // a regular expression for the whole line
    } const cases[] = {
            {"syntax error", "{\n  \"frontends\": [\n    {,\n  ]\n}",
             "bad\\.json:3: syntax error: .*"},
            {"unknown field",
             "{\"frontends\": [\n {\"systems\": [\"DVB-C\"], \"channels\": 1,\n"
             "  \"frequencyMHz\": {\"min\": 1, \"max\": 2},\n  \"colour\": \"red\"}]}",
             "bad\\.json:4: frontends\\[0\\]\\.colour: unknown field"},
            {"wrong type",
             "{\"frontends\": [{\"systems\": [\"DVB-C\"],\n \"channels\": \"two\","
             " \"frequencyMHz\": {\"min\": 1, \"max\": 2}}]}",
             "bad\\.json:2: frontends\\[0\\]\\.channels: must be a whole number"},
            {"value out of range",
             "{\"frontends\": [{\"systems\": [\"DVB-C\"], \"channels\": 300,"
             " \"frequencyMHz\": {\"min\": 1, \"max\": 2}}]}",
             "bad\\.json:1: frontends\\[0\\]\\.channels: 300 is out of range 0\\.\\.255"},
            {"unknown name",
             "{\"frontends\": [{\"systems\": [\"DVB-X\"], \"channels\": 1,"
             " \"frequencyMHz\": {\"min\": 1, \"max\": 2}}]}",
             "bad\\.json:1: frontends\\[0\\]\\.systems\\[0\\]: \"DVB-X\" is not one of DVB-C, .*"},
            {"list beyond the record's room",
             "{\"frontends\": [{\"systems\": [\"DVB-C\"], \"channels\": 1,"
             " \"frequencyMHz\": {\"min\": 1, \"max\": 2}, \"bandwidths\": [\"8MHz\", \"8MHz\","
             " \"8MHz\", \"8MHz\", \"8MHz\", \"8MHz\", \"8MHz\", \"8MHz\", \"8MHz\"]}]}",
             "bad\\.json:1: frontends\\[0\\]\\.bandwidths: 9 entries, the record has room for 8"},
            {"missing field",
             "{\"frontends\": [],\n \"transmitters\": [\n"
             "  {\"system\": \"DVB-C\", \"frequencyMHz\": 306}]}",
             "bad\\.json:3: transmitters\\[0\\]\\.symbolRate: missing"},
            {"field of another system",
             "{\"frontends\": [], \"transmitters\": [\n  {\"system\": \"DVB-C\","
             " \"frequencyMHz\": 306, \"symbolRate\": 6900000,\n   \"plps\": [0]}]}",
             "bad\\.json:3: transmitters\\[0\\]\\.plps: does not apply to DVB-C"},
            {"duplicate frequency",
             "{\"frontends\": [], \"transmitters\": [\n"
             "  {\"system\": \"DVB-T\", \"frequencyMHz\": 482, \"bandwidth\": \"8MHz\"},\n"
             "  {\"system\": \"DVB-T2\", \"frequencyMHz\": 482, \"bandwidth\": \"8MHz\"}]}",
             "bad\\.json:3: transmitters\\[1\\]\\.frequencyMHz: 482 MHz is already used by "
             "transmitters\\[0\\]"},
            {"no frontends", "{\"transmitters\": []}", "bad\\.json:1: frontends: missing"},
            {"fault of an unknown function",
             "{\"frontends\": [],\n \"faults\": {\"Tune\": {\"result\": -1}}}",
             "bad\\.json:2: faults\\.Tune: \"Tune\" is not one of Init, .*"},
            {"a figure that is no number",
             "{\"frontends\": [], \"transmitters\": [{\"system\": \"DVB-C\",\n"
             " \"frequencyMHz\": 306, \"symbolRate\": 6900000, \"figures\": {\"snr\": \"high\"}}]}",
             "bad\\.json:2: transmitters\\[0\\]\\.figures\\.snr: \"high\" is not a number, .*"},
            {"a transponder twice on one satellite",
             "{\"frontends\": [], \"satellites\": [{\"input\": \"A\", \"transponders\": [\n"
             " {\"system\": \"DVB-S\", \"frequencyMHz\": 11362, \"polarisation\": \"V\","
             " \"symbolRate\": 22000000},\n"
             " {\"system\": \"DVB-S2\", \"frequencyMHz\": 11362, \"polarisation\": \"V\","
             " \"symbolRate\": 27500000}]}]}",
             "bad\\.json:3: satellites\\[0\\]\\.transponders\\[1\\]\\.frequencyMHz: 11362 MHz V is "
             "already used by satellites\\[0\\]\\.transponders\\[0\\]"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            parseEnvironment(c.text, "bad.json");
            ADD_FAILURE() << "accepted";
        } catch (const EnvironmentError& e) {
            EXPECT_TRUE(std::regex_match(e.what(), std::regex(c.message))) << e.what();
            EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
        }
    }
}

TEST(EnvironmentFileTest, AMissingFileSaysSo) {
    try {
        loadEnvironmentFile("/nonexistent/box.json");
        ADD_FAILURE() << "accepted";
    } catch (const EnvironmentError& e) {
        EXPECT_STREQ(e.what(),
                     "/nonexistent/box.json:0: cannot be read: No such file or directory");
    }
}

}  // namespace
