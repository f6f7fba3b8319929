// The dump's machine-readable form is read by tunerctl's reader, field by field, from a service
// in a known state: a key renamed on either side fails here.
#include <hidl/DebugDump.h>
#include <unistd.h>

#include "ServiceDump.h"
#include "ServiceTest.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

class ServiceDumpTest : public ServiceTest {
  protected:
    static tunerctl::ServiceDump read(const sp<Tuner>& tuner) {
        std::string error;
        const std::optional<tunerctl::ServiceDump> dump = tunerctl::parseServiceDump(
                ::android::hardware::debugDump(tuner, {tunerctl::kDumpJsonOption}), error);
        EXPECT_TRUE(dump) << error;
        return dump.value_or(tunerctl::ServiceDump{});
    }
};

TEST_F(ServiceDumpTest, EveryFieldTheServiceWritesIsReadBack) {
    EXPECT_FALSE(read(new Tuner()).discovered);

    sp<Tuner> tuner = discovered({fake::dvbtEntry(2), fake::dvbcEntry(1)});
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 1;
        return 0;
    });
    sp<RecordingCallback> callback = new RecordingCallback();
    sp<Frontend> frontend = tuner->getFrontendById(1);
    ASSERT_EQ(frontend->setCallback(callback), Result::SUCCESS);
    ASSERT_EQ(frontend->tune(dvbt(482000000)), Result::SUCCESS);
    sp<IDemux> demux;
    uint32_t demuxId = 0;
    tuner->openDemux([&](Result, uint32_t id, const sp<IDemux>& d) {
        demuxId = id;
        demux = d;
    });
    ASSERT_EQ(demux->setFrontendDataSource(1), Result::SUCCESS);

    const tunerctl::ServiceDump dump = read(tuner);
    EXPECT_TRUE(dump.discovered);
    ASSERT_EQ(dump.frontends.size(), 3u);
    const tunerctl::FrontendDump* tuned = dump.frontend(1);
    ASSERT_NE(tuned, nullptr);
    EXPECT_EQ(tuned->type, "DVBT");
    EXPECT_TRUE(tuned->locked);
    EXPECT_FALSE(tuned->scanRunning);
    EXPECT_EQ(tuned->callback, "set");
    EXPECT_EQ(tuned->callbackPid, getpid());
    const tunerctl::FrontendDump* idle = dump.frontend(2);
    ASSERT_NE(idle, nullptr);
    EXPECT_EQ(idle->type, "DVBC");
    EXPECT_FALSE(idle->locked);
    EXPECT_EQ(idle->callback, "none");
    EXPECT_EQ(idle->callbackPid, std::nullopt);
    EXPECT_EQ(dump.demuxes, std::vector<uint32_t>{demuxId});
    EXPECT_EQ(dump.bindings, (std::map<uint32_t, uint32_t>{{1, demuxId}}));
}

// What the service answers with a fixed value is named; what it reads from the driver is not.
TEST_F(ServiceDumpTest, NotMeasuredNamesTheFixedAnswersAndOnlyThem) {
    sp<Tuner> tuner = discovered({fake::dvbtEntry(1)});
    const std::vector<std::string> notMeasured = read(tuner).frontends.at(0).notMeasured;
    for (const char* fixed : {"SIGNAL_STRENGTH", "RF_LOCK", "PER", "SYMBOL_RATE", "FREQ_OFFSET"}) {
        EXPECT_NE(std::find(notMeasured.begin(), notMeasured.end(), fixed), notMeasured.end())
                << fixed;
    }
    for (const char* measured : {"DEMOD_LOCK", "SNR", "BER", "MER", "AGC", "SIGNAL_QUALITY"}) {
        EXPECT_EQ(std::find(notMeasured.begin(), notMeasured.end(), measured), notMeasured.end())
                << measured;
    }
    // The fixed answers do not follow the driver: strength stays 0 however strong the signal.
    driver().onGetInfo([](uint8_t, MOX_TunerSignalInfo_t* info) {
        info->lock = 0;
        info->strength = 90;
        return 0;
    });
    tuner->getFrontendById(0)->getStatus(
            {FrontendStatusType::SIGNAL_STRENGTH, FrontendStatusType::RF_LOCK},
            [](Result, const hidl_vec<FrontendStatus>& s) {
                ASSERT_EQ(s.size(), 2u);
                EXPECT_EQ(s[0].signalStrength(), 0u);
                EXPECT_TRUE(s[1].isRfLocked());
            });
}

// The reader is strict: a missing or mistyped key is an error, not a default.
TEST_F(ServiceDumpTest, TheReaderRefusesAFormItDoesNotKnow) {
    const std::string good =
            R"({"discovered":true,"frontends":[{"id":0,"type":"DVBT","locked":false,)"
            R"("scanRunning":false,"callback":"none","callbackPid":null,"notMeasured":[]}],)"
            R"("demuxes":[],"bindings":[]})";
    std::string error;
    ASSERT_TRUE(tunerctl::parseServiceDump(good, error)) << error;
    const std::pair<const char*, const char*> renames[] = {
            {"\"scanRunning\"", "\"scan_running\""},
            {"\"locked\"", "\"isLocked\""},
            {"\"bindings\"", "\"binding\""},
            {"\"none\"", "\"nobody\""},
            {"\"callbackPid\":null", "\"callbackPid\":\"x\""}};
    for (const auto& [from, to] : renames) {
        std::string changed = good;
        changed.replace(changed.find(from), std::string(from).size(), to);
        EXPECT_FALSE(tunerctl::parseServiceDump(changed, error)) << to;
    }
    EXPECT_FALSE(tunerctl::parseServiceDump("android.hardware.tv.tuner@1.0::ITuner\n", error));
    EXPECT_EQ(error.rfind("the service's dump is not of the form tunerctl reads: ", 0), 0u);
}

}  // namespace
