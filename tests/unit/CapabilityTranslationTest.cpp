#include "ServiceTest.h"
#include "tuner/CapabilityTranslation.h"

using namespace ::android::hardware::tv::tuner::V1_0;

using ::android::hardware::tv::tuner::V1_0::implementation::translateCapabilities;

namespace {

using CapabilityTranslationTest = ServiceTest;
using Caps = FrontendInfo::FrontendCapabilities;

template <size_t Room>
void setList(MOX_CodeList_t<Room>& list, std::vector<uint32_t> codes) {
    list.ucCnt = static_cast<uint8_t>(codes.size());
    for (size_t i = 0; i < codes.size() && i < Room; ++i) list.eValues[i] = codes[i];
}

TEST_F(CapabilityTranslationTest, TerrestrialFoldsFirstGenerationAndT2OnlyWhenSupported) {
    for (uint8_t t2Support : {0, 1, 2}) {
        SCOPED_TRACE(int{t2Support});
        mLogs.clear();
        MOX_TunerFrontendCap_t cap = fake::dvbtEntry(1);
        cap.tCapability.tDvbt.ucT2Support = t2Support;
        cap.tCapability.tDvbt.ucMisoSupport = 1;
        setList(cap.tBwSupport, {3, 1});
        setList(cap.tCapability.tDvbt.tTransmissionMode.tDvbt, {0});      // MODE_8K
        setList(cap.tCapability.tDvbt.tTransmissionMode.tDvbt2, {0, 1});  // 32K, 16K
        setList(cap.tCapability.tDvbt.tConstellation.tDvbt2, {3});        // 256QAM
        setList(cap.tCapability.tDvbt.tHierarchy, {0, 0, 3});
        Caps caps;
        EXPECT_EQ(translateCapabilities(0, cap, caps), FrontendType::DVBT);
        ASSERT_EQ(caps.getDiscriminator(), Caps::hidl_discriminator::dvbtCaps);
        const FrontendDvbtCapabilities& t = caps.dvbtCaps();
        const bool t2 = t2Support == 1;
        EXPECT_EQ(t.isT2Supported, t2);
        EXPECT_TRUE(t.isMisoSupported);
        EXPECT_EQ(t.bandwidthCap, 0x2u | 0x8u);
        EXPECT_EQ(t.transmissionModeCap, t2 ? (0x4u | 0x40u | 0x20u) : 0x4u);
        EXPECT_EQ(t.constellationCap, t2 ? 0x10u : 0u);
        EXPECT_EQ(t.hierarchyCap, 0x2u | 0x10u);
        EXPECT_EQ(mLogs.matching("tDvbt2").empty(), !t2) << "T2 lists are logged only with T2";
    }
}

TEST_F(CapabilityTranslationTest, SatelliteStandardFollowsTheNonEmptyLists) {
    struct Case {
        std::vector<uint32_t> dvbsModulations, dvbsCodeRates, dvbs2Modulations, dvbs2CodeRates;
        int32_t modulationCap;
        uint64_t innerfecCap;
        uint8_t standard;
    } const cases[] = {
            {{}, {}, {}, {}, 0, 0, 0},
            {{}, {}, {2}, {}, 4, 0, 4},
            {{1}, {4}, {}, {}, 2, 2, 2},
            {{}, {13}, {12}, {1}, 4096, 1048576 | 8, 6},
    };
    for (const Case& c : cases) {
        MOX_TunerFrontendCap_t cap = fake::dvbsEntry(1, 2);
        setList(cap.tCapability.tDvbs.tModulation.tDvbs, c.dvbsModulations);
        setList(cap.tCapability.tDvbs.tCodeRate.tDvbs, c.dvbsCodeRates);
        setList(cap.tCapability.tDvbs.tModulation.tDvbs2, c.dvbs2Modulations);
        setList(cap.tCapability.tDvbs.tCodeRate.tDvbs2, c.dvbs2CodeRates);
        Caps caps;
        EXPECT_EQ(translateCapabilities(0, cap, caps), FrontendType::DVBS);
        const FrontendDvbsCapabilities& s = caps.dvbsCaps();
        EXPECT_EQ(s.modulationCap, c.modulationCap);
        EXPECT_EQ(s.innerfecCap, c.innerfecCap);
        EXPECT_EQ(s.standard, c.standard);
    }
}

TEST_F(CapabilityTranslationTest, CableHasNoFecAndLogsBothCountsFirst) {
    MOX_TunerFrontendCap_t cap = fake::dvbcEntry(1);
    setList(cap.tCapability.tDvbc.tQam, {1, 3, 5, 9});
    setList(cap.tCapability.tDvbc.tAnnex, {2, 3});
    Caps caps;
    EXPECT_EQ(translateCapabilities(4, cap, caps), FrontendType::DVBC);
    const FrontendDvbcCapabilities& c = caps.dvbcCaps();
    EXPECT_EQ(c.modulationCap, 2u | 8u | 32u);
    EXPECT_EQ(c.fecCap, 0u);
    EXPECT_EQ(c.annexCap, 1 | 4);
    const auto lines = mLogs.messages("tCapability.tDvbc");
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_NE(lines[0].find("]: [4] tCapability.tDvbc.tQam.ucCnt:4"), std::string::npos);
    EXPECT_NE(lines[1].find("]: [4] tCapability.tDvbc.tAnnex.ucCnt:2"), std::string::npos);
    EXPECT_NE(lines[2].find("]: [4] tCapability.tDvbc.tQam.eValues[0]:1"), std::string::npos);
    EXPECT_EQ(mLogs.matching("^\\[Tuner::translateCapabilities\\]: FrontendType::DVBC$")[0].priority,
              ANDROID_LOG_INFO);
}

TEST_F(CapabilityTranslationTest, OtherDeliverySystemsBecomeEmptyCableWithFixedRanges) {
    // 2 and 3 convert to UNDEFINED, 8 to ISDBT, 0 and 9 to nothing at all.
    for (uint32_t code : {0u, 2u, 3u, 8u, 9u}) {
        mLogs.clear();
        MOX_TunerFrontendCap_t cap = fake::entryOfType(code, 1);
        cap.tTypeSupport.ucCnt = 2;
        cap.tTypeSupport.eValues[1] = MOX_TUNER_TYPE_DVBC;  // the second type is never used
        Caps caps;
        EXPECT_EQ(translateCapabilities(0, cap, caps), FrontendType::DVBC);
        EXPECT_EQ(caps.dvbcCaps(), FrontendDvbcCapabilities());
        EXPECT_EQ(cap.tFreqRange.uiMin, 1u);
        EXPECT_EQ(cap.tFreqRange.uiMax, 999u);
        EXPECT_EQ(cap.tSymbolRateRange.uiMin, 1u);
        EXPECT_EQ(cap.tSymbolRateRange.uiMax, 1000u);
        const std::string converted = code == 8 ? "0x9" : "0";
        EXPECT_EQ(mLogs.matching("^\\[Tuner::translateCapabilities:\\d+\\]: type " + converted +
                                 " not supported!! set FrontendDvbcCapabilities!$")
                          .size(),
                  1u)
                << "code " << code;
    }
}

TEST_F(CapabilityTranslationTest, CountsBeyondAListsRoomAreClamped) {
    MOX_TunerFrontendCap_t cap = fake::dvbcEntry(1);
    cap.tCapability.tDvbc.tQam.ucCnt = 255;  // room: 10
    for (uint32_t& code : cap.tCapability.tDvbc.tQam.eValues) code = 3;
    Caps caps;
    translateCapabilities(0, cap, caps);
    EXPECT_EQ(caps.dvbcCaps().modulationCap, 8u);
    EXPECT_EQ(mLogs.messages("tQam.eValues").size(), 10u);
    EXPECT_EQ(mLogs.matching("beyond its room")[0].priority, ANDROID_LOG_ERROR);
}

}  // namespace
