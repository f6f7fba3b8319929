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

// A client that sometimes calls back into the frontend from inside onScanMessage, as an
// in-process client may.
sp<RecordingCallback> reentrantCallback(const sp<Frontend>& frontend, std::atomic<uint32_t>& dice) {
    sp<RecordingCallback> callback = new RecordingCallback();
    ::android::wp<Frontend> weak = frontend;
    callback->onMessage([weak, &dice](const RecordingCallback::Message&) {
        sp<Frontend> f = weak.promote();
        if (f == nullptr) return;
        switch (dice.fetch_add(1) % 13) {
            case 0:
                f->stopScan();
                break;
            case 1:
                f->close();
                break;
            case 2:
                f->scan(settingsFor(f->getFrontendType()), FrontendScanType::SCAN_AUTO);
                break;
            default:
                break;
        }
    });
    return callback;
}

TEST(FrontendStressTest, OverlappingScansStopsClosesTunesAndCallbacksThatCallBack) {
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
    std::atomic<uint32_t> reentryDice{0};
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
                        f->setCallback(reentrantCallback(f, reentryDice));
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
    // Threads that a callback detached hold their frontend until they end: wait for them, so no
    // callback runs after this test.
    const auto deadline = std::chrono::steady_clock::now() + kWatchdog;
    for (const sp<Frontend>& f : frontends) {
        while (f->getStrongCount() > 2 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(f->getStrongCount(), 2) << "the Tuner's reference and this test's";
    }
    EXPECT_EQ(stopScans.load(), stopScansReturned.load());
    EXPECT_GT(stopScans.load(), 0);
    for (const sp<Frontend>& f : frontends) EXPECT_FALSE(f->isScanRunning());
}

}  // namespace
