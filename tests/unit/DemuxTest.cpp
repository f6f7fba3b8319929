#include <thread>

#include "Demux.h"
#include "ServiceTest.h"
#include "tuner/DemuxIdPool.h"

using namespace ::android::hardware::tv::tuner::V1_0;

using ::android::hardware::tv::tuner::V1_0::implementation::Demux;
using ::android::hardware::tv::tuner::V1_0::implementation::DemuxIdPool;

namespace {

class DemuxTest : public ServiceTest {
  protected:
    struct Opened {
        Result result;
        uint32_t id;
        sp<Demux> demux;
    };

    static Opened openDemux(const sp<Tuner>& tuner) {
        Opened opened{Result::UNKNOWN_ERROR, 99, nullptr};
        tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
            opened = {r, id, static_cast<Demux*>(d.get())};
        });
        return opened;
    }

    // A tuner with one DVB-T frontend whose driver locks at once.
    sp<Tuner> lockingTuner() {
        sp<Tuner> tuner = discovered({fake::dvbtEntry(2)});
        driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
            info->lock = 1;
            return 0;
        });
        for (uint32_t id : {0u, 1u}) tuner->getFrontendById(id)->setCallback(mCallback);
        return tuner;
    }

    sp<RecordingCallback> mCallback = new RecordingCallback();
};

TEST_F(DemuxTest, PoolHandsOutTheLowestFreeIdFromOneToForty) {
    DemuxIdPool pool;
    for (int32_t expected = 1; expected <= 40; ++expected) EXPECT_EQ(pool.allocate(), expected);
    EXPECT_EQ(pool.allocate(), -1);
    pool.release(7);
    EXPECT_EQ(pool.allocate(), 7);
    for (int32_t outside : {0, 41, -3}) pool.release(outside);
    EXPECT_EQ(pool.allocate(), -1) << "out-of-range releases change nothing";
    pool.release(40);
    pool.release(40);
    EXPECT_EQ(pool.allocate(), 40);
}

TEST_F(DemuxTest, OpenDemuxTakesIdsAndClosingGivesThemBack) {
    sp<Tuner> tuner = new Tuner();
    std::vector<Opened> open;
    for (uint32_t expected = 1; expected <= 40; ++expected) {
        open.push_back(openDemux(tuner));
        EXPECT_EQ(open.back().result, Result::SUCCESS);
        EXPECT_EQ(open.back().id, expected);
        EXPECT_EQ(open.back().demux->getId(), expected);
    }
    const Opened refused = openDemux(tuner);
    EXPECT_EQ(refused.result, Result::INVALID_ARGUMENT);
    EXPECT_EQ(refused.id, 0u);
    ASSERT_NE(refused.demux, nullptr);
    EXPECT_EQ(refused.demux->getId(), 0u);
    EXPECT_EQ(refused.demux->close(), Result::SUCCESS);  // the placeholder closes nothing
    EXPECT_EQ(mLogs.matching("^openDemux:\\d+, No free id\n$").at(0).priority, ANDROID_LOG_ERROR);

    EXPECT_EQ(open[1].demux->close(), Result::SUCCESS);  // id 2
    const Opened reopened = openDemux(tuner);
    EXPECT_EQ(reopened.result, Result::SUCCESS);
    EXPECT_EQ(reopened.id, 2u);
    EXPECT_EQ(mox::host::passthroughCallbacks().size(), 42u);
    EXPECT_EQ(mox::host::passthroughCallbacks().front(), tuner.get());
}

TEST_F(DemuxTest, CloseDemuxOutsideTheRangeChangesNothing) {
    sp<Tuner> tuner = new Tuner();
    for (int i = 0; i < 3; ++i) openDemux(tuner);
    for (int32_t id : {0, -1, 41}) tuner->closeDemux(id);
    Tuner::close_demux(nullptr, 2);
    EXPECT_EQ(openDemux(tuner).id, 4u);
    Tuner::close_demux(tuner.get(), 2);
    EXPECT_EQ(openDemux(tuner).id, 2u);
}

TEST_F(DemuxTest, CapabilitiesAndDescramblers) {
    sp<Tuner> tuner = new Tuner();
    DemuxCapabilities expected{};
    expected.numBytesInSectionFilter = 16;
    expected.linkCaps = hidl_vec<uint32_t>{0, 0, 0, 0, 0};
    int answers = 0;
    tuner->getDemuxCaps([&](Result r, const DemuxCapabilities& caps) {
        EXPECT_EQ(r, Result::SUCCESS);
        EXPECT_EQ(caps, expected);
        ++answers;
    });
    std::vector<sp<IDescrambler>> descramblers;
    for (int i = 0; i < 2; ++i) {
        tuner->openDescrambler([&](Result r, const sp<IDescrambler>& d) {
            EXPECT_EQ(r, Result::SUCCESS);
            descramblers.push_back(d);
        });
    }
    EXPECT_EQ(answers, 1);
    ASSERT_EQ(descramblers.size(), 2u);
    EXPECT_NE(descramblers[0], descramblers[1]);
    EXPECT_TRUE(driver().calls().empty());
}

TEST_F(DemuxTest, InputStartsOnLockAndStopsOnStopTune) {
    sp<Tuner> tuner = lockingTuner();
    const Opened opened = openDemux(tuner);
    opened.demux->setFrontendDataSource(0);
    EXPECT_EQ(opened.demux->frontendInputStartCount(), 0) << "binding an unlocked frontend";

    sp<Frontend> frontend = tuner->getFrontendById(0);
    frontend->tune(dvbt(474000000));
    EXPECT_TRUE(opened.demux->isFrontendInputRunning());
    frontend->tune(dvbt(474000000));
    EXPECT_EQ(opened.demux->frontendInputStartCount(), 2) << "two locks start the input twice";
    frontend->stopTune();
    EXPECT_FALSE(opened.demux->isFrontendInputRunning());
}

TEST_F(DemuxTest, BindingALockedFrontendStartsAtOnce) {
    sp<Tuner> tuner = lockingTuner();
    tuner->getFrontendById(1)->tune(dvbt(474000000));
    const Opened opened = openDemux(tuner);
    opened.demux->setFrontendDataSource(1);
    EXPECT_EQ(opened.demux->frontendInputStartCount(), 1);
    // A binding to a frontend that does not exist is recorded and starts nothing.
    const Opened other = openDemux(tuner);
    tuner->setFrontendAsDemuxSource(7, other.id);
    EXPECT_EQ(other.demux->frontendInputStartCount(), 0);
}

TEST_F(DemuxTest, RebindingMovesLockAndStopToTheNewDemux) {
    sp<Tuner> tuner = lockingTuner();
    const Opened first = openDemux(tuner);
    const Opened second = openDemux(tuner);
    first.demux->setFrontendDataSource(0);
    second.demux->setFrontendDataSource(0);
    sp<Frontend> frontend = tuner->getFrontendById(0);
    frontend->tune(dvbt(474000000));
    EXPECT_EQ(first.demux->frontendInputStartCount(), 0);
    EXPECT_EQ(second.demux->frontendInputStartCount(), 1);
    second.demux->close();
    frontend->tune(dvbt(474000000));  // the bound demux is gone: nothing to start
    EXPECT_EQ(second.demux->frontendInputStartCount(), 1);
    tuner->frontendStopTune(1);  // never bound
    tuner->frontendStartTune(1);
    EXPECT_EQ(first.demux->frontendInputStartCount(), 0);
}

TEST_F(DemuxTest, ConcurrentOpenCloseAndBindingDoNotDeadlock) {
    sp<Tuner> tuner = lockingTuner();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const Opened opened = openDemux(tuner);
                if (opened.result != Result::SUCCESS) continue;
                opened.demux->setFrontendDataSource(t % 2);
                tuner->frontendStartTune(t % 2);
                tuner->frontendStopTune(t % 2);
                opened.demux->close();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    // Every id came back: forty opens succeed again.
    for (int i = 0; i < 40; ++i) EXPECT_EQ(openDemux(tuner).result, Result::SUCCESS);
}

}  // namespace
