// The simulated world while the service runs: changes in words, what they do to the driver's
// answers on the simulator's clock, and timelines in installation files.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "simulator/Environment.h"
#include "simulator/SimulatedDriver.h"

namespace {

using namespace mox::sim;
using Kind = WorldChange::Kind;

TEST(WorldTest, ChangesAreReadFromTheirWords) {
    struct Case {
        const char* text;
        Kind kind;
        uint32_t frequencyMHz;
        float value;
        uint32_t overMs;
    } const cases[] = {
            {"transmitter 474MHz off", Kind::kTransmitterOff, 474, 0, 0},
            {"transmitter 474MHz on", Kind::kTransmitterOn, 474, 0, 0},
            {"transmitter 11362MHz level 40.5", Kind::kFigure, 11362, 40.5f, 0},
            {"transmitter 474MHz cn 12 over 10s", Kind::kFigure, 474, 12, 10000},
            {"transmitter 474MHz level 30 over 250ms", Kind::kFigure, 474, 30, 250},
            {"transmitter 474MHz ber 1e-3", Kind::kFigure, 474, 1e-3f, 0},
            {"  disconnect   dish ", Kind::kDisconnect, 0, 0, 0},
            {"connect cable", Kind::kConnect, 0, 0, 0},
            {"fail Scan -3 first 1", Kind::kFail, 0, 0, 0},
            {"heal Scan", Kind::kHeal, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        WorldChange change;
        std::string error;
        ASSERT_TRUE(parseWorldChange(c.text, change, error)) << error;
        EXPECT_EQ(change.kind, c.kind);
        EXPECT_EQ(change.frequencyMHz, c.frequencyMHz);
        EXPECT_FLOAT_EQ(change.value, c.value);
        EXPECT_EQ(change.overMs, c.overMs);
    }
    WorldChange fail;
    std::string error;
    ASSERT_TRUE(parseWorldChange("fail SendDiSEqCCmd 5 every 3", fail, error));
    EXPECT_EQ(fail.function, DriverFunction::SendDiSEqCCmd);
    EXPECT_EQ(fail.fault.result, 5);
    EXPECT_EQ(fail.fault.every, 3u);
}

TEST(WorldTest, BadChangesSayWhatIsWrong) {
    struct Case {
        const char* text;
        const char* words;
    } const cases[] = {
            {"", "no change given"},
            {"explode", "unknown change 'explode'"},
            {"transmitter 474 off", "by its frequency in MHz"},
            {"transmitter 474MHz dim", "after the frequency"},
            {"transmitter 474MHz level loud", "after the frequency"},
            {"transmitter 474MHz ber 1 over 2s", "over DURATION"},
            {"transmitter 474MHz level 30 over soon", "over DURATION"},
            {"disconnect satellite", "cable, antenna or dish"},
            {"fail Tune -1", "a driver function"},
            {"fail Scan 0", "non-zero result"},
            {"fail Scan -1 sometimes", "'first N' or 'every N'"},
            {"heal Scan now", "takes nothing more"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        WorldChange change;
        std::string error;
        EXPECT_FALSE(parseWorldChange(c.text, change, error));
        EXPECT_NE(error.find(c.words), std::string::npos) << error;
    }
}

// The built-in box on a clock the test moves.
class WorldDriverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mDriver.setClock([this] { return mNowUs; });
        mDriver.setEnvironment(SimulatedDriver::defaultCapabilities(),
                               SimulatedDriver::defaultAir());
    }
    void change(const std::string& text) {
        WorldChange c;
        std::string error;
        ASSERT_TRUE(parseWorldChange(text, c, error)) << error;
        ASSERT_TRUE(mDriver.change(c, error)) << error;
    }
    void tuneTerrestrial(uint32_t mhz) {
        MOX_TunerParam_t param{};
        param.eTunerType = MOX_TUNER_TYPE_DVBT;
        param.eBandwidth = MOX_TUNER_BW_AUTO;
        param.uiFreqMHz = mhz;
        ASSERT_EQ(mDriver.scan(0, param), 0);
    }
    bool locked() { return mDriver.isLocked(0) == 0; }
    nlohmann::json world() { return nlohmann::json::parse(mDriver.describe()); }
    void after(uint64_t ms) { mNowUs += ms * 1000; }

    uint64_t mNowUs = 1000000;
    SimulatedDriver mDriver;
};

TEST_F(WorldDriverTest, ATransmitterOffAirOrAnInputUnpluggedTakesTheLockUntilItIsBack) {
    tuneTerrestrial(482);
    after(400);
    ASSERT_TRUE(locked());
    change("transmitter 482MHz off");
    EXPECT_FALSE(locked());
    change("transmitter 482MHz on");
    EXPECT_TRUE(locked());
    change("disconnect antenna");
    EXPECT_FALSE(locked());
    EXPECT_FALSE(world()["inputs"]["antenna"].get<bool>());
    change("connect antenna");
    EXPECT_TRUE(locked());

    // Tuned while nothing was there, the tuner acquires a transmitter that comes on air.
    change("transmitter 650MHz off");
    tuneTerrestrial(650);
    after(1000);
    EXPECT_FALSE(locked());
    change("transmitter 650MHz on");
    EXPECT_FALSE(locked()) << "the lock delay runs from when the signal appeared";
    after(1000);
    EXPECT_TRUE(locked());
    const nlohmann::json tuner = world()["tuners"][0];
    EXPECT_EQ(tuner["asked"]["frequencyMHz"], 650);
    EXPECT_EQ(tuner["transmitterMHz"], 650);
    EXPECT_TRUE(tuner["locked"].get<bool>());
}

TEST_F(WorldDriverTest, FiguresChangeAtOnceOrRampOnTheSimulatedClock) {
    change("transmitter 482MHz level 20 over 1000ms");
    after(500);
    nlohmann::json tx = world()["transmitters"][1];
    ASSERT_EQ(tx["frequencyMHz"], 482);
    EXPECT_NEAR(tx["levelDbuV"].get<double>(), 39.0, 0.01) << "half way from 58 to 20";
    after(600);
    EXPECT_NEAR(world()["transmitters"][1]["levelDbuV"].get<double>(), 20.0, 0.01);
    change("transmitter 482MHz cn 9");
    EXPECT_NEAR(world()["transmitters"][1]["cnDb"].get<double>(), 9.0, 0.01);
    WorldChange unknown;
    std::string error;
    ASSERT_TRUE(parseWorldChange("transmitter 999MHz off", unknown, error));
    EXPECT_FALSE(mDriver.change(unknown, error));
    EXPECT_EQ(error, "no transmitter at 999 MHz");
}

TEST_F(WorldDriverTest, FaultsComeAndGoFromNowOn) {
    change("fail Scan -3 first 1");
    MOX_TunerParam_t param{};
    param.eTunerType = MOX_TUNER_TYPE_DVBT;
    param.uiFreqMHz = 482;
    EXPECT_EQ(mDriver.scan(0, param), -3);
    EXPECT_EQ(mDriver.scan(0, param), 0) << "only the first call from the change on";
    change("fail Release 7");
    auto faultOf = [&](const char* function) {
        const nlohmann::json now = world();
        for (const auto& fault : now["faults"]) {
            if (fault["function"] == function) return fault["result"].get<int>();
        }
        return 0;
    };
    EXPECT_EQ(faultOf("Release"), 7);
    EXPECT_EQ(mDriver.release(0), 7);
    change("heal Release");
    EXPECT_EQ(mDriver.release(0), 0);
    EXPECT_EQ(faultOf("Release"), 0);
    change("heal Scan");
    EXPECT_TRUE(world()["faults"].empty());
}

TEST_F(WorldDriverTest, ATimelineChangesTheWorldAsTheClockRuns) {
    const Environment env = parseEnvironment(R"({
      "frontends": [{"systems": ["DVB-T"], "channels": 1, "frequencyMHz": {"min": 47, "max": 862},
                     "bandwidths": ["8MHz"]}],
      "transmitters": [{"system": "DVB-T", "frequencyMHz": 482, "bandwidth": "8MHz"}],
      "timeline": [{"at": "30s", "do": "transmitter 482MHz on"},
                   {"at": "0s", "do": "transmitter 482MHz off"}]
    })",
                                             "box.json");
    ASSERT_EQ(env.timeline.size(), 2u);
    mDriver.setEnvironment(env.capability, env.air, env.misbehaviour);
    mDriver.setTimeline(env.timeline);
    EXPECT_FALSE(world()["transmitters"][0]["onAir"].get<bool>()) << "at 0 s, in time order";
    after(29000);
    EXPECT_FALSE(world()["transmitters"][0]["onAir"].get<bool>());
    after(1000);
    EXPECT_TRUE(world()["transmitters"][0]["onAir"].get<bool>());
}

TEST(WorldTimelineFileTest, ABadTimelineIsOneLineNamingTheEntry) {
    struct Case {
        const char* timeline;
        const char* message;
    } const cases[] = {
            {R"([{"at": "soon", "do": "transmitter 482MHz off"}])", "timeline[0].at: must be"},
            {R"([{"at": "5", "do": "transmitter 482MHz off"}])", "timeline[0].at: must be"},
            {R"([{"at": "5s", "do": "transmitter 999MHz off"}])",
             "timeline[0].do: no transmitter at 999 MHz"},
            {R"([{"at": "5s", "do": "explode"}])", "timeline[0].do: unknown change"},
            {R"([{"at": "5s"}])", "timeline[0]"},
            {R"([{"at": "5s", "do": "connect dish", "when": 1}])", "unknown field"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.timeline);
        const std::string file = std::string(R"({"frontends": [{"systems": ["DVB-T"], "channels": 1,
          "frequencyMHz": {"min": 47, "max": 862}, "bandwidths": ["8MHz"]}],
          "transmitters": [{"system": "DVB-T", "frequencyMHz": 482, "bandwidth": "8MHz"}],
          "timeline": )") + c.timeline +
                                 "}";
        try {
            parseEnvironment(file, "box.json");
            ADD_FAILURE() << "accepted";
        } catch (const EnvironmentError& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
            EXPECT_EQ(std::string(e.what()).rfind("box.json:", 0), 0u) << e.what();
        }
    }
}

}  // namespace
