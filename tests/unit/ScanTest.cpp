#include <algorithm>
#include <atomic>

#include "ScanTestSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using ScanTest = ScanTestBase;

TEST_F(ScanTest, TerrestrialAutoAndBlindAt650MHz) {
    struct Case {
        FrontendScanType type;
        uint32_t reported;
    } const cases[] = {{FrontendScanType::SCAN_AUTO, 650000000},
                       {FrontendScanType::SCAN_BLIND, 650000100},
                       {FrontendScanType::SCAN_UNDEFINED, 650000000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(toString(c.type));
        driver().reset();
        lockOnPolls({1});
        sp<RecordingCallback> callback = new RecordingCallback();
        frontend(kDvbt)->setCallback(callback);
        EXPECT_EQ(frontend(kDvbt)->scan(dvbt(650000000), c.type), Result::SUCCESS);
        waitForScanEnd(frontend(kDvbt));
        EXPECT_EQ(driver().scans().at(0).uiFreqMHz, 650u);
        EXPECT_EQ(callback->messageTypes(), (std::vector<MT>{MT::FREQUENCY, MT::LOCKED, MT::END}));
        EXPECT_EQ(frequenciesOf(callback->messages()), std::vector<uint32_t>{c.reported});
        EXPECT_TRUE(callback->messages()[1].second.isLocked());
        EXPECT_TRUE(callback->messages()[2].second.isEnd());
        EXPECT_TRUE(frontend(kDvbt)->isLocked());
        frontend(kDvbt)->stopScan();
    }
    EXPECT_EQ(mLogs.messages("^\\[Frontend::frontendScanThreadLoop:\\d+\\]: "
                             "FrontendScanMessageType::END!!$")
                      .size(),
              3u);
}

TEST_F(ScanTest, SatelliteWithoutLockSendsNothingAfterFiftyPolls) {
    EXPECT_EQ(frontend(kDvbs)->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO),
              Result::SUCCESS);
    waitForScanEnd(frontend(kDvbs));
    EXPECT_TRUE(mCallback->messages().empty());
    EXPECT_EQ(driver().count("IsLocked"), 50);
    EXPECT_EQ(vt::waitedUs(), 50u * 200000u);
    EXPECT_FALSE(frontend(kDvbs)->isLocked());
}

TEST_F(ScanTest, LockInTheFifthPassSendsNoEnd) {
    lockOnPolls({45});
    frontend(kDvbs)->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbs));
    EXPECT_EQ(mCallback->messageTypes(), (std::vector<MT>{MT::FREQUENCY, MT::LOCKED}));
    EXPECT_TRUE(mLogs.matching("FrontendScanMessageType::END!!").empty());
}

TEST_F(ScanTest, ScanFailureStillPolls) {
    driver().onScan([](uint8_t, const MOX_TunerParam_t&) { return 1; });
    lockOnPolls({3});
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbt));
    EXPECT_EQ(mCallback->messageTypes(), (std::vector<MT>{MT::FREQUENCY, MT::LOCKED, MT::END}));
    EXPECT_EQ(mLogs.matching("MOX_Tuner_Scan failed!!$").size(), 1u);
}

TEST_F(ScanTest, CableAutoTriesTwoBandwidthsAtOneStep) {
    frontend(kDvbc)->scan(dvbc(474000000, 0), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbc));
    const auto messages = mCallback->messages();
    ASSERT_EQ(mCallback->messageTypes(),
              (std::vector<MT>{MT::PROGRESS_PERCENT, MT::PROGRESS_PERCENT, MT::PROGRESS_PERCENT}));
    EXPECT_EQ(messages[0].second.progressPercent(), 0);
    EXPECT_EQ(messages[1].second.progressPercent(), 1);
    EXPECT_EQ(messages[2].second.progressPercent(), 1);
    const auto scans = driver().scans();
    ASSERT_EQ(scans.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(scans[i].eTunerType, 1u);
        EXPECT_EQ(scans[i].eBandwidth, i == 0 ? 3u : 1u);
        EXPECT_EQ(scans[i].uiFreqMHz, 474u);
        EXPECT_EQ(scans[i].uiSymbolRate, 6875000u);
        EXPECT_EQ(scans[i].eModulation, 5u);
        EXPECT_EQ(scans[i].eAnnex, 2u);
    }
}

TEST_F(ScanTest, CableBlindSweepsOneHundredStepsWithProgress) {
    frontend(kDvbc)->scan(dvbc(474000000, 6900000), FrontendScanType::SCAN_BLIND);
    waitForScanEnd(frontend(kDvbc));
    std::vector<int> progress;
    for (const auto& [type, message] : mCallback->messages()) {
        ASSERT_EQ(type, MT::PROGRESS_PERCENT);
        progress.push_back(message.progressPercent());
    }
    ASSERT_EQ(progress.size(), 201u);
    for (int step = 1; step <= 100; ++step) {
        EXPECT_EQ(progress[2 * step - 1], step);
        EXPECT_EQ(progress[2 * step], step);
    }
    const auto steps = mLogs.messages("scan freq:");
    ASSERT_EQ(steps.size(), 100u);
    EXPECT_NE(steps.front().find("scan freq:474000000Hz"), std::string::npos);
    EXPECT_NE(steps.back().find("scan freq:478950000Hz"), std::string::npos);
    const auto scans = driver().scans();
    ASSERT_EQ(scans.size(), 200u);
    EXPECT_EQ(scans[39].uiFreqMHz, 474u);  // 20 steps share one MHz
    EXPECT_EQ(scans[40].uiFreqMHz, 475u);
    EXPECT_EQ(scans.back().uiFreqMHz, 478u);
    EXPECT_EQ(scans[7].uiSymbolRate, 6900000u);
    EXPECT_FALSE(frontend(kDvbc)->isLocked());
}

TEST_F(ScanTest, CableSweepRetunesToTheLastLock) {
    // Lock on the 11th driver scan (step 6, 8 MHz) and the 152nd (step 76, 6 MHz).
    auto scans = std::make_shared<int>(0);
    driver().onScan([scans](uint8_t, const MOX_TunerParam_t&) {
        ++*scans;
        return 0;
    });
    driver().onIsLocked([scans](uint8_t) { return *scans == 11 || *scans == 152 ? 0 : 1; });
    frontend(kDvbc)->scan(dvbc(474000000, 0), FrontendScanType::SCAN_BLIND);
    waitForScanEnd(frontend(kDvbc));
    EXPECT_EQ(frequenciesOf(mCallback->messages()), (std::vector<uint32_t>{474250000, 477750000}));
    const auto records = driver().scans();
    ASSERT_EQ(records.size(), 201u);
    const MOX_TunerParam_t& retune = records.back();
    EXPECT_EQ(retune.eTunerType, 1u);
    EXPECT_EQ(retune.eBandwidth, 1u);
    EXPECT_EQ(retune.uiFreqMHz, 477u);
    EXPECT_EQ(retune.uiSymbolRate, 6875000u);
    EXPECT_EQ(retune.eModulation, 5u);
    EXPECT_EQ(retune.eAnnex, 2u);
    EXPECT_TRUE(frontend(kDvbc)->isLocked());
}

TEST_F(ScanTest, CableStartFrequencyWhoseEndDoesNotFit) {
    frontend(kDvbc)->scan(dvbc(4289967296u, 0), FrontendScanType::SCAN_BLIND);
    waitForScanEnd(frontend(kDvbc));
    ASSERT_EQ(mCallback->messageTypes(), std::vector<MT>{MT::PROGRESS_PERCENT});
    EXPECT_EQ(driver().count("Scan"), 0);

    frontend(kDvbc)->scan(dvbc(4289967295u, 0), FrontendScanType::SCAN_BLIND);
    waitForScanEnd(frontend(kDvbc));
    EXPECT_EQ(driver().count("Scan"), 200) << "the last start that fits sweeps all its steps";
}

TEST_F(ScanTest, OnlyCableTerrestrialAndSatelliteScan) {
    EXPECT_EQ(frontend(kIsdbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO),
              Result::UNAVAILABLE);
    EXPECT_FALSE(frontend(kIsdbt)->isScanRunning());
    EXPECT_TRUE(driver().calls().empty());
    EXPECT_TRUE(mCallback->messages().empty());
}

// Stops the scan from another binder thread when the virtual clock reaches the given time.
class StopAtTime {
  public:
    StopAtTime(sp<Frontend> frontend, uint64_t atUs) : mFrontend(frontend) {
        vt::setWaitHook([this, atUs](uint64_t now) {
            if (now != atUs) return;
            mStopper = std::thread([this] { mResult = mFrontend->stopScan(); });
            mStarted = true;
            // Go on only once the stop is requested, as a real 200 ms sleep would allow.
            eventually([this] { return !mFrontend->isScanRunning(); });
        });
    }
    ~StopAtTime() { vt::setWaitHook(nullptr); }
    Result join() {
        if (eventually([this] { return mStarted.load(); })) mStopper.join();
        return mResult;
    }

  private:
    sp<Frontend> mFrontend;
    std::thread mStopper;
    std::atomic<bool> mStarted{false};
    Result mResult = Result::UNKNOWN_ERROR;
};

TEST_F(ScanTest, StopTwoSecondsInSendsEnd) {
    StopAtTime stop(frontend(kDvbt), 2000000);
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    EXPECT_EQ(stop.join(), Result::SUCCESS);
    EXPECT_EQ(mCallback->messageTypes(), std::vector<MT>{MT::END});
    EXPECT_FALSE(frontend(kDvbt)->isLocked());
    EXPECT_EQ(driver().count("IsLocked"), 10);
    EXPECT_EQ(driver().calls().back().name, "Release");
}

TEST_F(ScanTest, StopInTheFifthPassSendsNoEnd) {
    StopAtTime stop(frontend(kDvbt), 9000000);
    frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
    EXPECT_EQ(stop.join(), Result::SUCCESS);
    EXPECT_TRUE(mCallback->messages().empty());
    EXPECT_EQ(driver().count("IsLocked"), 45);
    EXPECT_EQ(driver().count("Release"), 1);
}

TEST_F(ScanTest, StoppedSweepSendsEndAtTheNextBandwidthTry) {
    StopAtTime stop(frontend(kDvbc), 2000000);
    frontend(kDvbc)->scan(dvbc(474000000, 0), FrontendScanType::SCAN_BLIND);
    EXPECT_EQ(stop.join(), Result::SUCCESS);
    EXPECT_EQ(mCallback->messageTypes(), (std::vector<MT>{MT::PROGRESS_PERCENT, MT::PROGRESS_PERCENT,
                                                          MT::PROGRESS_PERCENT, MT::END}));
    EXPECT_EQ(driver().count("Scan"), 1);
}

}  // namespace
