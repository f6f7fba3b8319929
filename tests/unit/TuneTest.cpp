#include <cmath>

#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

class TuneTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mTuner = discovered({fake::dvbtEntry(1), fake::dvbcEntry(1), fake::dvbsEntry(1, 1)});
        for (uint32_t id = 0; id < 3; ++id) mTuner->getFrontendById(id)->setCallback(mCallback);
        driver().reset();  // only what tuning does from here on
        mLogs.clear();
    }

    // The driver reports lock from the given poll on (1-based); 0 never.
    void lockFromPoll(int poll, uint32_t lockValue = 1) {
        auto polls = std::make_shared<int>(0);
        driver().onGetInfo([polls, poll, lockValue](uint8_t, MOX_TunerSignalInfo_t* info) {
            ++*polls;
            if (poll != 0 && *polls >= poll) info->lock = lockValue;
            return 0;
        });
    }

    sp<Tuner> mTuner;
    sp<RecordingCallback> mCallback = new RecordingCallback();
};

TEST_F(TuneTest, WithoutCallbackNothingReachesTheDriver) {
    sp<Frontend> frontend = new Frontend(FrontendType::DVBT, 0, mTuner);
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::INVALID_STATE);
    EXPECT_TRUE(driver().calls().empty());
    EXPECT_EQ(mLogs.matching("^\\[Frontend::tune:\\d+\\]: Frontend callback is not set when tune!$")
                      .at(0)
                      .priority,
              ANDROID_LOG_ERROR);
}

TEST_F(TuneTest, LockOnTheFirstPoll) {
    lockFromPoll(1);
    sp<Frontend> frontend = mTuner->getFrontendById(0);
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
    const auto calls = driver().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "Scan");
    EXPECT_EQ(calls[1].name, "GetInfo");
    EXPECT_EQ(calls[1].atUs - calls[0].atUs, 200000u) << "the wait comes before the first poll";
    EXPECT_EQ(mCallback->events(), std::vector<FrontendEventType>{FrontendEventType::LOCKED});
    EXPECT_TRUE(frontend->isLocked());
    EXPECT_EQ(mLogs.matching("^\\[Frontend::tune:\\d+\\]: FrontendEventType::LOCKED!!$").size(), 1u);
}

TEST_F(TuneTest, FifteenPollsThenNoSignal) {
    for (uint32_t lockValue : {0u, 2u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(lockValue);
        driver().reset();
        vt::reset();
        lockFromPoll(1, lockValue);
        sp<Frontend> frontend = mTuner->getFrontendById(0);
        const std::vector<FrontendEventType> before = mCallback->events();
        EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
        EXPECT_EQ(driver().count("GetInfo"), 15);
        EXPECT_EQ(vt::waitCount(), 15);
        EXPECT_EQ(vt::waitedUs(), 15u * 200000u);
        EXPECT_EQ(mCallback->events().size(), before.size() + 1);
        EXPECT_EQ(mCallback->events().back(), FrontendEventType::NO_SIGNAL);
    }
    EXPECT_EQ(mLogs.messages("FrontendEventType::NO_SIGNAL!!$").size(), 3u);
}

TEST_F(TuneTest, NoSignalLeavesAnEarlierLockAndStartsNoDemux) {
    lockFromPoll(1);
    sp<Frontend> frontend = mTuner->getFrontendById(0);
    frontend->tune(dvbt(474000000));
    lockFromPoll(0);
    frontend->tune(dvbt(474000000));
    EXPECT_TRUE(frontend->isLocked());
    const auto lines = mLogs.messages("^\\[Frontend::tune:\\d+\\]: (FrontendEventType|End)");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[1].find("NO_SIGNAL"), std::string::npos);
    EXPECT_NE(lines[2].find("End <<"), std::string::npos);
}

TEST_F(TuneTest, ScanFailureSendsNothing) {
    driver().onScan([](uint8_t, const MOX_TunerParam_t&) { return -5; });
    sp<Frontend> frontend = mTuner->getFrontendById(0);
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
    EXPECT_EQ(driver().count("GetInfo"), 0);
    EXPECT_TRUE(mCallback->events().empty());
    EXPECT_FALSE(frontend->isLocked());
    EXPECT_EQ(mLogs.matching("MOX_Tuner_Scan failed!!$").at(0).priority, ANDROID_LOG_ERROR);
}

TEST_F(TuneTest, TheRecordReachesTheDriverByValueWithTheTunerIndex) {
    lockFromPoll(1);
    mTuner->getFrontendById(1)->tune(dvbc(306000000, 6900000));
    mTuner->getFrontendById(2)->tune(dvbs(1210000000, 27500000));
    const auto scans = driver().scans();
    ASSERT_EQ(scans.size(), 2u);
    EXPECT_EQ(scans[0].eTunerType, 1u);
    EXPECT_EQ(scans[0].uiSymbolRate, 6900000u);
    EXPECT_EQ(scans[1].eTunerType, 6u);
    const auto calls = driver().calls();
    EXPECT_EQ(calls[0].target, 1);
    EXPECT_EQ(calls[2].target, 2);
}

TEST_F(TuneTest, UntranslatableTypeTunesWithAnAllZeroRecord) {
    lockFromPoll(0);
    sp<Frontend> isdbt = new Frontend(FrontendType::ISDBT, 3, mTuner);
    isdbt->setCallback(mCallback);
    EXPECT_EQ(isdbt->tune(dvbt(474000000)), Result::SUCCESS);
    ASSERT_EQ(driver().scans().size(), 1u);
    const MOX_TunerParam_t zero{};
    EXPECT_EQ(memcmp(&driver().scans()[0], &zero, sizeof(zero)), 0);
}

TEST_F(TuneTest, MismatchedSettingsAreRefusedBeforeTheDriver) {
    EXPECT_EQ(mTuner->getFrontendById(0)->tune(dvbc(306000000, 6900000)), Result::INVALID_ARGUMENT);
    EXPECT_EQ(mTuner->getFrontendById(1)->tune(dvbs(1210000000, 1)), Result::INVALID_ARGUMENT);
    EXPECT_TRUE(driver().calls().empty());
    EXPECT_TRUE(mCallback->events().empty());
}

TEST_F(TuneTest, PollLineCarriesEveryFigure) {
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 1;
        info->strength = 80;
        info->quality = 70;
        info->snr = 20.25f;
        info->ber = 0.5f;
        info->agc = 0x1A5;
        info->powerlevel = 523;
        info->packetError = 0.25f;
        info->mer = 19.5f;
        info->lber = 0.125f;
        return 0;
    });
    mTuner->getFrontendById(0)->tune(dvbt(474000000));
    EXPECT_EQ(mLogs.matching("^\\[Frontend::tune:\\d+\\]: Tuner:0 lock:true strength=80 quality=70 "
                             "snr=20\\.2dB ber=0\\.500000 agc=421 powerlevel=52\\.3dBuV "
                             "packetError=0\\.250000 mer=19\\.500000 lber=0\\.125000$")
                      .size(),
              1u);
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->powerlevel = -123;
        return 0;
    });
    mTuner->getFrontendById(0)->tune(dvbt(474000000));
    EXPECT_EQ(mLogs.matching("lock:false .*powerlevel=-12\\.3dBuV").size(), 15u);
}

TEST_F(TuneTest, StopTuneReleasesEvenWithoutATune) {
    sp<Frontend> frontend = new Frontend(FrontendType::DVBT, 0x105, mTuner);
    EXPECT_EQ(frontend->stopTune(), Result::SUCCESS);
    const auto calls = driver().calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "Release");
    EXPECT_EQ(calls[0].target, 5) << "the tuner index is the id's low byte";
}

TEST_F(TuneTest, CloseDuringTheTuneDoesNotLoseTheEvent) {
    sp<Frontend> frontend = mTuner->getFrontendById(0);
    driver().onGetInfo([frontend](uint8_t, MOX_TunerSignalInfo_t* info) {
        frontend->close();  // another binder thread closes while tune polls
        info->lock = 1;
        return 0;
    });
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
    EXPECT_EQ(mCallback->events(), std::vector<FrontendEventType>{FrontendEventType::LOCKED});
}

}  // namespace
