#include <cstring>

#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using SettingsTranslationTest = ServiceTest;

std::vector<uint32_t> fields(const MOX_TunerParam_t& p) {
    return {p.eTunerType, p.eBandwidth, p.uiFreqMHz, p.uiSymbolRate, p.eModulation, p.eAnnex};
}

MOX_TunerParam_t translate(FrontendType type, const FrontendSettings& settings,
                           Result expected = Result::SUCCESS) {
    MOX_TunerParam_t param;
    memset(&param, 0, sizeof(param));
    EXPECT_EQ(static_cast<Result>(Frontend::toMoxTunerParam(type, settings, param)), expected);
    return param;
}

TEST_F(SettingsTranslationTest, RecordFieldsPerDeliverySystem) {
    struct Case {
        const char* name;
        FrontendType type;
        FrontendSettings settings;
        std::vector<uint32_t> expected;
    } const cases[] = {
            {"DVB-C 306 MHz 64QAM annex A",
             FrontendType::DVBC,
             dvbc(306000000, 6900000),
             {1, 3, 306, 6900000, 3, 2}},
            {"DVB-C AUTO modulation is 256QAM",
             FrontendType::DVBC,
             dvbc(474000000, 6875000, FrontendDvbcModulation::AUTO),
             {1, 3, 474, 6875000, 5, 2}},
            {"DVB-T standard T", FrontendType::DVBT, dvbt(474500000), {4, 3, 474, 0, 0, 0}},
            {"DVB-T standard T2",
             FrontendType::DVBT,
             dvbt(474500000, FrontendDvbtStandard::T2),
             {7, 3, 474, 0, 0, 0}},
            {"DVB-T standard AUTO",
             FrontendType::DVBT,
             dvbt(474500000, FrontendDvbtStandard::AUTO),
             {7, 3, 474, 0, 0, 0}},
            {"DVB-T remainder dropped",
             FrontendType::DVBT,
             dvbt(474999999, FrontendDvbtStandard::T, FrontendDvbtBandwidth::BANDWIDTH_7MHZ),
             {4, 2, 474, 0, 0, 0}},
            {"DVB-S2", FrontendType::DVBS, dvbs(1210000000, 27500000), {6, 0, 1210, 27500000, 0, 0}},
            {"DVB-S",
             FrontendType::DVBS,
             dvbs(1210000000, 27500000, FrontendDvbsStandard::S),
             {5, 0, 1210, 27500000, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(fields(translate(c.type, c.settings)), c.expected);
    }
}

TEST_F(SettingsTranslationTest, RecordBytesAreLittleEndianAtTheirOffsets) {
    const MOX_TunerParam_t param = translate(FrontendType::DVBC, dvbc(306000000, 6900000));
    uint8_t bytes[sizeof(param)];
    memcpy(bytes, &param, sizeof(param));
    EXPECT_EQ(bytes[8], 306 & 0xFF);  // uiFreqMHz
    EXPECT_EQ(bytes[9], 306 >> 8);
    EXPECT_EQ(bytes[20], 2);  // eAnnex, annex A
}

TEST_F(SettingsTranslationTest, UnsupportedTypesWriteNothing) {
    for (FrontendType type : {FrontendType::ISDBT, FrontendType::ATSC, FrontendType::UNDEFINED}) {
        mLogs.clear();
        EXPECT_EQ(fields(translate(type, dvbt(474000000), Result::UNAVAILABLE)),
                  std::vector<uint32_t>(6, 0));
        EXPECT_EQ(mLogs.messages("^\\[Frontend::toMoxTunerParam:\\d+\\]: type:" +
                                 std::to_string(static_cast<int>(type)) + " not support yet!$")
                          .size(),
                  1u);
    }
}

TEST_F(SettingsTranslationTest, MismatchedAlternativeIsRefusedWithoutReadingIt) {
    EXPECT_EQ(fields(translate(FrontendType::DVBC, dvbt(474000000), Result::INVALID_ARGUMENT)),
              std::vector<uint32_t>(6, 0));
    EXPECT_EQ(fields(translate(FrontendType::DVBT, dvbs(1210000000, 1), Result::INVALID_ARGUMENT)),
              std::vector<uint32_t>(6, 0));
    EXPECT_EQ(fields(translate(FrontendType::DVBS, FrontendSettings(), Result::INVALID_ARGUMENT)),
              std::vector<uint32_t>(6, 0));
    const auto errors = mLogs.matching("settings hold");
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0].priority, ANDROID_LOG_ERROR);
    EXPECT_NE(errors[0].message.find("dvbt"), std::string::npos);
    EXPECT_NE(errors[0].message.find("DVBC"), std::string::npos);
}

TEST_F(SettingsTranslationTest, EnumerationMappings) {
    using M = FrontendDvbcModulation;
    const std::pair<M, uint32_t> modulations[] = {
            {M::MOD_16QAM, 1},  {M::MOD_32QAM, 2}, {M::MOD_64QAM, 3}, {M::MOD_128QAM, 4},
            {M::MOD_256QAM, 5}, {M::UNDEFINED, 5}, {M::AUTO, 5},      {static_cast<M>(0xA), 5}};
    for (auto [value, code] : modulations) EXPECT_EQ(Frontend::toMoxDvbcMod(value), code);

    const std::pair<uint8_t, uint32_t> annexes[] = {{0, 2}, {1, 2}, {2, 1}, {3, 2},
                                                    {4, 3}, {5, 2}, {8, 2}, {255, 2}};
    for (auto [value, code] : annexes) {
        EXPECT_EQ(Frontend::toMoxDvbcAnnex(static_cast<FrontendDvbcAnnex>(value)), code)
                << "annex " << int{value};
    }

    using B = FrontendDvbtBandwidth;
    const std::pair<B, uint32_t> bandwidths[] = {{B::AUTO, 7},
                                                 {B::BANDWIDTH_8MHZ, 3},
                                                 {B::BANDWIDTH_7MHZ, 2},
                                                 {B::BANDWIDTH_6MHZ, 1},
                                                 {B::BANDWIDTH_5MHZ, 4},
                                                 {B::BANDWIDTH_1_7MHZ, 6},
                                                 {B::BANDWIDTH_10MHZ, 5},
                                                 {B::UNDEFINED, 3},
                                                 {static_cast<B>(6), 3}};
    for (auto [value, code] : bandwidths) EXPECT_EQ(Frontend::toMoxBandwidth(value), code);
}

TEST_F(SettingsTranslationTest, CableLogsTheSettingsAndTheRecord) {
    translate(FrontendType::DVBC, dvbc(306000000, 6900000));
    EXPECT_EQ(mLogs.matching("^\\[Frontend::toMoxTunerParam:\\d+\\]: settings.dvbc\\(\\) "
                             "frequency:306000000 settings.dvbc\\(\\) symbolRate:6900000 "
                             "annex:1$")
                      .size(),
              1u);
    EXPECT_EQ(mLogs.matching("^\\[Frontend::toMoxTunerParam:\\d+\\]: freq:306 "
                             "symbolrate:6900000$")
                      .size(),
              1u);
}

}  // namespace
