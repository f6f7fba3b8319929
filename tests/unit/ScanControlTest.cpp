// How scans start and stop when clients overlap them, stop them early or call back into the
// frontend from inside onScanMessage.
#include <android/log.h>

#include <atomic>
#include <future>

#include "ScanTestSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using ScanControlTest = ScanTestBase;

TEST_F(ScanControlTest, ScanNeedsACallbackAndMatchingSettings) {
    sp<Frontend> bare = new Frontend(FrontendType::DVBT, 0, mTuner);
    EXPECT_EQ(bare->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO), Result::INVALID_STATE);
    EXPECT_EQ(frontend(kDvbc)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO),
              Result::INVALID_ARGUMENT);
    EXPECT_FALSE(bare->isScanRunning());
    EXPECT_FALSE(frontend(kDvbc)->isScanRunning());
    EXPECT_TRUE(driver().calls().empty());
}

TEST_F(ScanControlTest, StopBeforeTheThreadRunsEndsThatScan) {
    // The new thread's first line waits until the stop has been requested.
    const sp<Frontend> f = frontend(kDvbs);
    mLogs.onRecord([f](const LogRecord& record) {
        if (record.message.find("__threadLoopScan") != std::string::npos) {
            eventually([f] { return !f->isScanRunning(); });
        }
    });
    EXPECT_EQ(f->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO), Result::SUCCESS);
    EXPECT_EQ(f->stopScan(), Result::SUCCESS);
    mLogs.onRecord(nullptr);
    EXPECT_FALSE(f->isScanRunning());
    EXPECT_EQ(driver().count("IsLocked"), 0) << "the scan ran on after its stop";
    EXPECT_EQ(mCallback->messageTypes(), std::vector<MT>{MT::END});
    EXPECT_EQ(driver().calls().back().name, "Release");
}

TEST_F(ScanControlTest, StopWithoutAThreadStillReleases) {
    EXPECT_EQ(frontend(kDvbt)->stopScan(), Result::SUCCESS);
    lockOnPolls({1});
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbt));
    EXPECT_EQ(frontend(kDvbt)->stopScan(), Result::SUCCESS);  // joins the finished thread
    EXPECT_EQ(frontend(kDvbt)->stopScan(), Result::SUCCESS);  // nothing left to join
    EXPECT_EQ(driver().count("Release"), 3);
    EXPECT_FALSE(frontend(kDvbt)->isLocked());
}

TEST_F(ScanControlTest, ANewScanEndsTheRunningOneAndRunsAfterIt) {
    // The first scan's driver poll waits until the second scan has started its thread, so the
    // second scan() certainly finds the first one running.
    auto polls = std::make_shared<std::atomic<int>>(0);
    auto firstPoll = std::make_shared<std::atomic<bool>>(false);
    driver().onIsLocked([this, polls, firstPoll](uint8_t) {
        if (++*polls == 1) {
            *firstPoll = true;
            eventually([this] {
                return mLogs.messages("__threadLoopScan:\\d+\\]: Enter").size() >= 2;
            });
        }
        return 1;
    });
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    ASSERT_TRUE(eventually([&] { return firstPoll->load(); }));
    EXPECT_EQ(frontend(kDvbt)->scan(dvbt(474000000), FrontendScanType::SCAN_AUTO), Result::SUCCESS);
    waitForScanEnd(frontend(kDvbt));
    // The first scan was stopped in its first poll and ended with END; the second never locked.
    EXPECT_EQ(mCallback->messageTypes(), std::vector<MT>{MT::END});
    EXPECT_EQ(polls->load(), 1 + 50);
    const auto scans = driver().scans();
    ASSERT_EQ(scans.size(), 2u);
    EXPECT_EQ(scans[0].uiFreqMHz, 650u);
    EXPECT_EQ(scans[1].uiFreqMHz, 474u) << "each thread scans its own settings";
    frontend(kDvbt)->stopScan();
}

TEST_F(ScanControlTest, StopFromInsideTheCallback) {
    lockOnPolls({1});
    mCallback->onMessage([this](const RecordingCallback::Message& m) {
        if (m.first == MT::FREQUENCY) {
            EXPECT_EQ(frontend(kDvbt)->stopScan(), Result::SUCCESS);
        }
    });
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbt));
    EXPECT_TRUE(eventually([this] { return mCallback->messages().size() == 3; }));
    // The stop returned at once; the scan's thread released the tuner as it finished.
    EXPECT_TRUE(eventually([] { return driver().count("Release") == 1; }));
    EXPECT_EQ(driver().calls().back().name, "Release");
    EXPECT_EQ(driver().count("IsLocked"), 1);
}

TEST_F(ScanControlTest, ScanFromInsideTheCallbackRunsAfterTheCurrentOne) {
    lockOnPolls({1, 2});
    std::atomic<bool> rescanned{false};
    mCallback->onMessage([&](const RecordingCallback::Message& m) {
        if (m.first == MT::FREQUENCY && !rescanned.exchange(true)) {
            EXPECT_EQ(frontend(kDvbt)->scan(dvbt(474000000), FrontendScanType::SCAN_AUTO),
                      Result::SUCCESS);
        }
    });
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    EXPECT_TRUE(eventually([this] { return mCallback->messages().size() == 6; }));
    waitForScanEnd(frontend(kDvbt));
    EXPECT_EQ(frequenciesOf(mCallback->messages()), (std::vector<uint32_t>{650000000, 474000000}));
    EXPECT_EQ(mCallback->messageTypes(), (std::vector<MT>{MT::FREQUENCY, MT::LOCKED, MT::END,
                                                          MT::FREQUENCY, MT::LOCKED, MT::END}));
    frontend(kDvbt)->stopScan();
}

TEST_F(ScanControlTest, CloseFromInsideTheCallbackSilencesTheScan) {
    lockOnPolls({1});
    mCallback->onMessage([this](const RecordingCallback::Message& m) {
        if (m.first == MT::FREQUENCY) frontend(kDvbs)->close();
    });
    frontend(kDvbs)->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbs));
    EXPECT_EQ(mCallback->messageTypes(), (std::vector<MT>{MT::FREQUENCY}));
    EXPECT_EQ(frontend(kDvbs)->scan(dvbs(1210000000, 1), FrontendScanType::SCAN_AUTO),
              Result::INVALID_STATE);
}

TEST_F(ScanControlTest, AFrontendOutlivesItsScanThread) {
    sp<Frontend> standalone = new Frontend(FrontendType::DVBS, 0, mTuner);
    standalone->setCallback(mCallback);
    ::android::wp<Frontend> weak = standalone;
    standalone->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO);
    standalone.clear();  // the client lets go while the thread still scans
    EXPECT_TRUE(eventually([&] { return weak.promote() == nullptr; }));
    EXPECT_EQ(driver().count("IsLocked"), 50) << "the scan ran to its end";
}

}  // namespace

namespace {

TEST_F(ScanControlTest, AFinishedThreadIsJoinedBeforeTheNextScan) {
    // Under ThreadSanitizer a thread that is never joined is reported at exit.
    for (uint32_t mhz : {650u, 474u, 482u}) {
        lockOnPolls({1});
        frontend(kDvbt)->scan(dvbt(mhz * 1000000), FrontendScanType::SCAN_AUTO);
        waitForScanEnd(frontend(kDvbt));
    }
    EXPECT_EQ(frequenciesOf(mCallback->messages()),
              (std::vector<uint32_t>{650000000, 474000000, 482000000}));
}

}  // namespace

namespace {

TEST_F(ScanControlTest, StopFromTheCallbackWhileAnotherThreadStartsAScan) {
    // Thread B's scan() takes the running thread's handle and waits for it; meanwhile that
    // thread's callback stops the scan, which finds B's new thread. Nobody may wait for a scan
    // thread while holding the scan lock that thread needs.
    lockOnPolls({1});
    std::atomic<bool> inCallback{false};
    std::atomic<bool> stopped{false};
    mCallback->onMessage([&](const RecordingCallback::Message& m) {
        if (m.first != MT::FREQUENCY || inCallback.exchange(true)) return;
        eventually([this] { return mLogs.messages("__threadLoopScan:\\d+\\]: Enter").size() >= 2; });
        frontend(kDvbt)->stopScan();
        stopped = true;
    });
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    ASSERT_TRUE(eventually([&] { return inCallback.load(); }));
    auto second = std::async(std::launch::async, [this] {
        return frontend(kDvbt)->scan(dvbt(474000000), FrontendScanType::SCAN_AUTO);
    });
    if (second.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        ADD_FAILURE() << "deadlock between scan() and stopScan() from the callback";
        std::abort();
    }
    EXPECT_EQ(second.get(), Result::SUCCESS);
    ASSERT_TRUE(eventually([&] { return stopped.load(); }));
    waitForScanEnd(frontend(kDvbt));
}

}  // namespace
