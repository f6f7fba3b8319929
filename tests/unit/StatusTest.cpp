#include <cmath>
#include <limits>

#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

class StatusTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mFrontend = new Frontend(FrontendType::DVBT, 2, new Tuner());
        driver().reset();
    }

    std::pair<Result, std::vector<FrontendStatus>> status(std::vector<uint32_t> types) {
        std::vector<FrontendStatusType> requested;
        for (uint32_t t : types) requested.push_back(static_cast<FrontendStatusType>(t));
        std::pair<Result, std::vector<FrontendStatus>> answer{Result::UNKNOWN_ERROR, {}};
        int calls = 0;
        mFrontend->getStatus(requested, [&](Result r, const hidl_vec<FrontendStatus>& s) {
            answer = {r, s};
            ++calls;
        });
        EXPECT_EQ(calls, 1);
        return answer;
    }

    void signal(std::function<void(MOX_TunerSignalInfo_t&)> fill) {
        driver().onGetInfo([fill](uint8_t, MOX_TunerSignalInfo_t* info) {
            fill(*info);
            return 0;
        });
    }

    void params(uint32_t tunerType, uint32_t hierarchy, uint8_t plp) {
        driver().onGetParamInfo([=](uint8_t, MOX_TunerParamInfo_t* info) {
            info->eTunerType = tunerType;
            info->eHierarchy = hierarchy;
            info->ucPlpId = plp;
            return 0;
        });
    }

    sp<Frontend> mFrontend;
};

FrontendStatus make(std::function<void(FrontendStatus&)> set) {
    FrontendStatus s;
    set(s);
    return s;
}

TEST_F(StatusTest, EveryTypeInRequestOrder) {
    signal([](MOX_TunerSignalInfo_t& s) {
        s.lock = 1;
        s.quality = 77;
        s.snr = 20.5f;
        s.ber = 0.0000045f;
        s.agc = 0x1A5;
        s.mer = -3.2f;
        s.lber = 0.0000025f;
    });
    params(MOX_TUNER_TYPE_DVBT2, 2, 3);
    std::vector<uint32_t> all;
    for (uint32_t t = 0; t <= 21; ++t) all.push_back(t);
    const auto answer = status(all);
    EXPECT_EQ(answer.first, Result::SUCCESS);
    FrontendModulationStatus modulation;
    modulation.isdbt(FrontendIsdbtModulation::UNDEFINED);
    const std::vector<FrontendStatus> expected = {
            make([](auto& s) { s.isDemodLocked(true); }),
            make([](auto& s) { s.snr(20500); }),
            make([](auto& s) { s.ber(2); }),
            make([](auto& s) { s.per(0); }),
            make([](auto& s) { s.preBer(4); }),
            make([](auto& s) { s.signalQuality(77); }),
            make([](auto& s) { s.signalStrength(0); }),
            make([](auto& s) { s.symbolRate(0); }),
            make([](auto& s) { s.innerFec(FrontendInnerFec::FEC_UNDEFINED); }),
            make([&](auto& s) { s.modulation(modulation); }),
            make([](auto& s) { s.inversion(FrontendDvbcSpectralInversion::UNDEFINED); }),
            make([](auto& s) { s.lnbVoltage(LnbVoltage::NONE); }),
            make([](auto& s) { s.plpId(3); }),
            make([](auto& s) { s.isEWBS(false); }),
            make([](auto& s) { s.agc(0xA5); }),
            make([](auto& s) { s.isLnaOn(false); }),
            make([](auto& s) {
                s.isLayerError(hidl_vec<bool>{false, true, true});
            }),
            make([](auto& s) { s.mer(-3200); }),
            make([](auto& s) { s.freqOffset(0); }),
            make([](auto& s) { s.hierarchy(FrontendDvbtHierarchy::HIERARCHY_2_NATIVE); }),
            make([](auto& s) { s.isRfLocked(true); }),
            make([](auto& s) {
                s.plpInfo(hidl_vec<FrontendStatusAtsc3PlpInfo>{{3, false, 313}, {5, true, 515}});
            }),
    };
    ASSERT_EQ(answer.second.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(answer.second[i], expected[i]) << "status type " << i;
    }
    EXPECT_EQ(driver().calls()[0].target, 2);
}

TEST_F(StatusTest, UnknownTypesAreLeftOutAndRepeatsAnswered) {
    signal([](MOX_TunerSignalInfo_t& s) {
        s.lock = 1;
        s.agc = 0x1A5;
    });
    const auto answer = status({0, 99, 14, 22, 14});
    ASSERT_EQ(answer.second.size(), 3u);
    EXPECT_TRUE(answer.second[0].isDemodLocked());
    EXPECT_EQ(answer.second[1].agc(), 0xA5);
    EXPECT_EQ(answer.second[2].agc(), 0xA5);
    EXPECT_TRUE(status({}).second.empty());
    EXPECT_EQ(driver().count("GetInfo"), 2);
    EXPECT_EQ(driver().count("GetParamInfo"), 2);
}

TEST_F(StatusTest, PlpAndHierarchyOnlyForT2) {
    struct Case {
        uint32_t tunerType, hierarchyCode;
        uint8_t plp;
        uint8_t expectedPlp;
        FrontendDvbtHierarchy expectedHierarchy;
    } const cases[] = {
            {MOX_TUNER_TYPE_DVBT2, 2, 3, 3, FrontendDvbtHierarchy::HIERARCHY_2_NATIVE},
            {MOX_TUNER_TYPE_DVBT2, 7, 0, 0, FrontendDvbtHierarchy::UNDEFINED},
            {MOX_TUNER_TYPE_DVBT, 2, 3, 255, FrontendDvbtHierarchy::UNDEFINED},
            {MOX_TUNER_TYPE_DVBC, 0, 1, 255, FrontendDvbtHierarchy::UNDEFINED},
    };
    for (const Case& c : cases) {
        params(c.tunerType, c.hierarchyCode, c.plp);
        const auto answer = status({12, 19});
        EXPECT_EQ(answer.second[0].plpId(), c.expectedPlp);
        EXPECT_EQ(answer.second[1].hierarchy(), c.expectedHierarchy);
    }
}

TEST_F(StatusTest, FloatFiguresSaturateInsteadOfOverflowing) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        float value;
        int32_t signedResult;     // SNR and MER (x1000)
        uint32_t unsignedResult;  // BER and PRE_BER (x1000000)
    } const cases[] = {
            {20.5f, 20500, 20500000},
            {-3.2f, -3200, 0},
            {0.0000025f, 0, 2},
            {nan, 0, 0},
            {-nan, 0, 0},
            {inf, INT32_MAX, UINT32_MAX},
            {-inf, INT32_MIN, 0},
            {3e9f, INT32_MAX, UINT32_MAX},
            {-3e9f, INT32_MIN, 0},
            {5000.0f, 5000000, UINT32_MAX},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        signal([&](MOX_TunerSignalInfo_t& s) { s.snr = s.mer = s.ber = s.lber = c.value; });
        const auto answer = status({1, 17, 2, 4});
        EXPECT_EQ(answer.second[0].snr(), c.signedResult);
        EXPECT_EQ(answer.second[1].mer(), c.signedResult);
        EXPECT_EQ(answer.second[2].ber(), c.unsignedResult);
        EXPECT_EQ(answer.second[3].preBer(), c.unsignedResult);
    }
}

TEST_F(StatusTest, DriverFailures) {
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t*) { return -1; });
    auto answer = status({0, 1});
    EXPECT_EQ(answer.first, Result::UNKNOWN_ERROR);
    EXPECT_TRUE(answer.second.empty());
    EXPECT_EQ(driver().count("GetParamInfo"), 0);
    EXPECT_EQ(mLogs.matching("^\\[Frontend::getStatus:\\d+\\]: MOX_Tuner_GetInfo fail!! mId:2$")
                      .at(0)
                      .priority,
              ANDROID_LOG_ERROR);

    driver().onGetInfo(nullptr);
    driver().onGetParamInfo([](uint8_t, MOX_TunerParamInfo_t* info) {
        info->eTunerType = MOX_TUNER_TYPE_DVBT2;  // written, but the read failed
        info->ucPlpId = 9;
        return -1;
    });
    answer = status({12, 20});
    EXPECT_EQ(answer.first, Result::SUCCESS);
    EXPECT_EQ(answer.second[0].plpId(), 9) << "built from whatever the record holds";
    EXPECT_TRUE(answer.second[1].isRfLocked());
    EXPECT_EQ(mLogs.matching("MOX_Tuner_GetParamInfo fail!! mId:2$").at(0).priority,
              ANDROID_LOG_DEBUG);
}

}  // namespace
