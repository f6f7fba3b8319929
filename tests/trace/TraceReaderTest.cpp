// Reading a trace: every bad one ends with FILE:LINE and what is wrong; a good one reads back the
// bytes and values the recorder wrote.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "recorder/JsonText.h"
#include "replay/JsonScalars.h"
#include "replay/Trace.h"
#include "tunerTrace.h"
#include "tunerTraceRead.h"

namespace {

using mox::trace::parseTrace;
using mox::trace::Trace;
using mox::trace::TraceRecord;
namespace hal = android::hardware::tv::tuner::V1_0;

const std::string kHeader = R"({"trace":"mox-tuner","version":1,"capabilities":null})"
                            "\n";
const std::string kScanIn = "04000000030000006a01000000000000000000000000000000";  // 25 bytes

struct BadTrace {
    const char* what;
    std::string text;
    std::string error;  // what the reader says, after "NAME:"
};

void PrintTo(const BadTrace& b, std::ostream* os) {
    *os << b.what;
}

class BadTraceTest : public ::testing::TestWithParam<BadTrace> {};

TEST_P(BadTraceTest, EndsWithTheLineAndWhatIsWrong) {
    Trace trace;
    std::string error;
    EXPECT_FALSE(parseTrace(GetParam().text, "t.jsonl", trace, error));
    EXPECT_EQ(error, "t.jsonl:" + GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
        Reader, BadTraceTest,
        ::testing::Values(
                BadTrace{"Empty", "", "1: not a trace: the file is empty"},
                BadTrace{"NotATrace", "[Settings]\nkey=value\n",
                         "1: not a trace: the first line does not name a mox-tuner trace"},
                BadTrace{"NewerVersion",
                         R"({"trace":"mox-tuner","version":2,"capabilities":null})"
                         "\n",
                         "1: format version 2 is newer than this replay reads (1)"},
                BadTrace{"ShortCapabilities",
                         R"({"trace":"mox-tuner","version":1,"capabilities":"00"})"
                         "\n",
                         "1: \"capabilities\" holds 1 bytes; the record has 1764"},
                BadTrace{"Truncated",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_Init","res)",
                         "2: truncated: the last record does not end"},
                BadTrace{"UnknownFunction",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_Reset","result":0})"
                                   "\n",
                         "2: unknown driver function \"MOX_Tuner_Reset\""},
                BadTrace{"BadHex",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_Scan","tuner":0,"in":")" +
                                 std::string(46, '0') +
                                 R"(zz","result":0})"
                                 "\n",
                         "2: \"in\" has a character that is not hex at 46"},
                BadTrace{"WrongSize",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_Scan","tuner":0,"in":")" +
                                 kScanIn +
                                 R"(","result":0})"
                                 "\n",
                         "2: \"in\" holds 25 bytes; the record has 24"},
                BadTrace{"MissingOut",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_GetInfo","tuner":0,"result":0})"
                                   "\n",
                         "2: \"out\" is missing"},
                BadTrace{"UnknownMethod",
                         kHeader + R"({"t":1,"thread":1,"call":"IFrontend.retune","object":2,"args":{}})"
                                   "\n",
                         "2: unknown method \"IFrontend.retune\""},
                BadTrace{"ArgumentsThatDoNotRead",
                         kHeader + R"({"t":1,"thread":1,"call":"IFrontend.tune","object":2,"args":{"settings":{"dvbc":{"frequency":"high"}}}})"
                                   "\n",
                         "2: the arguments of IFrontend.tune do not read: settings.dvbc.frequency: "
                         "expected an integer"},
                BadTrace{"AfterTheEnd",
                         kHeader +
                                 R"({"t":1,"end":"exit","dropped":0})"
                                 "\n" +
                                 R"({"t":1,"thread":1,"driver":"MOX_Tuner_Init","result":0})"
                                 "\n",
                         "3: a record after the end record"},
                BadTrace{"TwoThingsAtOnce",
                         kHeader + R"({"t":1,"thread":1,"driver":"MOX_Tuner_Init","end":"exit","result":0})"
                                   "\n",
                         "2: a record is one thing, not \"driver\" and \"end\""}),
        [](const auto& info) { return std::string(info.param.what); });

TEST(TraceReaderTest, ReadsDriverRecordsBackByteForByte) {
    const std::string text =
            kHeader +
            R"({"t":10,"thread":2,"driver":"MOX_Tuner_Scan","tuner":1,"in":"040000000300000022010000000000000000000000000000","result":-3})"
            "\n"
            R"({"t":12,"thread":2,"driver":"MOX_Tuner_SetLNBMode","lnb":0,"mode":2,"result":0})"
            "\n"
            R"({"t":13,"end":"SIGTERM","dropped":0})"
            "\n";
    Trace trace;
    std::string error;
    ASSERT_TRUE(parseTrace(text, "t", trace, error)) << error;
    ASSERT_EQ(trace.records.size(), 2u);
    EXPECT_TRUE(trace.ended);
    const TraceRecord& scan = trace.records[0];
    EXPECT_EQ(scan.line, 2);
    EXPECT_EQ(scan.target, 1);
    EXPECT_EQ(scan.result, -3);
    ASSERT_EQ(scan.in.size(), 24u);
    EXPECT_EQ(scan.in[0], 4);
    EXPECT_EQ(static_cast<uint8_t>(scan.in[8]), 0x22);
    EXPECT_EQ(trace.records[1].value, 2);
    EXPECT_EQ(mox::trace::channelOf(trace.records[1].function, 0), "lnb 0");
}

// What the recorder writes of a client's arguments reads back as the same values.
TEST(TraceReaderTest, SettingsAndStatusesComeBackAsTheyWent) {
    hal::FrontendDvbsSettings dvbs{};
    dvbs.frequency = 1210000;
    dvbs.symbolRate = 27500000;
    dvbs.modulation = hal::FrontendDvbsModulation::MOD_8PSK;
    dvbs.rolloff = hal::FrontendDvbsRolloff::ROLLOFF_0_25;
    hal::FrontendSettings settings;
    settings.dvbs(dvbs);
    std::string json;
    mox::trace::tuner::toJson(json, settings);
    hal::FrontendSettings back;
    std::string error;
    ASSERT_TRUE(mox::trace::tuner::fromJson(nlohmann::json::parse(json), back, error)) << error;
    ASSERT_EQ(back.getDiscriminator(), hal::FrontendSettings::hidl_discriminator::dvbs);
    EXPECT_EQ(back.dvbs().frequency, 1210000u);
    EXPECT_EQ(back.dvbs().modulation, hal::FrontendDvbsModulation::MOD_8PSK);
    EXPECT_EQ(back.dvbs().rolloff, hal::FrontendDvbsRolloff::ROLLOFF_0_25);

    hal::FrontendScanMessage message;
    message.frequencies({474000000, 482000000});
    json.clear();
    mox::trace::tuner::toJson(json, message);
    EXPECT_EQ(json, R"({"frequencies":[474000000,482000000]})");
}

TEST(TraceReaderTest, NonFiniteNumbersAndOddStringsSurviveTheRoundTrip) {
    std::string out;
    mox::trace::appendNumber(out, std::nanf(""));
    out += ',';
    mox::trace::appendNumber(out, -INFINITY);
    out += ',';
    mox::trace::appendNumber(out, 0.1f);
    out += ',';
    mox::trace::appendQuoted(out, std::string("a\"b\\\n\x01\xff", 7));
    EXPECT_EQ(out, R"("NaN","-Infinity",0.100000001,"a\"b\\\u000a\u0001\u00ff")");
    const auto values = nlohmann::json::parse("[" + out + "]");
    float f = 0;
    std::string error;
    ASSERT_TRUE(mox::trace::readScalar(values[0], f, error));
    EXPECT_TRUE(std::isnan(f));
    ASSERT_TRUE(mox::trace::readScalar(values[1], f, error));
    EXPECT_TRUE(std::isinf(f) && f < 0);
    uint8_t small = 0;
    EXPECT_FALSE(mox::trace::readScalar(nlohmann::json(256), small, error));
    EXPECT_EQ(error, "expected a number that fits");
}

}  // namespace
