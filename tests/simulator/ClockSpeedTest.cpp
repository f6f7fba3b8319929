// The host's clock speed: which texts are speeds, and what a pause at a speed does to real and
// simulated time. Each case runs in a process of its own, so the speed set is the case's.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "frontend/PollWait.h"
#include "host/clock/ClockSpeed.h"
#include "simulator/SimulatedDriver.h"

namespace {

using ::android::hardware::tv::tuner::V1_0::implementation::PollInterrupt;
using ::android::hardware::tv::tuner::V1_0::implementation::pollWaitInterruptible;

// Records the real time asked for instead of waiting.
class RecordingInterrupt : public PollInterrupt {
  public:
    bool waitFor(uint32_t microseconds) override {
        waitedUs = microseconds;
        return true;
    }
    uint32_t waitedUs = 0;
};

nlohmann::json world() {
    return nlohmann::json::parse(mox::sim::simulator().describe());
}

TEST(ClockSpeedTest, OnlyWholeNumbersFromOneToTheMaximumAreSpeeds) {
    const struct {
        const char* text;
        std::optional<uint32_t> speed;
    } cases[] = {
            {"1", 1u},
            {"50", 50u},
            {"1000", 1000u},
            {"0", std::nullopt},
            {"1001", std::nullopt},
            {"", std::nullopt},
            {"-5", std::nullopt},
            {"+5", std::nullopt},
            {" 5", std::nullopt},
            {"5x", std::nullopt},
            {"2.5", std::nullopt},
            {"18446744073709551617", std::nullopt},
            {nullptr, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text != nullptr ? c.text : "(null)");
        EXPECT_EQ(mox::clock::parseSpeed(c.text), c.speed);
    }
}

TEST(ClockSpeedTest, APauseAtSpeedIsThatMuchShorterAndTheSimulatedClockRunsOnByAllOfIt) {
    mox::clock::setSpeed(50);
    const uint64_t beforeMs = world().at("clockMs").get<uint64_t>();
    RecordingInterrupt interrupt;
    pollWaitInterruptible(200'000'000, interrupt);  // 200 s of the box's time
    EXPECT_EQ(interrupt.waitedUs, 4'000'000u);
    // The 4 s asked of real time were not slept here: the clock ran on by the other 196 s.
    const nlohmann::json after = world();
    EXPECT_GE(after.at("clockMs").get<uint64_t>() - beforeMs, 196'000u);
    EXPECT_LT(after.at("clockMs").get<uint64_t>() - beforeMs, 197'000u);
    EXPECT_EQ(after.at("clockSpeed"), 50);
}

TEST(ClockSpeedTest, SpeedOneIsTheBoxsOwnTiming) {
    mox::clock::setSpeed(1);
    const uint64_t beforeMs = world().at("clockMs").get<uint64_t>();
    RecordingInterrupt interrupt;
    pollWaitInterruptible(200'000'000, interrupt);
    EXPECT_EQ(interrupt.waitedUs, 200'000'000u);
    const nlohmann::json after = world();
    EXPECT_LT(after.at("clockMs").get<uint64_t>() - beforeMs, 200'000u);
    EXPECT_EQ(after.at("clockSpeed"), 1);
}

}  // namespace
