// Helpers of the scan tests: a tuner with one frontend of each scanning type, and waiting (in
// real time, bounded) for a scan thread to finish its virtual-time run.
#pragma once

#include <chrono>
#include <thread>

#include "ServiceTest.h"

// True once cond holds; false after a generous real-time bound (a hung scan fails the test
// instead of hanging it).
inline bool eventually(const std::function<bool()>& cond) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

class ScanTestBase : public ServiceTest {
  protected:
    enum : uint32_t { kDvbt = 0, kDvbc = 1, kDvbs = 2, kIsdbt = 3 };

    void SetUp() override {
        ServiceTest::SetUp();
        mTuner = discovered({fake::dvbtEntry(1), fake::dvbcEntry(1), fake::dvbsEntry(1, 1)});
        for (uint32_t id = 0; id < 3; ++id) mTuner->getFrontendById(id)->setCallback(mCallback);
        // Discovery turns every other delivery system into cable; an ISDB-T frontend is made
        // directly.
        mIsdbt = new Frontend(FrontendType::ISDBT, kIsdbt, mTuner);
        mIsdbt->setCallback(mCallback);
        driver().reset();
        vt::reset();
    }

    // The service's objects are never destroyed, so their finished scan threads are joined here.
    void TearDown() override {
        for (uint32_t id : {kDvbt, kDvbc, kDvbs, kIsdbt}) frontend(id)->stopScan();
    }

    sp<Frontend> frontend(uint32_t id) {
        return id == kIsdbt ? mIsdbt : mTuner->getFrontendById(id);
    }

    static void waitForScanEnd(const sp<Frontend>& f) {
        ASSERT_TRUE(eventually([&] { return !f->isScanRunning(); })) << "scan never ended";
    }

    // The driver reports lock on the given IsLocked calls (1-based), no lock otherwise.
    static void lockOnPolls(std::vector<int> polls) {
        auto count = std::make_shared<int>(0);
        driver().onIsLocked([count, polls](uint8_t) {
            ++*count;
            return std::find(polls.begin(), polls.end(), *count) != polls.end() ? 0 : 1;
        });
    }

    static std::vector<uint32_t> frequenciesOf(const std::vector<RecordingCallback::Message>& m) {
        std::vector<uint32_t> out;
        for (const auto& [type, message] : m) {
            if (type == FrontendScanMessageType::FREQUENCY) out.push_back(message.frequencies()[0]);
        }
        return out;
    }

    sp<Tuner> mTuner;
    sp<Frontend> mIsdbt;
    sp<RecordingCallback> mCallback = new RecordingCallback();
};

using MT = FrontendScanMessageType;
