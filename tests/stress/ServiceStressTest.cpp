// Eight binder threads on every interface at once: the tuner's lookups, demux and descrambler
// management, every frontend operation and the LNBs, with callbacks that call into any frontend.
// Bounded in time; a watchdog fails the test on a deadlock. Run under ThreadSanitizer.
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
#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

using namespace ::android::hardware::tv::tuner::V1_0;

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;

namespace {

constexpr auto kRunTime = std::chrono::seconds(3);
constexpr auto kWatchdog = std::chrono::seconds(60);
constexpr int kBinderThreads = 8;
constexpr uint32_t kFrontends = 4;  // DVB-T, DVB-C, DVB-S, and one id past the end

FrontendSettings settingsFor(uint32_t id, uint32_t dice) {
    switch (id) {
        case 0:
            return dvbt(650000000 + dice % 3);
        case 1:
            return dvbc(474000000, dice % 2 ? 0 : 6900000);
        default:
            return dvbs(1210000000, 27500000);
    }
}

sp<IFrontend> open(const sp<ITuner>& tuner, uint32_t id) {
    sp<IFrontend> frontend;
    tuner->openFrontendById(id, [&](Result, const sp<IFrontend>& f) { frontend = f; });
    return frontend;
}

// A client callback that now and then calls into some frontend, any of them, from inside.
class MeddlingCallback : public RecordingCallback {
  public:
    MeddlingCallback(wp<ITuner> tuner, uint32_t seed) : mTuner(tuner), mRandom(seed) {
        onMessage([this](const Message&) { meddle(); });
    }
    ::android::hardware::Return<void> onEvent(FrontendEventType event) override {
        RecordingCallback::onEvent(event);
        meddle();
        return ::android::hardware::Void();
    }

  private:
    void meddle() {
        sp<ITuner> tuner = mTuner.promote();
        if (tuner == nullptr) return;
        uint32_t dice;
        {
            std::lock_guard<std::mutex> guard(mRandomLock);
            dice = mRandom();
        }
        const uint32_t id = dice % kFrontends;
        sp<IFrontend> f = open(tuner, id);
        if (f == nullptr) return;
        switch (dice / kFrontends % 9) {
            case 0:
                f->stopScan();
                break;
            case 1:
                f->scan(settingsFor(id, dice), FrontendScanType::SCAN_BLIND);
                break;
            case 2:
                f->close();
                break;
            case 3:
                f->getStatus(hidl_vec<FrontendStatusType>{FrontendStatusType::DEMOD_LOCK},
                             [](Result, const hidl_vec<FrontendStatus>&) {});
                break;
            default:
                break;
        }
    }

    wp<ITuner> mTuner;
    std::mutex mRandomLock;
    std::mt19937 mRandom;
};

void randomOperation(const sp<ITuner>& tuner, std::mt19937& random) {
    const uint32_t dice = random();
    const uint32_t id = dice % kFrontends;
    switch (dice / kFrontends % 16) {
        case 0:
            tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
            break;
        case 1:
            tuner->getFrontendInfo(id, [](Result, const FrontendInfo&) {});
            break;
        case 2: {
            sp<IDemux> demux;
            tuner->openDemux([&](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
            if (demux == nullptr) break;
            demux->setFrontendDataSource(id);
            if (random() % 4 != 0) demux->close();  // some stay open, bound to their frontend
            break;
        }
        case 3:
            tuner->getDemuxCaps([](Result, const DemuxCapabilities&) {});
            tuner->openDescrambler([](Result, const sp<IDescrambler>&) {});
            break;
        case 4: {
            sp<ILnb> lnb;
            if (random() % 2) {
                tuner->openLnbById(id % 3, [&](Result, const sp<ILnb>& l) { lnb = l; });
            } else {
                tuner->openLnbByName(hidl_string("dish"),
                                     [&](Result, uint32_t, const sp<ILnb>& l) { lnb = l; });
            }
            if (lnb == nullptr) break;
            lnb->setVoltage(LnbVoltage::VOLTAGE_18V);
            lnb->setTone(LnbTone::CONTINUOUS);
            lnb->setSatellitePosition(LnbPosition::POSITION_B);
            lnb->sendDiseqcMessage(hidl_vec<uint8_t>{0xE0, 0x10, 0x38, 0xF3});
            lnb->close();
            break;
        }
        default: {
            sp<IFrontend> f = open(tuner, id);
            if (f == nullptr) break;
            switch (dice / kFrontends / 16 % 8) {
                case 0:
                    f->scan(settingsFor(id, dice),
                            dice % 2 ? FrontendScanType::SCAN_BLIND : FrontendScanType::SCAN_AUTO);
                    break;
                case 1:
                    f->stopScan();
                    break;
                case 2:
                    f->tune(settingsFor(id, dice));
                    break;
                case 3:
                    f->stopTune();
                    break;
                case 4:
                    f->setCallback(new MeddlingCallback(tuner, dice));
                    break;
                case 5:
                    f->close();
                    break;
                case 6:
                    f->getStatus(hidl_vec<FrontendStatusType>{FrontendStatusType::SNR,
                                                              FrontendStatusType::PLP_ID},
                                 [](Result, const hidl_vec<FrontendStatus>&) {});
                    break;
                case 7:
                    f->setLnb(0);
                    f->setLna(true);
                    break;
            }
        }
    }
}

TEST(ServiceStressTest, EightBinderThreadsOnEveryInterface) {
    fake::Driver& driver = fake::Driver::get();
    driver.reset();
    std::atomic<uint32_t> lockDice{1};
    driver.onIsLocked([&](uint8_t) { return (lockDice.fetch_add(7) % 19) == 0 ? 0 : 1; });
    driver.onGetInfo([&](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = (lockDice.fetch_add(5) % 7) == 0;
        return 0;
    });
    driver.setCapabilities(
            0, fake::capabilityOf({fake::dvbtEntry(1), fake::dvbcEntry(1), fake::dvbsEntry(1, 2)}));
    sp<ITuner> tuner = new ::android::hardware::tv::tuner::V1_0::implementation::Tuner();

    std::mutex doneLock;
    std::condition_variable doneChanged;
    int done = 0;
    std::atomic<long> operations{0};
    std::vector<std::thread> binderThreads;
    const auto end = std::chrono::steady_clock::now() + kRunTime;
    for (int t = 0; t < kBinderThreads; ++t) {
        binderThreads.emplace_back([&, t] {
            std::mt19937 random(4321 + t);
            while (std::chrono::steady_clock::now() < end) {
                randomOperation(tuner, random);
                ++operations;
            }
            std::lock_guard<std::mutex> guard(doneLock);
            ++done;
            doneChanged.notify_all();
        });
    }
    {
        std::unique_lock<std::mutex> lock(doneLock);
        if (!doneChanged.wait_for(lock, kWatchdog, [&] { return done == kBinderThreads; })) {
            ADD_FAILURE() << "deadlock: binder threads did not finish";
            std::abort();
        }
    }
    for (std::thread& t : binderThreads) t.join();
    EXPECT_GT(operations.load(), 0);

    // Quiet the callbacks (a closed frontend refuses new scans), then stop every scan from here,
    // a thread that runs no client code, so each stop waits for its scan's threads. The second
    // round stops what a callback already under way started during the first.
    std::vector<sp<IFrontend>> frontends;
    for (uint32_t id = 0; id < kFrontends - 1; ++id) frontends.push_back(open(tuner, id));
    for (const sp<IFrontend>& f : frontends) f->close();
    for (int round = 0; round < 2; ++round) {
        for (const sp<IFrontend>& f : frontends) EXPECT_EQ(f->stopScan(), Result::SUCCESS);
    }
    // Every scan thread has let its frontend go: only the Tuner's reference and this test's remain
    // (the scan threads end just after the stop that waited for them returns).
    const auto deadline = std::chrono::steady_clock::now() + kWatchdog;
    for (const sp<IFrontend>& f : frontends) {
        EXPECT_FALSE(static_cast<Frontend*>(f.get())->isScanRunning());
        while (f->getStrongCount() > 2 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(f->getStrongCount(), 2);
    }
}

}  // namespace
