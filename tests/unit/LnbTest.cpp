#include <cstring>

#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using LnbTest = ServiceTest;

TEST_F(LnbTest, VoltageToneAndPositionReachTheDriver) {
    struct Case {
        const char* name;
        std::function<Result(Lnb&)> call;
        std::vector<std::pair<std::string, uint32_t>> driverCalls;
    } const cases[] = {
            {"13V",
             [](Lnb& l) { return l.setVoltage(LnbVoltage::VOLTAGE_13V); },
             {{"SetLNBMode", 1}}},
            {"5V", [](Lnb& l) { return l.setVoltage(LnbVoltage::VOLTAGE_5V); }, {{"SetLNBMode", 1}}},
            {"14V",
             [](Lnb& l) { return l.setVoltage(LnbVoltage::VOLTAGE_14V); },
             {{"SetLNBMode", 2}}},
            {"19V",
             [](Lnb& l) { return l.setVoltage(LnbVoltage::VOLTAGE_19V); },
             {{"SetLNBMode", 2}}},
            {"NONE", [](Lnb& l) { return l.setVoltage(LnbVoltage::NONE); }, {{"SetLNBMode", 0}}},
            {"9",
             [](Lnb& l) { return l.setVoltage(static_cast<LnbVoltage>(9)); },
             {{"SetLNBMode", 0}}},
            {"tone on",
             [](Lnb& l) { return l.setTone(LnbTone::CONTINUOUS); },
             {{"Set22KContinues", 1}}},
            {"tone off", [](Lnb& l) { return l.setTone(LnbTone::NONE); }, {{"Set22KContinues", 0}}},
            {"tone 7",
             [](Lnb& l) { return l.setTone(static_cast<LnbTone>(7)); },
             {{"Set22KContinues", 0}}},
            {"A",
             [](Lnb& l) { return l.setSatellitePosition(LnbPosition::POSITION_A); },
             {{"SendDiSEqCToneBurst", 0}}},
            {"B",
             [](Lnb& l) { return l.setSatellitePosition(LnbPosition::POSITION_B); },
             {{"SendDiSEqCToneBurst", 1}}},
            {"undefined position",
             [](Lnb& l) { return l.setSatellitePosition(LnbPosition::UNDEFINED); },
             {}},
            {"callback", [](Lnb& l) { return l.setCallback(nullptr); }, {}},
            {"close", [](Lnb& l) { return l.close(); }, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        driver().reset();
        sp<Lnb> lnb = new Lnb(2);
        EXPECT_EQ(c.call(*lnb), Result::SUCCESS);
        const auto calls = driver().lnbCalls();
        ASSERT_EQ(calls.size(), c.driverCalls.size());
        for (size_t i = 0; i < calls.size(); ++i) {
            EXPECT_EQ(calls[i].name, c.driverCalls[i].first);
            EXPECT_EQ(calls[i].value, c.driverCalls[i].second);
            EXPECT_EQ(calls[i].lnbId, 2);
        }
    }
    EXPECT_EQ(mLogs.matching("^\\[Lnb::setVoltage:\\d+\\]: mid:2$").size(), 6u);
}

TEST_F(LnbTest, DiseqcMessagesUpToSixBytes) {
    for (size_t length : {0u, 3u, 6u, 7u, 300u}) {
        SCOPED_TRACE(length);
        driver().reset();
        mLogs.clear();
        std::vector<uint8_t> message(length);
        for (size_t i = 0; i < length; ++i) message[i] = static_cast<uint8_t>(0xE0 + i);
        sp<Lnb> lnb = new Lnb();
        const Result result = lnb->sendDiseqcMessage(message);
        const auto calls = driver().lnbCalls();
        if (length > 6) {
            EXPECT_EQ(result, Result::INVALID_ARGUMENT);
            EXPECT_TRUE(calls.empty());
            EXPECT_EQ(mLogs.matching("diseqcMessage.size\\(\\) larger than "
                                     "MOX_DISEQC_MSG_MAX\\(6\\)!!$")[0]
                              .priority,
                      ANDROID_LOG_ERROR);
            continue;
        }
        EXPECT_EQ(result, Result::SUCCESS);
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].lnbId, 0);
        uint8_t expected[7] = {};
        if (length > 0) memcpy(expected, message.data(), length);
        expected[6] = static_cast<uint8_t>(length);
        EXPECT_EQ(memcmp(&calls[0].command, expected, sizeof(expected)), 0);
        EXPECT_EQ(mLogs.matching("]: size:" + std::to_string(length) + "$").size(), 1u);
    }
}

TEST_F(LnbTest, StillWorksAfterClose) {
    sp<Lnb> lnb = new Lnb(1);
    EXPECT_EQ(lnb->close(), Result::SUCCESS);
    EXPECT_EQ(lnb->close(), Result::SUCCESS);
    EXPECT_EQ(lnb->setVoltage(LnbVoltage::VOLTAGE_18V), Result::SUCCESS);
    EXPECT_EQ(lnb->sendDiseqcMessage(hidl_vec<uint8_t>{0xE0, 0x10, 0x38, 0xF0}), Result::SUCCESS);
    EXPECT_EQ(driver().lnbCalls().size(), 2u);
    EXPECT_EQ(mLogs.matching("^\\[Lnb::close:\\d+\\]: Enter >>$").size(), 2u);
}

}  // namespace
