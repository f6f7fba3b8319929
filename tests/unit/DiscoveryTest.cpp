#include <thread>

#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using DiscoveryTest = ServiceTest;

std::vector<uint32_t> lnbIds(const sp<Tuner>& tuner) {
    std::vector<uint32_t> ids;
    tuner->getLnbIds([&](Result r, const hidl_vec<uint32_t>& list) {
        EXPECT_EQ(r, Result::SUCCESS);
        ids = list;
    });
    return ids;
}

FrontendInfo infoOf(const sp<Tuner>& tuner, uint32_t id) {
    FrontendInfo info{};
    tuner->getFrontendInfo(id, [&](Result r, const FrontendInfo& i) {
        EXPECT_EQ(r, Result::SUCCESS);
        info = i;
    });
    return info;
}

TEST_F(DiscoveryTest, ChannelsBecomeDenseFrontendsWithTheirGroups) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(2), fake::dvbsEntry(1, 2)});
    EXPECT_EQ(frontendIds(tuner), (std::vector<uint32_t>{0, 1, 2}));
    const FrontendType types[] = {FrontendType::DVBT, FrontendType::DVBT, FrontendType::DVBS};
    for (uint32_t id = 0; id < 3; ++id) {
        EXPECT_EQ(infoOf(tuner, id).type, types[id]);
        EXPECT_EQ(infoOf(tuner, id).exclusiveGroupId, 57 + id);
        EXPECT_EQ(infoOf(tuner, id).acquireRange, 30u);
        EXPECT_EQ(tuner->getFrontendById(id)->getFrontendType(), types[id]);
        EXPECT_EQ(tuner->getFrontendById(id)->getFrontendId(), id);
    }
    EXPECT_EQ(lnbIds(tuner), (std::vector<uint32_t>{0, 1}));
}

TEST_F(DiscoveryTest, LnbsNumberTheLargestSatelliteCount) {
    struct Case {
        std::vector<MOX_TunerFrontendCap_t> entries;
        std::vector<uint32_t> lnbs;
        size_t frontends;
    } const cases[] = {
            {{fake::dvbsEntry(1, 2), fake::dvbsEntry(1, 3)}, {0, 1, 2}, 2},
            {{fake::dvbsEntry(1, 3), fake::dvbsEntry(1, 2)}, {0, 1, 2}, 2},
            {{fake::dvbsEntry(2, 1)}, {0}, 2},
            {{fake::dvbtEntry(1)}, {}, 1},
    };
    for (const Case& c : cases) {
        sp<Tuner> tuner = discovered(c.entries);
        EXPECT_EQ(frontendIds(tuner).size(), c.frontends);
        EXPECT_EQ(lnbIds(tuner), c.lnbs);
    }
    // Only the voltage pairs that exist are logged; the LNB beyond them is still created.
    EXPECT_EQ(mLogs.messages("tLnb.tVoltage\\[2\\]").size(), 0u);
}

TEST_F(DiscoveryTest, RangesAreLimitedAndScaled) {
    struct Case {
        MOX_TunerRange_t frequency, symbolRate;
        uint32_t minF, maxF, minS, maxS;
    } const cases[] = {
            {{50, 3000}, {1000, 45000}, 50000000, 2140000000, 1000000, 45000000},
            {{2500, 3000}, {3000000, 4000000}, 2140000000, 2140000000, 2140000000, 2140000000},
            {{0, 0}, {0, 0}, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        MOX_TunerFrontendCap_t entry = fake::dvbcEntry(1);
        entry.tFreqRange = c.frequency;
        entry.tSymbolRateRange = c.symbolRate;
        const FrontendInfo info = infoOf(discovered({entry}), 0);
        EXPECT_EQ(info.minFrequency, c.minF);
        EXPECT_EQ(info.maxFrequency, c.maxF);
        EXPECT_EQ(info.minSymbolRate, c.minS);
        EXPECT_EQ(info.maxSymbolRate, c.maxS);
    }
}

TEST_F(DiscoveryTest, StatusCapsHaveOneEntryPerSetBitInBitOrder) {
    MOX_TunerFrontendCap_t entry = fake::dvbtEntry(1);
    entry.uiStatusCap = (1u << 0) | (1u << 3) | (1u << 31);
    const FrontendInfo info = infoOf(discovered({entry}), 0);
    EXPECT_EQ(std::vector<FrontendStatusType>(info.statusCaps),
              (std::vector<FrontendStatusType>{FrontendStatusType::DEMOD_LOCK,
                                               FrontendStatusType::PER,
                                               FrontendStatusType::DEMOD_LOCK}));
    EXPECT_EQ(mLogs.matching("^\\[Tuner::getFrontendIds:\\d+\\]: new Fronted:0 StatusCap.size:3$")
                      .size(),
              1u);
}

TEST_F(DiscoveryTest, NothingFoundIsAskedAgain) {
    for (auto entries : {std::vector<MOX_TunerFrontendCap_t>{},
                         std::vector<MOX_TunerFrontendCap_t>{fake::dvbtEntry(0)}}) {
        driver().reset();
        sp<Tuner> tuner = discovered(entries);
        EXPECT_TRUE(frontendIds(tuner).empty());
        EXPECT_EQ(driver().count("GetCapabilities"), 2);
    }
}

TEST_F(DiscoveryTest, FailedCapabilitiesGiveOneEmptyCableFrontendOnce) {
    driver().setCapabilities(-1, fake::capabilityOf({fake::dvbtEntry(2)}));
    sp<Tuner> tuner = new Tuner();
    EXPECT_EQ(frontendIds(tuner), std::vector<uint32_t>{0});
    EXPECT_EQ(frontendIds(tuner), std::vector<uint32_t>{0});
    EXPECT_EQ(driver().count("GetCapabilities"), 1);
    const FrontendInfo info = infoOf(tuner, 0);
    EXPECT_EQ(info.type, FrontendType::UNDEFINED);
    EXPECT_EQ(info.acquireRange, 0u);
    EXPECT_EQ(info.exclusiveGroupId, 0u);
    EXPECT_EQ(info.statusCaps.size(), 0u);
    EXPECT_EQ(info.frontendCaps.dvbcCaps(), FrontendDvbcCapabilities());
    EXPECT_EQ(tuner->getFrontendById(0)->getFrontendType(), FrontendType::DVBC);
    EXPECT_TRUE(lnbIds(tuner).empty());
    EXPECT_EQ(mLogs.matching("MOX_Tuner_GetCapabilities fail!! set FrontendDvbcCapabilities!$")
                      .at(0)
                      .priority,
              ANDROID_LOG_ERROR);
}

TEST_F(DiscoveryTest, DriverIsInitialisedByTheTunerAndTheFirstFrontendOnly) {
    sp<Tuner> tuner = new Tuner();
    EXPECT_TRUE(driver().calls().empty()) << "constructing the Tuner touches nothing";
    driver().setCapabilities(0, fake::capabilityOf({fake::dvbtEntry(2), fake::dvbcEntry(1)}));
    frontendIds(tuner);
    frontendIds(tuner);
    EXPECT_EQ(driver().count("Init"), 2);
    EXPECT_EQ(driver().count("GetCapabilities"), 1);
    EXPECT_EQ(mox::host::smpCalls(),
              (std::vector<std::pair<int, int>>{{0, 0}, {1, 0}, {16, 0}, {17, 0}}));
    EXPECT_EQ(mLogs.messages("Frontend mId=").size(), 3u);
}

TEST_F(DiscoveryTest, AFailingInitIsNotNoticed) {
    driver().setInitResult(-1);
    sp<Tuner> tuner = discovered({fake::dvbcEntry(1)});
    EXPECT_EQ(frontendIds(tuner), std::vector<uint32_t>{0});
    tuner->openLnbByName(
            "x", [](Result r, uint32_t, const sp<ILnb>&) { EXPECT_EQ(r, Result::SUCCESS); });
    EXPECT_EQ(driver().count("Init"), 2) << "the flags are set whatever Init answered";
}

TEST_F(DiscoveryTest, HostileFrontendCountIsClamped) {
    MOX_TunerCapability_t capability = fake::capabilityOf({fake::dvbtEntry(1)});
    capability.ucFrontendCnt = 200;
    for (MOX_TunerFrontendCap_t& entry : capability.tFrontend) entry = fake::dvbcEntry(1);
    driver().setCapabilities(0, capability);
    sp<Tuner> tuner = new Tuner();
    EXPECT_EQ(frontendIds(tuner).size(), 5u);
    EXPECT_EQ(mLogs.matching("ucFrontendCnt:200 is beyond").size(), 1u);
}

TEST_F(DiscoveryTest, ConcurrentFirstCallsDiscoverOnce) {
    driver().setCapabilities(0, fake::capabilityOf({fake::dvbtEntry(3)}));
    sp<Tuner> tuner = new Tuner();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(frontendIds(tuner).size(), 3u); });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(driver().count("GetCapabilities"), 1);
    EXPECT_EQ(driver().count("Init"), 2);
}

}  // namespace
