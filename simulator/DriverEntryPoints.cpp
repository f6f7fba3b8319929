// The driver's C entry points, served by the simulated box.
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "StreamInput.h"
#include "driver/MoxTuner.h"
#include "simulator/Environment.h"
#include "simulator/SimulatedDriver.h"

using mox::sim::simulator;

namespace {

// An installation file named by the environment replaces the built-in box as the process starts;
// a file the simulator cannot use ends the process with its one-line reason.
const bool gEnvironmentLoaded = [] {
    const char* path = std::getenv(mox::sim::kEnvironmentVariable);
    if (path == nullptr || *path == '\0') return false;
    try {
        mox::sim::Environment env = mox::sim::loadEnvironmentFile(path);
        simulator().setEnvironment(env.capability, std::move(env.air), std::move(env.misbehaviour));
        simulator().setTimeline(std::move(env.timeline));
        if (env.utcStart != 0) simulator().setUtcStart(env.utcStart);
    } catch (const mox::sim::EnvironmentError& e) {
        std::fprintf(stderr, "%s\n", e.what());
        std::exit(2);
    }
    return true;
}();

// The air the process's demuxes read: what each tuner of the simulated box receives.
class SimulatedAir : public mox::host::StreamInput {
  public:
    uint64_t nowUs() override { return simulator().nowUs(); }
    size_t read(uint8_t tunerIndex, uint64_t fromUs, uint8_t* out, size_t maxPackets) override {
        return simulator().readStream(tunerIndex, fromUs, UINT64_MAX, out, maxPackets);
    }
};

const bool gAirRegistered = [] {
    static SimulatedAir air;
    mox::host::setStreamInput(&air);
    return true;
}();

}  // namespace

extern "C" {

int MOX_Tuner_Init(void) {
    return simulator().init();
}
int MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    return simulator().getCapabilities(capability);
}
int MOX_Tuner_Scan(uint8_t tunerIndex, MOX_TunerParam_t param) {
    return simulator().scan(tunerIndex, param);
}
int MOX_Tuner_IsLocked(uint8_t tunerIndex) {
    return simulator().isLocked(tunerIndex);
}
int MOX_Tuner_GetInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info) {
    return simulator().getInfo(tunerIndex, info);
}
int MOX_Tuner_GetParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info) {
    return simulator().getParamInfo(tunerIndex, info);
}
int MOX_Tuner_Release(uint8_t tunerIndex) {
    return simulator().release(tunerIndex);
}
int MOX_Tuner_SetLNBMode(int32_t lnbId, uint32_t mode) {
    return simulator().setLnbMode(lnbId, mode);
}
int MOX_Tuner_Set22KContinues(int32_t lnbId, uint32_t on) {
    return simulator().set22k(lnbId, on);
}
int MOX_Tuner_SendDiSEqCToneBurst(int32_t lnbId, uint32_t burst) {
    return simulator().sendToneBurst(lnbId, burst);
}
int MOX_Tuner_SendDiSEqCCmd(int32_t lnbId, MOX_DiSEqCCmd_t cmd) {
    return simulator().sendDiseqc(lnbId, cmd);
}

}  // extern "C"
