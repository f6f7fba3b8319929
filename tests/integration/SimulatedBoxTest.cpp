#include "SimulatedBox.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

TEST_F(SimulatedBoxTest, DiscoversTheDefaultBox) {
    EXPECT_EQ(mIds, (std::vector<uint32_t>{0, 1, 2, 3}));
    const FrontendType types[] = {FrontendType::DVBT, FrontendType::DVBT, FrontendType::DVBC,
                                  FrontendType::DVBS};
    for (uint32_t id : mIds) {
        mTuner->getFrontendInfo(id, [&](Result r, const FrontendInfo& info) {
            EXPECT_EQ(r, Result::SUCCESS);
            EXPECT_EQ(info.type, types[id]);
        });
    }
    mTuner->getFrontendInfo(0, [](Result, const FrontendInfo& info) {
        EXPECT_TRUE(info.frontendCaps.dvbtCaps().isT2Supported);
        EXPECT_TRUE(info.frontendCaps.dvbtCaps().isMisoSupported);
    });
    mTuner->getFrontendInfo(kCable, [](Result, const FrontendInfo& info) {
        EXPECT_EQ(info.frontendCaps.dvbcCaps().annexCap, 1 | 4);
        EXPECT_EQ(info.frontendCaps.dvbcCaps().modulationCap, 0x3Eu);
    });
    mTuner->getLnbIds([](Result, const hidl_vec<uint32_t>& ids) {
        EXPECT_EQ(ids, (hidl_vec<uint32_t>{0, 1}));
    });
}

TEST_F(SimulatedBoxTest, EachDeliverySystemLocksAfterItsDelay) {
    struct Case {
        uint32_t frontend;
        FrontendSettings settings;
        uint64_t lockDelayUs;
    } const cases[] = {
            {kTerrestrial, dvbt(474000000, FrontendDvbtStandard::T2), 400000},
            {1, dvbt(482000000, FrontendDvbtStandard::T), 400000},  // 300 ms: the second poll
            {kCable, dvbc(306000000, 6900000), 200000},
            {kSatellite, dvbs(1210000000, 27500000, FrontendDvbsStandard::S2), 600000},  // 500 ms
    };
    for (const Case& c : cases) {
        const uint64_t start = vt::nowUs();
        const size_t events = mCallback->events().size();
        EXPECT_EQ(frontend(c.frontend)->tune(c.settings), Result::SUCCESS);
        ASSERT_EQ(mCallback->events().size(), events + 1);
        EXPECT_EQ(mCallback->events().back(), FrontendEventType::LOCKED);
        EXPECT_EQ(vt::nowUs() - start, c.lockDelayUs);
        const auto s = status(c.frontend, {FrontendStatusType::DEMOD_LOCK, FrontendStatusType::SNR,
                                           FrontendStatusType::SIGNAL_QUALITY});
        EXPECT_TRUE(s[0].isDemodLocked());
        EXPECT_GT(s[1].snr(), 5000);
        EXPECT_GT(s[2].signalQuality(), 0u);
        frontend(c.frontend)->stopTune();
        EXPECT_FALSE(status(c.frontend, {FrontendStatusType::DEMOD_LOCK})[0].isDemodLocked());
    }
}

TEST_F(SimulatedBoxTest, T2MultiplexReportsItsPlpAndHierarchy) {
    frontend(kTerrestrial)->tune(dvbt(506000000, FrontendDvbtStandard::T2));
    const auto s = status(kTerrestrial, {FrontendStatusType::PLP_ID, FrontendStatusType::HIERARCHY});
    EXPECT_EQ(s[0].plpId(), 3);
    EXPECT_EQ(s[1].hierarchy(), FrontendDvbtHierarchy::HIERARCHY_2_NATIVE);
}

TEST_F(SimulatedBoxTest, WrongStandardOrEmptyChannelGivesNoSignal) {
    for (const FrontendSettings& settings :
         {dvbt(474000000, FrontendDvbtStandard::T), dvbt(530000000, FrontendDvbtStandard::T2)}) {
        const uint64_t start = vt::nowUs();
        frontend(kTerrestrial)->tune(settings);
        EXPECT_EQ(mCallback->events().back(), FrontendEventType::NO_SIGNAL);
        EXPECT_EQ(vt::nowUs() - start, 3000000u);
    }
}

TEST_F(SimulatedBoxTest, LnbCommandsReachTheDriver) {
    sp<ILnb> lnb;
    mTuner->openLnbById(1, [&](Result, const sp<ILnb>& l) { lnb = l; });
    lnb->setVoltage(LnbVoltage::VOLTAGE_18V);
    lnb->setTone(LnbTone::CONTINUOUS);
    lnb->setSatellitePosition(LnbPosition::POSITION_B);
    lnb->sendDiseqcMessage(hidl_vec<uint8_t>{0xE0, 0x10, 0x38, 0xF0});
    const mox::sim::LnbState state = mox::sim::simulator().lnb(1);
    EXPECT_EQ(state.mode, 2u);
    EXPECT_EQ(state.tone, 1u);
    EXPECT_EQ(state.lastBurst, 1);
    EXPECT_EQ(state.lastDiseqc, (std::vector<uint8_t>{0xE0, 0x10, 0x38, 0xF0}));
}

}  // namespace
