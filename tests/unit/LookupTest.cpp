#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using LookupTest = ServiceTest;

std::pair<Result, sp<IFrontend>> open(const sp<Tuner>& tuner, uint32_t id) {
    std::pair<Result, sp<IFrontend>> answer{Result::UNKNOWN_ERROR, nullptr};
    int calls = 0;
    tuner->openFrontendById(id, [&](Result r, const sp<IFrontend>& f) {
        answer = {r, f};
        ++calls;
    });
    EXPECT_EQ(calls, 1);
    return answer;
}

std::pair<Result, FrontendInfo> info(const sp<Tuner>& tuner, uint32_t id) {
    std::pair<Result, FrontendInfo> answer{Result::UNKNOWN_ERROR, {}};
    tuner->getFrontendInfo(id, [&](Result r, const FrontendInfo& i) { answer = {r, i}; });
    return answer;
}

std::pair<Result, sp<ILnb>> openLnb(const sp<Tuner>& tuner, uint32_t id) {
    std::pair<Result, sp<ILnb>> answer{Result::UNKNOWN_ERROR, nullptr};
    tuner->openLnbById(id, [&](Result r, const sp<ILnb>& l) { answer = {r, l}; });
    return answer;
}

TEST_F(LookupTest, BeforeDiscoveryEveryIdIsRefused) {
    sp<Tuner> tuner = new Tuner();
    EXPECT_EQ(open(tuner, 0), std::make_pair(Result::UNAVAILABLE, sp<IFrontend>()));
    EXPECT_EQ(info(tuner, 0).first, Result::INVALID_ARGUMENT);
    EXPECT_EQ(info(tuner, 0).second, FrontendInfo());
    EXPECT_EQ(tuner->getFrontendById(0), nullptr);
    EXPECT_EQ(openLnb(tuner, 0), std::make_pair(Result::INVALID_ARGUMENT, sp<ILnb>()));
    EXPECT_TRUE(driver().calls().empty()) << "refusals do not initialise the driver";
}

TEST_F(LookupTest, OpeningHandsOutTheDiscoveredObject) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(2)});
    const auto first = open(tuner, 1);
    EXPECT_EQ(first.first, Result::SUCCESS);
    EXPECT_EQ(first.second, sp<IFrontend>(tuner->getFrontendById(1)));
    EXPECT_EQ(open(tuner, 1).second, first.second);

    const auto refused = open(tuner, 2);
    EXPECT_EQ(refused, std::make_pair(Result::UNAVAILABLE, sp<IFrontend>()));
    const auto warnings = mLogs.matching("^\\[   WARN   \\] Frontend with id 2 isn't available$");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(warnings[0].tag, "android.hardware.tv.tuner@1.0-Tuner");
    EXPECT_EQ(open(tuner, 0xFFFFFFFFu).first, Result::UNAVAILABLE);

    EXPECT_EQ(info(tuner, 2).first, Result::INVALID_ARGUMENT);
    EXPECT_EQ(mLogs.matching("WARN").size(), 2u) << "getFrontendInfo warns about nothing";
}

TEST_F(LookupTest, OpeningAfterDiscoveryDoesNotInitialiseAgain) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(1)});
    const int before = driver().count("Init");
    open(tuner, 0);
    open(tuner, 0);
    EXPECT_EQ(driver().count("Init"), before);
}

TEST_F(LookupTest, InfoIsACopyOfWhatDiscoveryBuilt) {
    MOX_TunerFrontendCap_t entry = fake::dvbcEntry(1);
    entry.uiStatusCap = 0x6;
    entry.tCapability.tDvbc.tQam.ucCnt = 1;
    entry.tCapability.tDvbc.tQam.eValues[0] = 3;
    sp<Tuner> tuner = discovered({entry});
    const auto answer = info(tuner, 0);
    EXPECT_EQ(answer.first, Result::SUCCESS);
    FrontendInfo expected{};
    expected.type = FrontendType::DVBC;
    expected.minFrequency = 50000000;
    expected.maxFrequency = 860000000;
    expected.minSymbolRate = 1000000;
    expected.maxSymbolRate = 7000000;
    expected.acquireRange = 30;
    expected.exclusiveGroupId = 57;
    expected.statusCaps = {FrontendStatusType::SNR, FrontendStatusType::BER};
    FrontendDvbcCapabilities caps{};
    caps.modulationCap = 8;
    expected.frontendCaps.dvbcCaps(caps);
    EXPECT_EQ(answer.second, expected);
    EXPECT_EQ(mLogs.matching("^\\[Tuner::getFrontendInfo:\\d+\\]: frontendId:0$").size(), 1u);
}

TEST_F(LookupTest, LnbsByIdAndByName) {
    sp<Tuner> tuner = new Tuner();
    std::vector<uint32_t> ids{99};
    tuner->getLnbIds([&](Result r, const hidl_vec<uint32_t>& l) {
        EXPECT_EQ(r, Result::SUCCESS);
        ids = l;
    });
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(driver().calls().empty()) << "getLnbIds runs no discovery";

    tuner = discovered({fake::dvbsEntry(1, 2)});
    const auto lnb1 = openLnb(tuner, 1);
    EXPECT_EQ(lnb1.first, Result::SUCCESS);
    EXPECT_EQ(static_cast<Lnb*>(lnb1.second.get())->getId(), 1);
    EXPECT_EQ(openLnb(tuner, 1).second, lnb1.second);
    EXPECT_EQ(openLnb(tuner, 2).first, Result::INVALID_ARGUMENT);

    std::vector<sp<ILnb>> named;
    for (const char* name : {"", "dish-east"}) {
        tuner->openLnbByName(name, [&](Result r, uint32_t id, const sp<ILnb>& l) {
            EXPECT_EQ(r, Result::SUCCESS);
            EXPECT_EQ(id, 1234u);
            EXPECT_EQ(static_cast<Lnb*>(l.get())->getId(), 0);
            named.push_back(l);
        });
    }
    ASSERT_EQ(named.size(), 2u);
    EXPECT_NE(named[0], named[1]);
}

TEST_F(LookupTest, OpeningAnLnbByNameInitialisesTheDriverOnce) {
    sp<Tuner> tuner = new Tuner();
    tuner->openLnbByName("x", [](Result, uint32_t, const sp<ILnb>&) {});
    tuner->openLnbByName("y", [](Result, uint32_t, const sp<ILnb>&) {});
    driver().setCapabilities(0, fake::capabilityOf({}));
    frontendIds(tuner);
    EXPECT_EQ(driver().count("Init"), 1);
}

}  // namespace
