// Installation files: what a good file becomes, and the one line a bad file gets.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "simulator/Environment.h"
#include "simulator/stream/MultiplexContent.h"

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

// A file of terrestrial transmitters, one a line from line 4, on network 1 "Vale".
std::string airFile(const std::vector<std::string>& transmitters,
                    const std::string& top = R"("networks": [{"id": 1, "name": "Vale"}])") {
    std::string text = "{\"frontends\": [],\n " + top + ",\n \"transmitters\": [\n";
    for (size_t i = 0; i < transmitters.size(); ++i)
        text += "  " + transmitters[i] + (i + 1 < transmitters.size() ? ",\n" : "\n");
    return text + "]}";
}

std::string dvbt(uint32_t mhz, const std::string& more) {
    return R"({"system": "DVB-T", "frequencyMHz": )" + std::to_string(mhz) +
           R"(, "bandwidth": "8MHz", )" + more + "}";
}

std::string service(uint16_t id, const std::string& components = R"({"type": "H.264"})") {
    return R"({"id": )" + std::to_string(id) + R"(, "name": "S", "components": [)" + components +
           "]}";
}

std::string multiplex(uint16_t network, uint16_t tsid, const std::string& services) {
    return R"("multiplex": {"network": )" + std::to_string(network) + R"(, "transportStreamId": )" +
           std::to_string(tsid) + R"(, "services": [)" + services + "]}";
}

std::string services(size_t count) {
    std::string list;
    for (size_t i = 0; i < count; ++i)
        list += (i ? ", " : "") + service(static_cast<uint16_t>(i + 1));
    return list;
}

std::string components(size_t count) {
    std::string list;
    for (size_t i = 0; i < count; ++i) list += std::string(i ? ", " : "") + R"({"type": "AAC"})";
    return list;
}

// The one line a bad file gets, exactly.
void expectRefused(const std::string& text, const std::string& line) {
    try {
        parseEnvironment(text, "bad.json");
        ADD_FAILURE() << "accepted";
    } catch (const EnvironmentError& e) {
        EXPECT_EQ(e.what(), line);
    }
}

TEST(EnvironmentFileTest, WhatTheAirCarriesIsRead) {
    const std::string satellite =
            R"("satellites": [{"input": "A", "transponders": [{"system": "DVB-S", )"
            R"("frequencyMHz": 11362, "polarisation": "V", "symbolRate": 22000000, )" +
            multiplex(2, 7, service(9)) + "}]}]";
    const mox::sim::Environment env = parseEnvironment(
            "{\"frontends\": [],\n"
            R"("networks": [{"id": 1, "name": "Vale"}, {"id": 2, "name": "Orbit"}],)"
            "\n\"utcStart\": \"2026-11-24T20:00:00Z\",\n\"transmitters\": [" +
                    dvbt(482,
                         multiplex(1, 7, service(5, R"({"type": "AC-3", "language": "eng"})")) +
                                 R"(, "streamFaults": {"crcErrorsPerS": 0.5, "missing": ["SDT-other"]})") +
                    "],\n" + satellite + "}",
            "good.json");
    EXPECT_EQ(env.utcStart, 1795550400);
    ASSERT_EQ(env.air.size(), 2u);
    const mox::air::MultiplexContent& c = env.air[0].content;
    EXPECT_EQ(c.networkName, "Vale");
    EXPECT_EQ(c.originalNetworkId, 1) << "not given: the network's own";
    ASSERT_EQ(c.services.size(), 1u);
    ASSERT_EQ(c.services[0].components.size(), 1u);
    EXPECT_TRUE(c.services[0].components[0].ac3);
    EXPECT_EQ(c.services[0].components[0].streamType, 0x06);
    EXPECT_EQ(c.services[0].components[0].language, "eng");
    EXPECT_EQ(env.air[0].streamFaults.crcErrorsPerS, 0.5);
    EXPECT_TRUE(env.air[0].streamFaults.missing[static_cast<size_t>(mox::air::Table::kSdtOther)]);
    EXPECT_FALSE(env.air[0].streamFaults.missing[static_cast<size_t>(mox::air::Table::kSdt)]);
    // The same transport stream id in another network is another multiplex.
    EXPECT_EQ(env.air[1].content.networkName, "Orbit");
    EXPECT_EQ(env.air[1].content.transportStreamId, 7);

    // The last second DVB's date field holds (or, with a 32-bit time_t, the last it holds).
    const bool wideTime = sizeof(time_t) >= 8;
    const std::string last = wideTime ? "2038-04-22T23:59:59Z" : "2038-01-19T03:14:07Z";
    EXPECT_EQ(int64_t{parseEnvironment(airFile({}, "\"utcStart\": \"" + last + "\""), "good.json")
                              .utcStart},
              wideTime ? 2155593599 : 2147483647);
}

TEST(EnvironmentFileTest, EveryBadStreamFieldGetsOneLineNamingIt) {
    const std::string vale = R"("networks": [{"id": 1, "name": "Vale"}])";
    const std::string pidClash = service(1, R"({"type": "H.264", "pid": 272})") + ", " + service(2);
    const std::string twice =
            service(1, R"({"type": "H.264", "pid": 300}, {"type": "AAC", "pid": 300})");
    // A 32-bit time_t (the armhf build's) ends before DVB's dates do.
    const std::string kRange =
            sizeof(time_t) >= 8 ? "1970-01-01 to 2038-04-22" : "1970-01-01 to 2038-01-19";
    struct Case {
        const char* what;
        std::string text;
        std::string line;
    } const cases[] = {
            {"a network the file does not name", airFile({dvbt(482, multiplex(2, 7, service(1)))}),
             R"(bad.json:4: transmitters[0].multiplex.network: no network 2 in "networks")"},
            {"a multiplex without any networks",
             airFile({dvbt(482, multiplex(1, 7, service(1)))}, R"("seed": 1)"),
             R"(bad.json:4: transmitters[0].multiplex.network: no network 1 in "networks")"},
            {"a transport stream id twice in a network",
             airFile({dvbt(482, multiplex(1, 7, service(1))),
                      dvbt(490, multiplex(1, 7, service(2)))}),
             "bad.json:5: transmitters[1].multiplex.transportStreamId: transport stream 7 of "
             "network 1 is already transmitters[0].multiplex"},
            {"a satellite's transport stream id a transmitter has",
             "{\"frontends\": [], " + vale + ",\n\"transmitters\": [" +
                     dvbt(482, multiplex(1, 7, service(1))) +
                     "],\n\"satellites\": [{\"input\": \"A\", \"transponders\": [\n"
                     R"({"system": "DVB-S", "frequencyMHz": 11362, "polarisation": "V", )"
                     R"("symbolRate": 22000000, )" +
                     multiplex(1, 7, service(2)) + "}]}]}",
             "bad.json:4: satellites[0].transponders[0].multiplex.transportStreamId: transport "
             "stream 7 of network 1 is already transmitters[0].multiplex"},
            {"a component on the PMT PID another service is given",
             airFile({dvbt(482, multiplex(1, 7, pidClash))}),
             "bad.json:4: transmitters[0].multiplex.services[1].pmtPid: PID 272 of the PMT of "
             "service 2 is already used by component 0 of service 1"},
            {"two components on one PID", airFile({dvbt(482, multiplex(1, 7, twice))}),
             "bad.json:4: transmitters[0].multiplex.services[0].components[1].pid: PID 300 of "
             "component 1 of service 1 is already used by component 0 of service 1"},
            {"more services than a multiplex carries",
             airFile({dvbt(482, multiplex(1, 7, services(mox::air::kMaxServicesPerMultiplex + 1)))}),
             "bad.json:4: transmitters[0].multiplex.services: 31 services, a multiplex carries at "
             "most 30"},
            {"more components than a service carries",
             airFile({dvbt(482, multiplex(1, 7, service(1, components(15))))}),
             "bad.json:4: transmitters[0].multiplex.services[0].components: 15 components, a "
             "service carries at most 14"},
            {"a constellation DVB-T does not have",
             airFile({dvbt(482, R"("constellation": "256QAM")")}),
             R"(bad.json:4: transmitters[0].constellation: "256QAM" is not one of QPSK, 16QAM, 64QAM)"},
            {"a code rate DVB-T does not have", airFile({dvbt(482, R"("codeRate": "3/5")")}),
             R"(bad.json:4: transmitters[0].codeRate: "3/5" is not one of 1/2, 2/3, 3/4, 5/6, 7/8)"},
            {"a guard interval of DVB-T2 only", airFile({dvbt(482, R"("guardInterval": "1/128")")}),
             "bad.json:4: transmitters[0].guardInterval: \"1/128\" is not one of 1/32, 1/16, 1/8, "
             "1/4"},
            {"a code rate as a number", airFile({dvbt(482, R"("codeRate": 0.75)")}),
             R"(bad.json:4: transmitters[0].codeRate: 0.75 is not one of 1/2, 2/3, 3/4, 5/6, 7/8)"},
            {"a negative loss rate",
             airFile({dvbt(482, R"("streamFaults": {"continuityErrorsPerS": -1})")}),
             "bad.json:4: transmitters[0].streamFaults.continuityErrorsPerS: -1 is out of range "
             "0..10000"},
            {"a CRC error rate in words",
             airFile({dvbt(482, R"("streamFaults": {"crcErrorsPerS": "often"})")}),
             "bad.json:4: transmitters[0].streamFaults.crcErrorsPerS: must be a number"},
            {"an overflow beyond 100 %",
             airFile({dvbt(482, R"("streamFaults": {"overflowPercent": 150})")}),
             "bad.json:4: transmitters[0].streamFaults.overflowPercent: 150 is out of range "
             "0..100"},
            {"a missing table the stream has not",
             airFile({dvbt(482, R"("streamFaults": {"missing": ["SDT", "BAT"]})")}),
             "bad.json:4: transmitters[0].streamFaults.missing[1]: \"BAT\" is not a table: PAT, "
             "CAT, PMT, NIT, SDT, SDT-other, EIT, TDT, TOT"},
            {"a fault the stream has not",
             airFile({dvbt(482, R"("streamFaults": {"jitterMs": 5})")}),
             "bad.json:4: transmitters[0].streamFaults.jitterMs: unknown field"},
            {"a time without its zone", airFile({}, R"("utcStart": "2026-11-24T20:00:00")"),
             "bad.json:2: utcStart: must be a time in UTC, e.g. \"2026-11-24T20:00:00Z\""},
            {"a time as a number", airFile({}, R"("utcStart": 1795550400)"),
             "bad.json:2: utcStart: must be a time in UTC, e.g. \"2026-11-24T20:00:00Z\""},
            {"a day November has not", airFile({}, R"("utcStart": "2026-11-31T20:00:00Z")"),
             "bad.json:2: utcStart: \"2026-11-31T20:00:00Z\" is no date and time of day"},
            {"an hour a day has not", airFile({}, R"("utcStart": "2026-11-24T24:00:00Z")"),
             "bad.json:2: utcStart: \"2026-11-24T24:00:00Z\" is no date and time of day"},
            {"a time beyond DVB's dates", airFile({}, R"("utcStart": "2038-04-23T00:00:00Z")"),
             "bad.json:2: utcStart: \"2038-04-23T00:00:00Z\" is outside the dates DVB's time "
             "tables carry, " +
                     kRange},
            {"a time before 1970", airFile({}, R"("utcStart": "1969-12-31T23:59:59Z")"),
             "bad.json:2: utcStart: \"1969-12-31T23:59:59Z\" is outside the dates DVB's time "
             "tables carry, " +
                     kRange},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        expectRefused(c.text, c.line);
    }
}

// A captured stream is checked when the file is read: a file that is not there or not whole
// packets with sync bytes is one line.
TEST(EnvironmentFileTest, ACaptureThatIsNoTransportStreamIsRefused) {
    char dirTemplate[] = "/tmp/mox-capture-XXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    const std::string dir = dirTemplate;
    auto write = [&](const std::string& name, const std::string& bytes) {
        std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
        return dir + "/" + name;
    };
    const std::string odd = write("odd.ts", std::string(100, '\x47'));
    const std::string unsynced = write("unsynced.ts", std::string(188, '\0'));
    const std::string empty = write("empty.ts", "");
    const std::string good = write("good.ts", '\x47' + std::string(187, '\xFF'));
    auto ts = [](const std::string& path) { return R"("ts": ")" + path + "\""; };
    struct Case {
        const char* what;
        std::string text;
        std::string line;
    } const cases[] = {
            {"a file that is not there", airFile({dvbt(482, ts(dir + "/none.ts"))}),
             "bad.json:4: transmitters[0].ts: " + dir +
                     "/none.ts: cannot be read: No such file or directory"},
            {"a directory", airFile({dvbt(482, ts(dir))}),
             "bad.json:4: transmitters[0].ts: " + dir + ": not a regular file"},
            {"an empty file", airFile({dvbt(482, ts(empty))}),
             "bad.json:4: transmitters[0].ts: " + empty + ": empty"},
            {"bytes that are no whole packets", airFile({dvbt(482, ts(odd))}),
             "bad.json:4: transmitters[0].ts: " + odd +
                     ": not a transport stream (100 bytes is not a whole number of 188-byte "
                     "packets)"},
            {"packets without sync bytes", airFile({dvbt(482, ts(unsynced))}),
             "bad.json:4: transmitters[0].ts: " + unsynced +
                     ": not a transport stream (packet 0 has no sync byte)"},
            {"a capture and a multiplex",
             airFile({dvbt(482, ts(good) + ", " + multiplex(1, 7, service(1)))}),
             "bad.json:4: transmitters[0].ts: a transmitter carries a multiplex or a ts file, not "
             "both"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        expectRefused(c.text, c.line);
    }
    EXPECT_EQ(parseEnvironment(airFile({dvbt(482, ts(good))}), "good.json").air.at(0).tsFile, good);
    for (const char* name : {"odd.ts", "unsynced.ts", "empty.ts", "good.ts"})
        std::remove((dir + "/" + name).c_str());
    rmdir(dir.c_str());
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
