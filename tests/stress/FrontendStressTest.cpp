// Several binder threads drive the same frontends with scan, stopScan, close, setCallback and
// tune at random moments. Run under ThreadSanitizer; a watchdog fails the test on a deadlock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

#include "FakeMoxDriver.h"
#include "RecordingCallback.h"
#include "TestSettings.h"
#include "VirtualClock.h"
#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

using namespace ::android::hardware::tv::tuner::V1_0;

using ::android::sp;
using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;
using ::android::hardware::tv::tuner::V1_0::implementation::Tuner;

namespace {

constexpr auto kRunTime = std::chrono::seconds(3);
constexpr auto kWatchdog = std::chrono::seconds(60);
constexpr int kThreads = 6;

FrontendSettings settingsFor(FrontendType type) {
    return type == FrontendType::DVBC ? dvbc(474000000, 0) : dvbt(650000000);
}

TEST(FrontendStressTest, OverlappingScansStopsClosesAndTunes) {
    fake::Driver::get().reset();
    std::atomic<uint32_t> lockDice{1};
    fake::Driver::get().onIsLocked(
            [&](uint8_t) { return (lockDice.fetch_add(7) % 23) == 0 ? 0 : 1; });
    fake::Driver::get().onGetInfo([&](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = (lockDice.fetch_add(5) % 11) == 0;
        return 0;
    });
    fake::Driver::get().setCapabilities(
            0, fake::capabilityOf({fake::dvbtEntry(1), fake::dvbcEntry(1)}));
    sp<Tuner> tuner = new Tuner();
    tuner->getFrontendIds([](Result, const ::android::hardware::hidl_vec<uint32_t>&) {});
    const sp<Frontend> frontends[] = {tuner->getFrontendById(0), tuner->getFrontendById(1)};

    std::mutex doneLock;
    std::condition_variable doneChanged;
    int done = 0;
    std::atomic<int> stopScans{0};
    std::atomic<int> stopScansReturned{0};
    std::vector<std::thread> workers;
    const auto end = std::chrono::steady_clock::now() + kRunTime;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            std::mt19937 random(1234 + t);
            while (std::chrono::steady_clock::now() < end) {
                const sp<Frontend>& f = frontends[random() % 2];
                const FrontendSettings settings = settingsFor(f->getFrontendType());
                switch (random() % 6) {
                    case 0:
                        f->scan(settings, random() % 2 ? FrontendScanType::SCAN_BLIND
                                                       : FrontendScanType::SCAN_AUTO);
                        break;
                    case 1:
                        ++stopScans;
                        f->stopScan();
                        ++stopScansReturned;
                        break;
                    case 2:
                        f->close();
                        break;
                    case 3:
                        f->setCallback(new RecordingCallback());
                        break;
                    case 4:
                        f->tune(settings);
                        break;
                    case 5:
                        f->stopTune();
                        break;
                }
            }
            std::lock_guard<std::mutex> guard(doneLock);
            ++done;
            doneChanged.notify_all();
        });
    }
    {
        std::unique_lock<std::mutex> lock(doneLock);
        if (!doneChanged.wait_for(lock, kWatchdog, [&] { return done == kThreads; })) {
            ADD_FAILURE() << "deadlock: workers did not finish";
            std::abort();
        }
    }
    for (std::thread& w : workers) w.join();
    for (const sp<Frontend>& f : frontends) f->stopScan();
    EXPECT_EQ(stopScans.load(), stopScansReturned.load());
    EXPECT_GT(stopScans.load(), 0);
    for (const sp<Frontend>& f : frontends) EXPECT_FALSE(f->isScanRunning());
}

}  // namespace
