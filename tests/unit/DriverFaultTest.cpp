// A driver that fails or answers nonsense: failed reads during a tune, lock answers other than 0
// and 1, failed releases and LNB commands, lists longer than their room, hostile floats in every
// signal field, and a client asking for a thousand status types at once.
#include <cmath>
#include <limits>

#include "ScanTestSupport.h"
#include "tuner/CapabilityTranslation.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::tv::tuner::V1_0::implementation::translateCapabilities;

namespace {

using DriverFaultTest = ScanTestBase;

TEST_F(DriverFaultTest, AFailedSignalReadDuringATuneCountsByWhatTheRecordHolds) {
    struct Case {
        const char* name;
        uint32_t writtenLock;  // what the failing driver leaves in the record
        FrontendEventType event;
        int reads;
    } const cases[] = {
            {"writes nothing", 0, FrontendEventType::NO_SIGNAL, 15},
            {"writes lock", 1, FrontendEventType::LOCKED, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        driver().reset();
        sp<RecordingCallback> callback = new RecordingCallback();
        frontend(kDvbt)->setCallback(callback);
        driver().onGetInfo([&c](uint8_t, MOX_TunerSignalInfo_t* info) {
            info->lock = c.writtenLock;
            return -5;
        });
        EXPECT_EQ(frontend(kDvbt)->tune(dvbt(482000000)), Result::SUCCESS);
        EXPECT_EQ(callback->events(), std::vector<FrontendEventType>{c.event});
        EXPECT_EQ(driver().count("GetInfo"), c.reads);
    }
}

TEST_F(DriverFaultTest, OnlyZeroFromIsLockedIsLock) {
    for (int answer : {1, 2, -1, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(answer);
        driver().reset();
        mCallback = new RecordingCallback();
        frontend(kDvbt)->setCallback(mCallback);
        driver().onIsLocked([answer](uint8_t) { return answer; });
        frontend(kDvbt)->scan(dvbt(650000000), FrontendScanType::SCAN_AUTO);
        waitForScanEnd(frontend(kDvbt));
        EXPECT_TRUE(mCallback->messages().empty());
        EXPECT_EQ(driver().count("IsLocked"), 50);
        EXPECT_FALSE(frontend(kDvbt)->isLocked());
    }
}

TEST_F(DriverFaultTest, FailedReleasesAndLnbCommandsAreNotTheClientsConcern) {
    for (const char* name :
         {"Release", "SetLNBMode", "Set22KContinues", "SendDiSEqCToneBurst", "SendDiSEqCCmd"}) {
        driver().setResult(name, -1);
    }
    lockOnPolls({1});
    frontend(kDvbs)->scan(dvbs(1210000000, 27500000), FrontendScanType::SCAN_AUTO);
    waitForScanEnd(frontend(kDvbs));
    EXPECT_EQ(frontend(kDvbs)->stopScan(), Result::SUCCESS);
    EXPECT_EQ(frontend(kDvbs)->stopTune(), Result::SUCCESS);
    EXPECT_FALSE(frontend(kDvbs)->isLocked());
    sp<Lnb> lnb = new Lnb(0);
    EXPECT_EQ(lnb->setVoltage(LnbVoltage::VOLTAGE_18V), Result::SUCCESS);
    EXPECT_EQ(lnb->setTone(LnbTone::CONTINUOUS), Result::SUCCESS);
    EXPECT_EQ(lnb->setSatellitePosition(LnbPosition::POSITION_B), Result::SUCCESS);
    EXPECT_EQ(lnb->sendDiseqcMessage(hidl_vec<uint8_t>{0xE0, 0x10, 0x38, 0xF0}), Result::SUCCESS);
    EXPECT_EQ(driver().count("Release"), 2);
    EXPECT_EQ(driver().lnbCalls().size(), 4u);
}

template <size_t Room>
void overfill(MOX_CodeList_t<Room>& list, uint32_t code) {
    list.ucCnt = 255;
    for (uint32_t& value : list.eValues) value = code;
}

TEST_F(DriverFaultTest, EveryListBeyondItsRoomIsReadOnlyToItsRoom) {
    using Cap = MOX_TunerFrontendCap_t;
    struct Case {
        const char* list;
        std::function<Cap()> entry;
        std::function<void(Cap&)> overfillList;
    } const cases[] = {
            {"tBwSupport", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tBwSupport, 3); }},
            {"tCapability.tDvbt.tTransmissionMode.tDvbt", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tTransmissionMode.tDvbt, 1); }},
            {"tCapability.tDvbt.tTransmissionMode.tDvbt2", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tTransmissionMode.tDvbt2, 1); }},
            {"tCapability.tDvbt.tConstellation.tDvbt", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tConstellation.tDvbt, 1); }},
            {"tCapability.tDvbt.tConstellation.tDvbt2", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tConstellation.tDvbt2, 1); }},
            {"tCapability.tDvbt.tCodeRate.tDvbt", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tCodeRate.tDvbt, 1); }},
            {"tCapability.tDvbt.tCodeRate.tDvbt2", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tCodeRate.tDvbt2, 1); }},
            {"tCapability.tDvbt.tGuardInterval.tDvbt", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tGuardInterval.tDvbt, 1); }},
            {"tCapability.tDvbt.tGuardInterval.tDvbt2", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tGuardInterval.tDvbt2, 1); }},
            {"tCapability.tDvbt.tHierarchy", [] { return fake::dvbtEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbt.tHierarchy, 1); }},
            {"tCapability.tDvbs.tModulation.tDvbs", [] { return fake::dvbsEntry(1, 1); },
             [](Cap& c) { overfill(c.tCapability.tDvbs.tModulation.tDvbs, 1); }},
            {"tCapability.tDvbs.tModulation.tDvbs2", [] { return fake::dvbsEntry(1, 1); },
             [](Cap& c) { overfill(c.tCapability.tDvbs.tModulation.tDvbs2, 1); }},
            {"tCapability.tDvbs.tCodeRate.tDvbs", [] { return fake::dvbsEntry(1, 1); },
             [](Cap& c) { overfill(c.tCapability.tDvbs.tCodeRate.tDvbs, 1); }},
            {"tCapability.tDvbs.tCodeRate.tDvbs2", [] { return fake::dvbsEntry(1, 1); },
             [](Cap& c) { overfill(c.tCapability.tDvbs.tCodeRate.tDvbs2, 1); }},
            {"tCapability.tDvbc.tQam", [] { return fake::dvbcEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbc.tQam, 3); }},
            {"tCapability.tDvbc.tAnnex", [] { return fake::dvbcEntry(1); },
             [](Cap& c) { overfill(c.tCapability.tDvbc.tAnnex, 2); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.list);
        mLogs.clear();
        Cap cap = c.entry();
        // T2 lists are read only when the entry supports T2.
        if (cap.tTypeSupport.eValues[0] == MOX_TUNER_TYPE_DVBT)
            cap.tCapability.tDvbt.ucT2Support = 1;
        c.overfillList(cap);
        FrontendInfo::FrontendCapabilities caps;
        translateCapabilities(0, cap, caps);
        const auto refusals = mLogs.matching(std::string("\\] ") + c.list +
                                             "\\.ucCnt:255 is beyond its room of \\d+, reading");
        ASSERT_EQ(refusals.size(), 1u);
        EXPECT_EQ(refusals[0].priority, ANDROID_LOG_ERROR);
    }
}

TEST_F(DriverFaultTest, HostileFiguresInEverySignalField) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    for (float hostile : {nan, inf, -inf, 3.4e38f, -3.4e38f}) {
        SCOPED_TRACE(hostile);
        driver().reset();
        mLogs.clear();
        driver().onGetInfo([hostile](uint8_t, MOX_TunerSignalInfo_t* info) {
            info->lock = 1;
            info->strength = info->quality = info->agc = UINT32_MAX;
            info->powerlevel = INT32_MIN;
            info->snr = info->ber = info->packetError = info->mer = info->lber = hostile;
            return 0;
        });
        driver().onGetParamInfo([](uint8_t, MOX_TunerParamInfo_t* info) {
            memset(info, 0xFF, sizeof(*info));
            return 0;
        });
        EXPECT_EQ(frontend(kDvbt)->tune(dvbt(482000000)), Result::SUCCESS);
        EXPECT_EQ(mLogs.matching("Tuner:0 lock:true strength=4294967295 quality=4294967295 "
                                 ".* agc=4294967295 powerlevel=-214748368\\.0dBuV")
                          .size(),
                  1u);
        std::vector<FrontendStatusType> all;
        for (FrontendStatusType t : ::android::hardware::hidl_enum_range<FrontendStatusType>()) {
            all.push_back(t);
        }
        Result result = Result::UNKNOWN_ERROR;
        size_t answered = 0;
        frontend(kDvbt)->getStatus(all, [&](Result r, const hidl_vec<FrontendStatus>& statuses) {
            result = r;
            answered = statuses.size();
            for (const FrontendStatus& s : statuses) {
                using D = FrontendStatus::hidl_discriminator;
                if (s.getDiscriminator() == D::snr) {
                    EXPECT_TRUE(s.snr() == 0 || s.snr() == INT32_MAX || s.snr() == INT32_MIN);
                }
                if (s.getDiscriminator() == D::signalQuality) {
                    EXPECT_EQ(s.signalQuality(), UINT32_MAX);
                }
            }
        });
        EXPECT_EQ(result, Result::SUCCESS);
        EXPECT_EQ(answered, all.size());
    }
}

TEST_F(DriverFaultTest, AThousandStatusTypesAtOnce) {
    std::vector<FrontendStatusType> requested;
    for (uint32_t i = 0; i < 1000; ++i)
        requested.push_back(static_cast<FrontendStatusType>(i % 25));
    size_t answered = 0;
    std::vector<FrontendStatus::hidl_discriminator> kinds;
    frontend(kDvbt)->getStatus(requested, [&](Result r, const hidl_vec<FrontendStatus>& statuses) {
        EXPECT_EQ(r, Result::SUCCESS);
        answered = statuses.size();
        for (size_t i = 0; i < 22 && i < statuses.size(); ++i) {
            kinds.push_back(statuses[i].getDiscriminator());
        }
    });
    // Types 22..24 are not answered: 40 rounds of 22 answers.
    EXPECT_EQ(answered, 40u * 22u);
    ASSERT_EQ(kinds.size(), 22u);
    EXPECT_EQ(kinds[0], FrontendStatus::hidl_discriminator::isDemodLocked);
    EXPECT_EQ(kinds[21], FrontendStatus::hidl_discriminator::plpInfo);
}

}  // namespace
