// The example installations: what a user of each would see from the service.
#include <chrono>
#include <thread>

#include "SimulatedBox.h"
#include "simulator/Environment.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::tv::tuner::V1_0::ILnb;

namespace {

using MT = FrontendScanMessageType;

class ExampleInstallationTest : public ::testing::Test {
  protected:
    void load(const std::string& example) {
        vt::reset();
        const mox::sim::Environment env =
                mox::sim::loadEnvironmentFile(std::string(EXAMPLES_DIR) + "/" + example);
        mox::sim::simulator().setEnvironment(env.capability, env.air, env.misbehaviour);
        mox::sim::simulator().setClock(vt::nowUs);
        mTuner = new Tuner();
        mTuner->getFrontendIds([&](Result, const hidl_vec<uint32_t>& ids) { mIds = ids; });
        for (uint32_t id : mIds) mTuner->getFrontendById(id)->setCallback(mCallback);
    }

    // Scans one frequency and gives the frequencies that locked.
    std::vector<uint32_t> scanLocks(uint32_t id, const FrontendSettings& settings) {
        mCallback = new RecordingCallback();
        mTuner->getFrontendById(id)->setCallback(mCallback);
        mTuner->getFrontendById(id)->scan(settings, FrontendScanType::SCAN_AUTO);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (mTuner->getFrontendById(id)->isScanRunning() &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        mTuner->getFrontendById(id)->stopScan();
        std::vector<uint32_t> locked;
        uint32_t last = 0;
        for (const auto& [type, message] : mCallback->messages()) {
            if (type == MT::FREQUENCY) last = message.frequencies()[0];
            if (type == MT::LOCKED) locked.push_back(last);
        }
        return locked;
    }

    // Tunes and gives the event and the requested status.
    std::pair<FrontendEventType, std::vector<FrontendStatus>> tune(
            uint32_t id, const FrontendSettings& settings, std::vector<FrontendStatusType> types) {
        mCallback = new RecordingCallback();
        mTuner->getFrontendById(id)->setCallback(mCallback);
        EXPECT_EQ(mTuner->getFrontendById(id)->tune(settings), Result::SUCCESS);
        std::vector<FrontendStatus> status;
        mTuner->getFrontendById(id)->getStatus(
                types, [&](Result, const hidl_vec<FrontendStatus>& s) { status = s; });
        mTuner->getFrontendById(id)->stopTune();
        return {mCallback->events().at(0), status};
    }

    LogCapture mLogs;
    sp<Tuner> mTuner;
    std::vector<uint32_t> mIds;
    sp<RecordingCallback> mCallback = new RecordingCallback();
};

TEST_F(ExampleInstallationTest, CableNetwork) {
    load("cable-network.json");
    EXPECT_EQ(mIds, (std::vector<uint32_t>{0, 1}));
    // A scan tries 256-QAM at each raster frequency: it finds every multiplex but the 64-QAM one.
    std::vector<uint32_t> found;
    for (uint32_t mhz = 298; mhz <= 346; mhz += 8) {
        for (uint32_t hz : scanLocks(0, dvbc(mhz * 1000000, 0))) found.push_back(hz / 1000000);
    }
    EXPECT_EQ(found, (std::vector<uint32_t>{306, 314, 330, 338}));
    // Tuned with its own constellation, the 64-QAM multiplex locks.
    EXPECT_EQ(tune(1, dvbc(322000000, 6900000, FrontendDvbcModulation::MOD_64QAM), {}).first,
              FrontendEventType::LOCKED);
    EXPECT_EQ(tune(1, dvbc(322000000, 6900000, FrontendDvbcModulation::MOD_256QAM), {}).first,
              FrontendEventType::NO_SIGNAL);
    // The weak multiplex locks with a poorer signal than a strong one.
    const auto weak = tune(0, dvbc(330000000, 6875000, FrontendDvbcModulation::MOD_256QAM),
                           {FrontendStatusType::SIGNAL_QUALITY, FrontendStatusType::SNR});
    const auto strong = tune(0, dvbc(306000000, 6900000, FrontendDvbcModulation::MOD_256QAM),
                             {FrontendStatusType::SIGNAL_QUALITY, FrontendStatusType::SNR});
    ASSERT_EQ(weak.first, FrontendEventType::LOCKED);
    ASSERT_EQ(strong.first, FrontendEventType::LOCKED);
    EXPECT_LT(weak.second[0].signalQuality(), strong.second[0].signalQuality());
    EXPECT_LT(weak.second[1].snr(), 20000);
    EXPECT_GT(strong.second[1].snr(), 30000);
}

TEST_F(ExampleInstallationTest, TerrestrialRegion) {
    load("terrestrial-region.json");
    EXPECT_EQ(mIds, (std::vector<uint32_t>{0, 1}));
    FrontendInfo info{};
    mTuner->getFrontendInfo(0, [&](Result, const FrontendInfo& i) { info = i; });
    EXPECT_TRUE(info.frontendCaps.dvbtCaps().isT2Supported);
    EXPECT_EQ(info.minFrequency, 174000000u);
    // The VHF channel is 7 MHz wide: an 8 MHz tune misses it.
    using BW = FrontendDvbtBandwidth;
    EXPECT_EQ(tune(0, dvbt(177000000, FrontendDvbtStandard::T, BW::BANDWIDTH_7MHZ), {}).first,
              FrontendEventType::LOCKED);
    EXPECT_EQ(tune(0, dvbt(177000000, FrontendDvbtStandard::T, BW::BANDWIDTH_8MHZ), {}).first,
              FrontendEventType::NO_SIGNAL);
    // A DVB-T2 multiplex reports its first PLP.
    const auto t2 = tune(1, dvbt(490000000, FrontendDvbtStandard::T2), {FrontendStatusType::PLP_ID});
    ASSERT_EQ(t2.first, FrontendEventType::LOCKED);
    EXPECT_EQ(t2.second.at(0).plpId(), 1);
    // Every multiplex of the region is found by a scan of its frequency.
    std::vector<uint32_t> found;
    for (uint32_t mhz : {490u, 514u, 538u, 626u, 650u}) {
        const auto standard =
                mhz == 490 || mhz == 514 ? FrontendDvbtStandard::T2 : FrontendDvbtStandard::T;
        for (uint32_t hz : scanLocks(0, dvbt(mhz * 1000000, standard)))
            found.push_back(hz / 1000000);
    }
    EXPECT_EQ(found, (std::vector<uint32_t>{490, 514, 538, 626}));
}

}  // namespace

namespace {

class DishTest : public ExampleInstallationTest {
  protected:
    void SetUp() override {
        load("dish-two-satellites.json");
        for (uint32_t id : {0u, 1u}) {
            mTuner->openLnbById(id, [&](Result, const sp<ILnb>& l) { mLnbs.push_back(l); });
        }
    }
    // Tunes a satellite frontend to an intermediate frequency.
    FrontendEventType tuneIf(uint32_t frontend, uint32_t ifMHz, FrontendDvbsStandard standard,
                             uint32_t symbolRate) {
        return tune(frontend, dvbs(ifMHz * 1000000, symbolRate, standard), {}).first;
    }
    static hidl_vec<uint8_t> committed(uint8_t data) { return {0xE0, 0x10, 0x38, data}; }

    std::vector<sp<ILnb>> mLnbs;
};

constexpr auto S = FrontendDvbsStandard::S;
constexpr auto S2 = FrontendDvbsStandard::S2;
constexpr auto LOCKED = FrontendEventType::LOCKED;
constexpr auto NO_SIGNAL = FrontendEventType::NO_SIGNAL;

TEST_F(DishTest, NothingLocksWithoutLnbVoltage) {
    EXPECT_EQ(tuneIf(0, 1612, S, 22000000), NO_SIGNAL);  // east 11362 V, low band
    mLnbs[0]->setVoltage(LnbVoltage::VOLTAGE_13V);
    EXPECT_EQ(tuneIf(0, 1612, S, 22000000), LOCKED);
    mLnbs[0]->setVoltage(LnbVoltage::NONE);
    EXPECT_EQ(tuneIf(0, 1612, S, 22000000), NO_SIGNAL);
}

TEST_F(DishTest, VoltageToneAndSwitchSelectWhatReachesTheTuner) {
    struct Case {
        const char* what;
        std::function<void(ILnb&)> set;
        uint32_t ifMHz;
        FrontendDvbsStandard standard;
        uint32_t symbolRate;
        FrontendEventType event;
    } const cases[] = {
            {"13 V, low band, input A: east 11362 V",
             [](ILnb& l) {
                 l.setVoltage(LnbVoltage::VOLTAGE_13V);
                 l.sendDiseqcMessage(committed(0xF0));
             },
             1612, S, 22000000, LOCKED},
            {"18 V: the horizontal transponder at 10744",
             [](ILnb& l) { l.setVoltage(LnbVoltage::VOLTAGE_18V); }, 994, S2, 22000000, LOCKED},
            {"18 V, tone on: east 12188 H in the high band",
             [](ILnb& l) { l.setTone(LnbTone::CONTINUOUS); }, 1588, S2, 27500000, LOCKED},
            {"input B by DiSEqC, 13 V low: west 11362 V is DVB-S2",
             [](ILnb& l) { l.sendDiseqcMessage(committed(0xF4)); }, 1612, S2, 27500000, LOCKED},
            {"the same IF as DVB-S finds nothing on west", [](ILnb&) {}, 1612, S, 22000000,
             NO_SIGNAL},
            {"tone burst A goes back to east",
             [](ILnb& l) { l.setSatellitePosition(LnbPosition::POSITION_A); }, 1612, S, 22000000,
             LOCKED},
            {"tone on again, still vertical: east 11778 V",
             [](ILnb& l) { l.setTone(LnbTone::CONTINUOUS); }, 1178, S2, 27500000, LOCKED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        c.set(*mLnbs[0]);
        EXPECT_EQ(tuneIf(0, c.ifMHz, c.standard, c.symbolRate), c.event);
    }
}

TEST_F(DishTest, TheLatestOfVoltageToneAndSwitchCommandWinsAndTheDriverSaysWhich) {
    mLnbs[0]->setVoltage(LnbVoltage::VOLTAGE_18V);
    mLnbs[0]->setTone(LnbTone::CONTINUOUS);
    EXPECT_EQ(mox::sim::simulator().lnb(0).selection(),
              "horizontal (voltage), high band (tone), input A (none)");
    // A committed command for vertical, low band, input B overrides what came before it.
    mLnbs[0]->sendDiseqcMessage(committed(0xF4));
    EXPECT_EQ(mox::sim::simulator().lnb(0).selection(),
              "vertical (DiSEqC), low band (DiSEqC), input B (DiSEqC)");
    EXPECT_EQ(tuneIf(0, 1612, S2, 27500000), LOCKED);  // west 11362 V
    mLnbs[0]->setVoltage(LnbVoltage::VOLTAGE_18V);
    EXPECT_EQ(mox::sim::simulator().lnb(0).selection(),
              "horizontal (voltage), low band (DiSEqC), input B (DiSEqC)");
    EXPECT_EQ(tuneIf(0, 1612, S2, 27500000), NO_SIGNAL);
}

TEST_F(DishTest, EachSatelliteFrontendSitsBehindItsOwnLnb) {
    mLnbs[0]->setVoltage(LnbVoltage::VOLTAGE_13V);
    EXPECT_EQ(tuneIf(0, 1612, S, 22000000), LOCKED);
    EXPECT_EQ(tuneIf(1, 1612, S, 22000000), NO_SIGNAL) << "LNB 1 has no voltage yet";
    mLnbs[1]->setVoltage(LnbVoltage::VOLTAGE_13V);
    EXPECT_EQ(tuneIf(1, 1612, S, 22000000), LOCKED);
}

}  // namespace

namespace {

TEST_F(ExampleInstallationTest, MisbehavingBoard) {
    load("misbehaving-board.json");
    // The record claims 9 entries and 255 cable modulations: the service reads what fits.
    EXPECT_EQ(mIds, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(mLogs.matching("ucFrontendCnt:9 is beyond the record's room of 5").size(), 1u);
    EXPECT_EQ(mLogs.matching("tQam.ucCnt:255 is beyond its room of 10").size(), 1u);
    FrontendInfo info{};
    mTuner->getFrontendInfo(0, [&](Result, const FrontendInfo& i) { info = i; });
    EXPECT_EQ(info.frontendCaps.dvbcCaps().modulationCap,
              FrontendDvbcModulation::MOD_64QAM | FrontendDvbcModulation::MOD_256QAM);

    // The driver refuses the first tuning record: the tune succeeds without an event.
    sp<Frontend> cable = mTuner->getFrontendById(0);
    EXPECT_EQ(cable->tune(dvbc(306000000, 6900000)), Result::SUCCESS);
    EXPECT_TRUE(mCallback->events().empty());
    EXPECT_EQ(cable->tune(dvbc(306000000, 6900000)), Result::SUCCESS);
    EXPECT_EQ(mCallback->events(), std::vector<FrontendEventType>{FrontendEventType::LOCKED});

    // Hostile figures come out saturated; the lock comes and goes every 400 ms.
    auto read = [&] {
        std::vector<FrontendStatus> s;
        cable->getStatus(
                {FrontendStatusType::DEMOD_LOCK, FrontendStatusType::SNR, FrontendStatusType::BER,
                 FrontendStatusType::PRE_BER, FrontendStatusType::MER},
                [&](Result r, const hidl_vec<FrontendStatus>& st) {
                    EXPECT_EQ(r, Result::SUCCESS);
                    s = st;
                });
        return s;
    };
    const auto locked = read();
    ASSERT_EQ(locked.size(), 5u);
    EXPECT_TRUE(locked[0].isDemodLocked());
    EXPECT_EQ(locked[1].snr(), 0) << "NaN";
    EXPECT_EQ(locked[2].ber(), UINT32_MAX);
    EXPECT_EQ(locked[3].preBer(), UINT32_MAX);
    EXPECT_EQ(locked[4].mer(), INT32_MIN);
    vt::advance(400000);
    EXPECT_FALSE(read()[0].isDemodLocked());
    vt::advance(400000);
    EXPECT_TRUE(read()[0].isDemodLocked());

    // A failing release is not the client's concern.
    EXPECT_EQ(cable->stopTune(), Result::SUCCESS);
    EXPECT_FALSE(cable->isLocked());

    // The terrestrial tuner never locks, even on a multiplex that is on the air.
    mCallback = new RecordingCallback();
    mTuner->getFrontendById(1)->setCallback(mCallback);
    EXPECT_EQ(mTuner->getFrontendById(1)->tune(dvbt(482000000)), Result::SUCCESS);
    EXPECT_EQ(mCallback->events(), std::vector<FrontendEventType>{FrontendEventType::NO_SIGNAL});
}

TEST_F(ExampleInstallationTest, TheSameFileAndCallsGiveTheSameAnswers) {
    std::vector<int32_t> runs[2];
    for (auto& figures : runs) {
        load("cable-network.json");
        sp<Frontend> cable = mTuner->getFrontendById(0);
        ASSERT_EQ(cable->tune(dvbc(306000000, 6900000)), Result::SUCCESS);
        for (int i = 0; i < 5; ++i) {
            cable->getStatus({FrontendStatusType::SNR, FrontendStatusType::MER},
                             [&](Result, const hidl_vec<FrontendStatus>& s) {
                                 figures.push_back(s[0].snr());
                                 figures.push_back(s[1].mer());
                             });
        }
        cable->stopTune();
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_NE(runs[0][0], runs[0][2]) << "the figures have jitter";
}

}  // namespace
