#include <gtest/gtest.h>

#include <algorithm>

#include "ChannelSettings.h"
#include "Output.h"
#include "Satellite.h"
#include "ScanResults.h"
#include "TestSettings.h"
#include "ValueParsing.h"

using namespace tunerctl;
using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

TEST(TunerctlParsingTest, Frequencies) {
    const std::pair<const char*, std::optional<uint32_t>> cases[] = {
            {"474MHz", 474000000},       {"474.5 MHz", 474500000}, {"306000kHz", 306000000},
            {"474000000Hz", 474000000},  {"1.21GHz", 1210000000},  {"4.3GHz", std::nullopt},
            {"474000000", std::nullopt}, {"MHz", std::nullopt},    {"-5MHz", std::nullopt},
            {"474Mhzz", std::nullopt},   {"", std::nullopt}};
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseFrequencyHz(text), expected) << text;
}

TEST(TunerctlParsingTest, NamedValues) {
    EXPECT_EQ(parseBandwidth("8MHz"), FrontendDvbtBandwidth::BANDWIDTH_8MHZ);
    EXPECT_EQ(parseBandwidth("1.7mhz"), FrontendDvbtBandwidth::BANDWIDTH_1_7MHZ);
    EXPECT_EQ(parseDvbtStandard("t2"), FrontendDvbtStandard::T2);
    EXPECT_EQ(parseDvbsStandard("S2"), FrontendDvbsStandard::S2);
    EXPECT_EQ(parseDvbcModulation("64QAM"), FrontendDvbcModulation::MOD_64QAM);
    EXPECT_EQ(parseAnnex("c"), FrontendDvbcAnnex::C);
    EXPECT_EQ(parseVoltage("18V"), LnbVoltage::VOLTAGE_18V);
    EXPECT_EQ(parseTone("on"), LnbTone::CONTINUOUS);
    EXPECT_EQ(parsePosition("B"), LnbPosition::POSITION_B);
    EXPECT_EQ(parseSymbolRate("6.9M"), 6900000u);
    EXPECT_FALSE(parseVoltage("17V"));
    EXPECT_FALSE(parseAnnex("D"));
}

TEST(TunerctlParsingTest, DiseqcBytes) {
    EXPECT_EQ(parseDiseqc("E0 10 38 F0"), (std::vector<uint8_t>{0xE0, 0x10, 0x38, 0xF0}));
    EXPECT_EQ(parseDiseqc("e01038"), (std::vector<uint8_t>{0xE0, 0x10, 0x38}));
    EXPECT_FALSE(parseDiseqc("E0 1"));
    EXPECT_FALSE(parseDiseqc("G0"));
}

TEST(TunerctlParsingTest, ChannelOptionsBecomeSettingsOfOneSystem) {
    ChannelOptions options;
    FrontendSettings settings;
    std::string error;
    EXPECT_FALSE(buildSettings(options, settings, error));
    options.dvbc = "306MHz";
    EXPECT_FALSE(buildSettings(options, settings, error));
    EXPECT_EQ(error, "--dvbc needs --symbol-rate (e.g. 6900000, 6.9M, 6875k)");
    options.symbolRate = "6900000";
    options.modulation = "64QAM";
    ASSERT_TRUE(buildSettings(options, settings, error)) << error;
    EXPECT_EQ(settings.dvbc().frequency, 306000000u);
    EXPECT_EQ(settings.dvbc().symbolRate, 6900000u);
    EXPECT_EQ(settings.dvbc().annex, FrontendDvbcAnnex::A);
    options.dvbt = "474MHz";
    EXPECT_FALSE(buildSettings(options, settings, error)) << "two systems at once";
    options.dvbc.clear();
    EXPECT_FALSE(buildSettings(options, settings, error));
    EXPECT_EQ(error, "--symbol-rate does not apply to DVB-T");
    options.symbolRate.clear();
    options.modulation.clear();
    options.bandwidth = "9MHz";
    EXPECT_FALSE(buildSettings(options, settings, error));
    EXPECT_NE(error.find("bandwidth"), std::string::npos);
    options.bandwidth.clear();
    options.dvbt = "482";
    EXPECT_FALSE(buildSettings(options, settings, error));
    EXPECT_EQ(error, "frequency '482' has no unit: write 482MHz (or Hz, kHz, GHz)");
}

TEST(TunerctlParsingTest, ChannelsAreCheckedAgainstTheFrontendBeforeTheDriver) {
    FrontendInfo terrestrial{};
    terrestrial.type = FrontendType::DVBT;
    terrestrial.minFrequency = 174000000;
    terrestrial.maxFrequency = 862000000;
    FrontendDvbtCapabilities t{};
    t.bandwidthCap = FrontendDvbtBandwidth::BANDWIDTH_8MHZ | FrontendDvbtBandwidth::BANDWIDTH_7MHZ;
    terrestrial.frontendCaps.dvbtCaps(t);
    FrontendInfo cable{};
    cable.type = FrontendType::DVBC;
    cable.minFrequency = 47000000;
    cable.maxFrequency = 862000000;
    cable.minSymbolRate = 1000000;
    cable.maxSymbolRate = 7200000;
    FrontendDvbcCapabilities c{};
    c.modulationCap = FrontendDvbcModulation::MOD_64QAM | FrontendDvbcModulation::MOD_256QAM;
    c.annexCap = FrontendDvbcAnnex::A | FrontendDvbcAnnex::C;
    cable.frontendCaps.dvbcCaps(c);

    using BW = FrontendDvbtBandwidth;
    using M = FrontendDvbcModulation;
    struct Case {
        const FrontendInfo* info;
        FrontendSettings settings;
        std::string error;  // empty: accepted
    } const cases[] = {
            {&terrestrial, dvbt(482000000), ""},
            {&terrestrial, dvbt(482000000, FrontendDvbtStandard::T, BW::AUTO), ""},
            {&terrestrial, dvbc(306000000, 6900000),
             "frontend 4 is DVBT: name the channel with --dvbt"},
            {&terrestrial, dvbt(100000000),
             "frequency 100000000 Hz is outside frontend 4's range 174000000 .. 862000000 Hz"},
            {&terrestrial, dvbt(482000000, FrontendDvbtStandard::T, BW::BANDWIDTH_6MHZ),
             "bandwidth BANDWIDTH_6MHZ is not one of frontend 4's: BANDWIDTH_8MHZ, BANDWIDTH_7MHZ"},
            {&terrestrial, dvbt(482000000, FrontendDvbtStandard::T2),
             "frontend 4 does not support DVB-T2"},
            {&cable, dvbc(306000000, 6900000, M::MOD_64QAM, FrontendDvbcAnnex::C), ""},
            {&cable, dvbc(306000000, 27500000),
             "symbol rate 27500000 is outside frontend 4's range 1000000 .. 7200000 sym/s"},
            {&cable, dvbc(306000000, 6900000, M::MOD_16QAM),
             "modulation MOD_16QAM is not one of frontend 4's: MOD_64QAM, MOD_256QAM"},
            {&cable, dvbc(306000000, 6900000, M::MOD_256QAM, FrontendDvbcAnnex::B),
             "annex B is not one of frontend 4's: A, C"},
    };
    for (const Case& k : cases) {
        std::string error;
        EXPECT_EQ(checkAgainstFrontend(*k.info, 4, k.settings, error), k.error.empty()) << error;
        EXPECT_EQ(error, k.error);
    }
}

TEST(TunerctlParsingTest, ConsecutiveSweepLocksAreOneMultiplex) {
    std::vector<uint32_t> locks;
    for (uint32_t hz = 474000000; hz < 475000000; hz += 50000) locks.push_back(hz);
    locks.push_back(476500000);
    const std::vector<Multiplex> found = mergeLocks(locks, 50000);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].firstHz, 474000000u);
    EXPECT_EQ(found[0].lastHz, 474950000u);
    EXPECT_EQ(found[0].steps, 20u);
    EXPECT_EQ(found[0].centreHz(), 474475000u);
    EXPECT_EQ(found[1].centreHz(), 476500000u);
    EXPECT_EQ(found[1].steps, 1u);
    EXPECT_TRUE(mergeLocks({}, 50000).empty());
}

TEST(TunerctlParsingTest, TheProgressLineFitsTheTerminal) {
    for (int width : {120, 80, 40, 20}) {
        const std::string line = progressLine(42, 474350000, 65, width);
        SCOPED_TRACE(line);
        EXPECT_LE(static_cast<int>(line.size()), width);
        EXPECT_EQ(line.find('\n'), std::string::npos);
    }
    const std::string wide = progressLine(42, 474350000, 65, 80);
    EXPECT_EQ(wide.substr(wide.size() - 27), " 42% 474.35 MHz ~1m05s left");
    EXPECT_EQ(wide.front(), '[');
    EXPECT_EQ(progressLine(42, 474350000, 65, 36), " 42% 474.35 MHz ~1m05s left") << "no room";
    EXPECT_EQ(progressLine(100, 478950000, 0, 60).front(), '[');
}

TEST(TunerctlParsingTest, SatelliteDownlinksThroughLnbTypesFromLibdvbv5) {
    struct Case {
        const char* lnb;
        uint32_t downlinkKHz;
        const char* polarisation;
        uint32_t ifHz;  // 0: refused
        bool horizontal;
        bool highBand;
    } const cases[] = {
            {"UNIVERSAL", 11362000, "V", 1612000000, false, false},
            {"universal", 12188000, "H", 1588000000, true, true},
            {"EXTENDED", 10744000, "L", 994000000, true, false},
            {"C-BAND", 3900000, "R", 1250000000, false, false},  // the oscillator lies above
            {"UNIVERSAL", 13500000, "V", 0, false, true},        // beyond the high band
            {"NOSUCH", 11362000, "V", 0, false, false},
            {"UNIVERSAL", 11362000, "X", 0, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.lnb) + " " + std::to_string(c.downlinkKHz));
        SatellitePlan plan{};
        std::string error;
        const bool planned = planSatellite(c.lnb, c.downlinkKHz, c.polarisation, plan, error);
        ASSERT_EQ(planned, c.ifHz != 0) << error;
        if (!planned) {
            EXPECT_FALSE(error.empty());
            continue;
        }
        EXPECT_EQ(plan.ifHz, c.ifHz);
        EXPECT_EQ(plan.horizontal, c.horizontal);
        EXPECT_EQ(plan.highBand, c.highBand);
    }
    EXPECT_EQ(committedSwitch(0, false, false), (std::vector<uint8_t>{0xE0, 0x10, 0x38, 0xF0}));
    EXPECT_EQ(committedSwitch(1, true, true), (std::vector<uint8_t>{0xE0, 0x10, 0x38, 0xF7}));
    EXPECT_EQ(committedSwitch(3, false, false), (std::vector<uint8_t>{0xE0, 0x10, 0x38, 0xFC}));

    // A downlink as a dvbv5 satellite file gives it, without the LNB that brings it down.
    ChannelOptions fromFile;
    fromFile.dvbs = "11362000kHz";
    fromFile.polarisation = "V";
    FrontendSettings settings;
    std::string error;
    EXPECT_FALSE(buildSettings(fromFile, settings, error, nullptr));
    EXPECT_NE(error.find("a downlink frequency (11362.000 MHz) needs --lnb TYPE"), std::string::npos)
            << error;
}

TEST(TunerctlParsingTest, JsonIsEscapedAndFlagsAreNamed) {
    EXPECT_EQ(jsonString("a\"b\\c\n"), "\"a\\\"b\\\\c\\u000a\"");
    EXPECT_EQ(JsonObject().add("id", uint32_t{3}).add("ok", true).str(), "{\"id\":3,\"ok\":true}");
    EXPECT_EQ(flagNames<FrontendDvbcAnnex>(5), (std::vector<std::string>{"A", "C"}));
    EXPECT_TRUE(flagNames<FrontendDvbcAnnex>(0).empty());
    // Enumerators that share a value are named once, by the first name.
    const auto fec = static_cast<uint64_t>(FrontendInnerFec::FEC_1_2) |
                     static_cast<uint64_t>(FrontendInnerFec::FEC_77_90);
    std::vector<std::string> names = flagNames<FrontendInnerFec>(fec);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << names.size();
    EXPECT_NE(std::find(names.begin(), names.end(), "FEC_1_2"), names.end());
}

}  // namespace
