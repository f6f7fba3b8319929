// The service on the simulated box, in virtual time: the simulator reads the clock that the
// frontend's poll wait advances.
#pragma once

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "RecordingCallback.h"
#include "TestSettings.h"
#include "VirtualClock.h"
#include "frontend/Frontend.h"
#include "simulator/SimulatedDriver.h"
#include "tuner/Tuner.h"

using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::tv::tuner::V1_0::FrontendStatus;
using ::android::hardware::tv::tuner::V1_0::FrontendStatusType;
using ::android::hardware::tv::tuner::V1_0::Result;
using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;
using ::android::hardware::tv::tuner::V1_0::implementation::Tuner;

class SimulatedBoxTest : public ::testing::Test {
  protected:
    // The default box: frontends 0 and 1 DVB-T/T2, 2 DVB-C, 3 DVB-S/S2; LNBs 0 and 1.
    enum : uint32_t { kTerrestrial = 0, kCable = 2, kSatellite = 3 };

    void SetUp() override {
        vt::reset();
        mox::sim::simulator().setClock(vt::nowUs);
        mTuner = new Tuner();
        mTuner->getFrontendIds([&](Result, const hidl_vec<uint32_t>& ids) { mIds = ids; });
        for (uint32_t id : mIds) mTuner->getFrontendById(id)->setCallback(mCallback);
    }

    sp<Frontend> frontend(uint32_t id) { return mTuner->getFrontendById(id); }

    std::vector<FrontendStatus> status(uint32_t id, std::vector<FrontendStatusType> types) {
        std::vector<FrontendStatus> answer;
        frontend(id)->getStatus(types, [&](Result r, const hidl_vec<FrontendStatus>& s) {
            EXPECT_EQ(r, Result::SUCCESS);
            answer = s;
        });
        return answer;
    }

    LogCapture mLogs;
    sp<Tuner> mTuner;
    std::vector<uint32_t> mIds;
    sp<RecordingCallback> mCallback = new RecordingCallback();
};
