#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include <thread>

#include "FakeMoxDriver.h"
#include "MoxHostRecord.h"
#include "service/ServiceMain.h"
#include "tuner/Tuner.h"

using ::android::sp;
using namespace ::android::hardware::tv::tuner::V1_0;

extern "C" ITuner* HIDL_FETCH_ITuner(const char* name);

namespace {

// Stands in for a service that holds the name first, so that registration is refused.
sp<ITuner> anotherTuner() {
    return new implementation::Tuner();
}

TEST(ServiceMainTest, RefusedRegistrationAborts) {
    EXPECT_DEATH(
            {
                if (anotherTuner()->registerAsService("default") == ::android::OK) {
                    runTunerService();
                }
            },
            "Error while registering tuner service: -17");
}

TEST(ServiceMainTest, ServesUntilThePoolReturnsThenExitsWithZero) {
    EXPECT_EXIT(
            {
                std::thread client([] {
                    sp<ITuner> tuner;
                    while ((tuner = ITuner::getService()) == nullptr) std::this_thread::yield();
                    // Starting the service has not touched the driver.
                    if (!fake::Driver::get().calls().empty()) _exit(3);
                    ::android::hardware::requestRpcThreadpoolExit();
                });
                client.detach();
                exit(runTunerService());
            },
            ::testing::ExitedWithCode(0), "");
}

TEST(ServiceMainTest, DestroyingTheTunerReleasesThePassthroughFirst) {
    mox::host::clearRecords();
    implementation::Tuner* raw = new implementation::Tuner();
    sp<ITuner> tuner = raw;
    tuner.clear();
    EXPECT_EQ(mox::host::passthroughReleases(), std::vector<mox::host::TunerPtr>{raw});
}

TEST(ServiceMainTest, PassthroughClientsShareTheProcessesOneTuner) {
    ITuner* first = HIDL_FETCH_ITuner("default");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(HIDL_FETCH_ITuner("default"), first);
    EXPECT_EQ(HIDL_FETCH_ITuner("other"), first);
    // A client's reference comes and goes; the Tuner stays.
    { sp<ITuner> client = first; }
    EXPECT_EQ(HIDL_FETCH_ITuner("default"), first);
}

}  // namespace
