#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using FrontendLifecycleTest = ServiceTest;

TEST_F(FrontendLifecycleTest, FirstConstructionPreparesTheDriverOnce) {
    sp<Tuner> tuner = new Tuner();
    sp<Frontend> a = new Frontend(FrontendType::DVBT, 4, tuner);
    sp<Frontend> b = new Frontend(FrontendType::DVBC, 5, FrontendInfo(), tuner);
    EXPECT_EQ(mox::host::smpCalls(),
              (std::vector<std::pair<int, int>>{{0, 0}, {1, 0}, {16, 0}, {17, 0}}));
    EXPECT_EQ(driver().count("Init"), 1);
    EXPECT_EQ(mLogs.matching("^\\[Frontend::Frontend:\\d+\\]: MOX_DvbSetSMP set off\\.$").size(),
              1u);
    EXPECT_EQ(mLogs.matching("^\\[Frontend::Frontend:\\d+\\]: Frontend mId=4\n$").size(), 1u);
    EXPECT_EQ(mLogs.matching("^\\[Frontend::Frontend:\\d+\\]: Frontend mId=5\n$").size(), 1u);
    EXPECT_FALSE(a->isLocked());
}

TEST_F(FrontendLifecycleTest, NullCallbackIsRefusedAndKeepsTheEarlierOne) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(1)});
    sp<Frontend> frontend = tuner->getFrontendById(0);
    sp<RecordingCallback> callback = new RecordingCallback();
    EXPECT_EQ(frontend->setCallback(callback), Result::SUCCESS);
    EXPECT_EQ(frontend->setCallback(nullptr), Result::INVALID_ARGUMENT);
    EXPECT_EQ(mLogs.matching("Set Frontend callback with nullptr!!$").at(0).priority,
              ANDROID_LOG_ERROR);
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 1;
        return 0;
    });
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
    EXPECT_EQ(callback->events(), std::vector<FrontendEventType>{FrontendEventType::LOCKED});
    EXPECT_TRUE(frontend->isLocked());

    EXPECT_EQ(frontend->close(), Result::SUCCESS);
    EXPECT_EQ(frontend->close(), Result::SUCCESS);
    EXPECT_FALSE(frontend->isLocked());
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::INVALID_STATE);
    EXPECT_EQ(frontend->setCallback(callback), Result::SUCCESS);
    EXPECT_EQ(frontend->tune(dvbt(474000000)), Result::SUCCESS);
    EXPECT_EQ(callback->events().size(), 2u);
}

TEST_F(FrontendLifecycleTest, LnbOnlyForSatelliteTypesAndLnaAlwaysAccepted) {
    sp<Tuner> tuner = new Tuner();
    const std::pair<uint32_t, Result> cases[] = {
            {5, Result::SUCCESS},       {7, Result::SUCCESS},       {8, Result::SUCCESS},
            {6, Result::INVALID_STATE}, {4, Result::INVALID_STATE}, {0, Result::INVALID_STATE},
            {42, Result::INVALID_STATE}};
    for (auto [type, expected] : cases) {
        sp<Frontend> frontend = new Frontend(static_cast<FrontendType>(type), 0, tuner);
        EXPECT_EQ(frontend->setLnb(0), expected) << "type " << type;
        EXPECT_EQ(frontend->setLnb(0xFFFFFFFFu), expected) << "type " << type;
        EXPECT_EQ(frontend->supportsSatellite(), expected == Result::SUCCESS);
        EXPECT_EQ(frontend->setLna(true), Result::SUCCESS);
        EXPECT_EQ(frontend->setLna(false), Result::SUCCESS);
    }
    EXPECT_EQ(driver().calls().size(), 1u) << "only the first frontend's Init";
}

TEST_F(FrontendLifecycleTest, DestroyingAFrontendWithoutAScanIsSafe) {
    sp<Tuner> tuner = new Tuner();
    sp<Frontend> frontend = new Frontend(FrontendType::DVBT, 0, tuner);
    EXPECT_EQ(frontend->stopScan(), Result::SUCCESS);
    EXPECT_EQ(frontend->stopScan(), Result::SUCCESS);
    frontend.clear();
    EXPECT_EQ(driver().count("Release"), 2);
}

}  // namespace
