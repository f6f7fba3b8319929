// Clients whose callbacks reach into other frontends: scan threads that stop or restart each
// other's scans, a tune's event that stops a scan, callbacks replaced or cleared mid-scan.
#include <atomic>
#include <cstdlib>
#include <future>
#include <mutex>

#include "ScanTestSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// Runs body on a thread of its own; a body that does not finish within the bound is a deadlock,
// which aborts the test binary rather than hanging it.
void withinBound(const std::function<void()>& body) {
    auto done = std::async(std::launch::async, body);
    if (done.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        ADD_FAILURE() << "deadlock";
        std::abort();
    }
    done.get();
}

class CrossFrontendScanTest : public ScanTestBase {
  protected:
    // Each frontend reports to a callback of its own.
    void SetUp() override {
        ScanTestBase::SetUp();
        for (uint32_t id : {kDvbt, kDvbc, kDvbs}) {
            mCallbacks[id] = new RecordingCallback();
            frontend(id)->setCallback(mCallbacks[id]);
        }
    }

    FrontendSettings settingsOf(uint32_t id) {
        switch (id) {
            case kDvbt:
                return dvbt(650000000);
            case kDvbc:
                return dvbc(474000000, 6900000);
            default:
                return dvbs(1210000000, 27500000);
        }
    }

    // On its first FREQUENCY message each frontend's callback waits until every frontend of the
    // ring is inside its own callback, then calls action(next frontend of the ring), and returns
    // once all of them have.
    void ringOfCallbacks(const std::vector<uint32_t>& ring,
                         const std::function<void(uint32_t next)>& action) {
        auto inside = std::make_shared<std::atomic<size_t>>(0);
        auto acted = std::make_shared<std::atomic<size_t>>(0);
        for (size_t i = 0; i < ring.size(); ++i) {
            const uint32_t next = ring[(i + 1) % ring.size()];
            auto first = std::make_shared<std::atomic<bool>>(true);
            mCallbacks[ring[i]]->onMessage([=](const RecordingCallback::Message& m) {
                if (m.first != MT::FREQUENCY || !first->exchange(false)) return;
                ++*inside;
                EXPECT_TRUE(eventually([&] { return inside->load() == ring.size(); }));
                action(next);
                // Leave only once every callback of the ring has acted.
                ++*acted;
                EXPECT_TRUE(eventually([&] { return acted->load() == ring.size(); }));
            });
        }
    }

    // The driver's last call for a tuner, and how often it was released.
    std::string lastCallOf(uint32_t tuner) {
        std::string last;
        for (const fake::DriverCall& call : driver().calls()) {
            if (call.target == static_cast<int32_t>(tuner)) last = call.name;
        }
        return last;
    }

    sp<RecordingCallback> mCallbacks[3];
};

TEST_F(CrossFrontendScanTest, ScanThreadsThatStopEachOtherAllReturn) {
    const std::vector<std::vector<uint32_t>> rings = {{kDvbt, kDvbs}, {kDvbt, kDvbc, kDvbs}};
    for (const auto& ring : rings) {
        SCOPED_TRACE(ring.size());
        SetUp();
        lockOnPolls({1, 2, 3});
        auto stops = std::make_shared<std::atomic<int>>(0);
        ringOfCallbacks(ring, [this, stops](uint32_t next) {
            EXPECT_EQ(frontend(next)->stopScan(), Result::SUCCESS);
            ++*stops;
        });
        withinBound([&] {
            for (uint32_t id : ring)
                frontend(id)->scan(settingsOf(id), FrontendScanType::SCAN_AUTO);
            for (uint32_t id : ring) waitForScanEnd(frontend(id));
            ASSERT_TRUE(eventually([&] { return stops->load() == static_cast<int>(ring.size()); }));
        });
        for (uint32_t id : ring) {
            SCOPED_TRACE(id);
            // The stop reached the scan inside its FREQUENCY callback: the tuner was released
            // after the scan's last driver call, as its thread finished, and it went on to END.
            EXPECT_TRUE(eventually([&] { return lastCallOf(id) == "Release"; }));
            EXPECT_EQ(mCallbacks[id]->messageTypes().back(), MT::END);
            EXPECT_FALSE(frontend(id)->isLocked());
        }
        EXPECT_TRUE(eventually(
                [&] { return driver().count("Release") == static_cast<int>(ring.size()); }));
    }
}

TEST_F(CrossFrontendScanTest, ScanThreadsThatRestartEachOthersScans) {
    lockOnPolls({1, 2, 3, 4});
    ringOfCallbacks({kDvbt, kDvbs}, [this](uint32_t next) {
        EXPECT_EQ(frontend(next)->scan(settingsOf(next), FrontendScanType::SCAN_BLIND),
                  Result::SUCCESS);
    });
    withinBound([&] {
        frontend(kDvbt)->scan(settingsOf(kDvbt), FrontendScanType::SCAN_AUTO);
        frontend(kDvbs)->scan(settingsOf(kDvbs), FrontendScanType::SCAN_AUTO);
        for (uint32_t id : {kDvbt, kDvbs}) {
            ASSERT_TRUE(eventually(
                    [&] { return frequenciesOf(mCallbacks[id]->messages()).size() == 2; }));
            waitForScanEnd(frontend(id));
        }
    });
    // Each frontend's first scan was replaced from the other's callback; the blind rescan ran
    // after it, on its own settings.
    EXPECT_EQ(frequenciesOf(mCallbacks[kDvbt]->messages()),
              (std::vector<uint32_t>{650000000, 650000100}));
    EXPECT_EQ(frequenciesOf(mCallbacks[kDvbs]->messages()),
              (std::vector<uint32_t>{1210000000, 1210000100}));
}

TEST_F(CrossFrontendScanTest, ATunesEventThatStopsAScanNeverWaitsForIt) {
    // A client whose callbacks share one lock, as most clients' do: the scan's callback needs the
    // lock that the tune's event holds while it stops that scan.
    std::mutex clientLock;
    auto scanInCallback = std::make_shared<std::atomic<bool>>(false);
    std::atomic<bool> tuneHoldsTheLock{false};
    lockOnPolls({1});
    mCallbacks[kDvbs]->onMessage([&, scanInCallback](const RecordingCallback::Message& m) {
        if (m.first != MT::FREQUENCY) return;
        *scanInCallback = true;
        EXPECT_TRUE(eventually([&] { return tuneHoldsTheLock.load(); }));
        std::lock_guard<std::mutex> guard(clientLock);
    });
    struct StoppingCallback : RecordingCallback {
        std::function<void()> onLocked;
        ::android::hardware::Return<void> onEvent(FrontendEventType event) override {
            RecordingCallback::onEvent(event);
            if (event == FrontendEventType::LOCKED) onLocked();
            return ::android::hardware::Void();
        }
    };
    sp<StoppingCallback> tuneCallback = new StoppingCallback();
    tuneCallback->onLocked = [&] {
        std::lock_guard<std::mutex> guard(clientLock);
        tuneHoldsTheLock = true;
        EXPECT_TRUE(eventually([&] { return scanInCallback->load(); }));
        EXPECT_EQ(frontend(kDvbs)->stopScan(), Result::SUCCESS);
    };
    frontend(kDvbt)->setCallback(tuneCallback);
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 1;
        return 0;
    });
    withinBound([&] {
        frontend(kDvbs)->scan(settingsOf(kDvbs), FrontendScanType::SCAN_AUTO);
        EXPECT_EQ(frontend(kDvbt)->tune(dvbt(482000000)), Result::SUCCESS);
        waitForScanEnd(frontend(kDvbs));
    });
    EXPECT_EQ(tuneCallback->events(), std::vector<FrontendEventType>{FrontendEventType::LOCKED});
    EXPECT_TRUE(eventually([&] { return lastCallOf(kDvbs) == "Release"; }));
}

TEST_F(CrossFrontendScanTest, EachMessageGoesToTheCallbackOfThatMoment) {
    lockOnPolls({1});
    sp<RecordingCallback> replacement = new RecordingCallback();
    mCallbacks[kDvbt]->onMessage([&](const RecordingCallback::Message& m) {
        if (m.first == MT::FREQUENCY) frontend(kDvbt)->setCallback(replacement);
    });
    frontend(kDvbt)->scan(settingsOf(kDvbt), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbt));
    EXPECT_EQ(mCallbacks[kDvbt]->messageTypes(), std::vector<MT>{MT::FREQUENCY});
    EXPECT_EQ(replacement->messageTypes(), (std::vector<MT>{MT::LOCKED, MT::END}));
}

TEST_F(CrossFrontendScanTest, BlindScanAtTheTopOfTheBand) {
    struct Case {
        uint32_t id;
        uint32_t hz;
        Result result;
    } const cases[] = {{kDvbt, 4294967295u, Result::INVALID_ARGUMENT},
                       {kDvbs, 4294967196u, Result::INVALID_ARGUMENT},
                       {kDvbt, 4294967195u, Result::SUCCESS}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hz);
        driver().reset();
        lockOnPolls({1});
        const FrontendSettings settings = c.id == kDvbt ? dvbt(c.hz) : dvbs(c.hz, 27500000);
        EXPECT_EQ(frontend(c.id)->scan(settings, FrontendScanType::SCAN_BLIND), c.result);
        waitForScanEnd(frontend(c.id));
        if (c.result == Result::SUCCESS) {
            EXPECT_EQ(frequenciesOf(mCallbacks[c.id]->messages()),
                      std::vector<uint32_t>{4294967295u});
        } else {
            EXPECT_TRUE(driver().calls().empty());
            EXPECT_FALSE(mLogs.matching("does not fit in 32 bits").empty());
        }
    }
}

}  // namespace
