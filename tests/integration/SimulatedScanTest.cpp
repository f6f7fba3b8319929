#include <chrono>
#include <thread>

#include "SimulatedBox.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using SimulatedScanTest = SimulatedBoxTest;
using MT = FrontendScanMessageType;

void waitForScanEnd(const sp<Frontend>& f) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (f->isScanRunning() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_FALSE(f->isScanRunning());
}

std::vector<uint32_t> lockedFrequencies(const std::vector<RecordingCallback::Message>& messages) {
    std::vector<uint32_t> out;
    uint32_t last = 0;
    for (const auto& [type, message] : messages) {
        if (type == MT::FREQUENCY) last = message.frequencies()[0];
        if (type == MT::LOCKED) out.push_back(last);
    }
    return out;
}

TEST_F(SimulatedScanTest, BlindCableSweepFindsTheMultiplexAtEveryStepOfItsMHz) {
    ASSERT_EQ(frontend(kCable)->scan(dvbc(474000000, 0), FrontendScanType::SCAN_BLIND),
              Result::SUCCESS);
    waitForScanEnd(frontend(kCable));
    const auto found = lockedFrequencies(mCallback->messages());
    ASSERT_EQ(found.size(), 20u) << "474.00 .. 474.95 MHz all tune to 474 MHz";
    EXPECT_EQ(found.front(), 474000000u);
    EXPECT_EQ(found.back(), 474950000u);
    EXPECT_TRUE(frontend(kCable)->isLocked());
    // The sweep left the tuner on the last lock: once the demodulator has settled again the
    // driver reports it.
    vt::advance(300000);
    FrontendStatus lock;
    frontend(kCable)->getStatus({FrontendStatusType::DEMOD_LOCK},
                                [&](Result, const hidl_vec<FrontendStatus>& st) { lock = st[0]; });
    EXPECT_TRUE(lock.isDemodLocked());
    frontend(kCable)->stopScan();
}

TEST_F(SimulatedScanTest, TerrestrialScanAt650MHz) {
    frontend(kTerrestrial)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kTerrestrial));
    std::vector<MT> types;
    for (const auto& m : mCallback->messages()) types.push_back(m.first);
    EXPECT_EQ(types, (std::vector<MT>{MT::FREQUENCY, MT::LOCKED, MT::END}));
    frontend(kTerrestrial)->stopScan();
}

}  // namespace
