// The fixture of the unit tests: a fresh fake driver, virtual clock, host records and log
// capture for every test, and helpers to build a discovered Tuner and frontend settings.
#pragma once

#include <android/log.h>
#include <gtest/gtest.h>

#include <vector>

#include "FakeMoxDriver.h"
#include "LogCapture.h"
#include "MoxHostRecord.h"
#include "RecordingCallback.h"
#include "TestSettings.h"
#include "VirtualClock.h"
#include "frontend/Frontend.h"
#include "lnb/Lnb.h"
#include "tuner/Tuner.h"

using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::tv::tuner::V1_0::FrontendScanMessageType;
using ::android::hardware::tv::tuner::V1_0::FrontendType;
using ::android::hardware::tv::tuner::V1_0::Result;
using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;
using ::android::hardware::tv::tuner::V1_0::implementation::Lnb;
using ::android::hardware::tv::tuner::V1_0::implementation::Tuner;

class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fake::Driver::get().reset();
        vt::reset();
        mox::host::clearRecords();
    }

    static fake::Driver& driver() { return fake::Driver::get(); }

    static std::vector<uint32_t> frontendIds(const sp<Tuner>& tuner) {
        std::vector<uint32_t> ids;
        Result result = Result::UNKNOWN_ERROR;
        tuner->getFrontendIds([&](Result r, const hidl_vec<uint32_t>& list) {
            result = r;
            ids = list;
        });
        EXPECT_EQ(result, Result::SUCCESS);
        return ids;
    }

    // A Tuner that has discovered the given capability entries.
    static sp<Tuner> discovered(const std::vector<MOX_TunerFrontendCap_t>& entries) {
        driver().setCapabilities(0, fake::capabilityOf(entries));
        sp<Tuner> tuner = new Tuner();
        frontendIds(tuner);
        return tuner;
    }

    LogCapture mLogs;
};
