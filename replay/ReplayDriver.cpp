// The driver as a replay sees it: the service is linked with --wrap for each entry point, so its
// calls come here and are answered from the trace; __real_* (the simulator) answers what the
// trace does not have.
#include <string>

#include "driver/MoxTuner.h"
#include "recorder/RealDriver.h"
#include "replay/Replay.h"

using mox::trace::DriverCall;
using mox::trace::DriverFunction;

namespace {

template <typename Fallback>
int answered(DriverFunction function, int64_t target, int64_t value, const void* in, size_t inSize,
             void* filled, Fallback fallback) {
    mox::trace::Replay* replay = mox::trace::activeReplay();
    if (replay == nullptr) return fallback();
    DriverCall call;
    call.function = function;
    call.target = target;
    call.value = value;
    if (in != nullptr) call.in.assign(static_cast<const char*>(in), inSize);
    return replay->answer(call, filled, fallback);
}

}  // namespace

extern "C" {

int __wrap_MOX_Tuner_Init(void) {
    return answered(DriverFunction::Init, 0, 0, nullptr, 0, nullptr,
                    [] { return __real_MOX_Tuner_Init(); });
}

int __wrap_MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    return answered(DriverFunction::GetCapabilities, 0, 0, capability, sizeof(*capability),
                    capability, [&] { return __real_MOX_Tuner_GetCapabilities(capability); });
}

int __wrap_MOX_Tuner_Scan(uint8_t tunerIndex, MOX_TunerParam_t param) {
    return answered(DriverFunction::Scan, tunerIndex, 0, &param, sizeof(param), nullptr,
                    [&] { return __real_MOX_Tuner_Scan(tunerIndex, param); });
}

int __wrap_MOX_Tuner_IsLocked(uint8_t tunerIndex) {
    return answered(DriverFunction::IsLocked, tunerIndex, 0, nullptr, 0, nullptr,
                    [&] { return __real_MOX_Tuner_IsLocked(tunerIndex); });
}

int __wrap_MOX_Tuner_GetInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info) {
    return answered(DriverFunction::GetInfo, tunerIndex, 0, info, sizeof(*info), info,
                    [&] { return __real_MOX_Tuner_GetInfo(tunerIndex, info); });
}

int __wrap_MOX_Tuner_GetParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info) {
    return answered(DriverFunction::GetParamInfo, tunerIndex, 0, info, sizeof(*info), info,
                    [&] { return __real_MOX_Tuner_GetParamInfo(tunerIndex, info); });
}

int __wrap_MOX_Tuner_Release(uint8_t tunerIndex) {
    return answered(DriverFunction::Release, tunerIndex, 0, nullptr, 0, nullptr,
                    [&] { return __real_MOX_Tuner_Release(tunerIndex); });
}

int __wrap_MOX_Tuner_SetLNBMode(int32_t lnbId, uint32_t mode) {
    return answered(DriverFunction::SetLNBMode, lnbId, mode, nullptr, 0, nullptr,
                    [&] { return __real_MOX_Tuner_SetLNBMode(lnbId, mode); });
}

int __wrap_MOX_Tuner_Set22KContinues(int32_t lnbId, uint32_t on) {
    return answered(DriverFunction::Set22KContinues, lnbId, on, nullptr, 0, nullptr,
                    [&] { return __real_MOX_Tuner_Set22KContinues(lnbId, on); });
}

int __wrap_MOX_Tuner_SendDiSEqCToneBurst(int32_t lnbId, uint32_t burst) {
    return answered(DriverFunction::SendDiSEqCToneBurst, lnbId, burst, nullptr, 0, nullptr,
                    [&] { return __real_MOX_Tuner_SendDiSEqCToneBurst(lnbId, burst); });
}

int __wrap_MOX_Tuner_SendDiSEqCCmd(int32_t lnbId, MOX_DiSEqCCmd_t cmd) {
    return answered(DriverFunction::SendDiSEqCCmd, lnbId, 0, &cmd, sizeof(cmd), nullptr,
                    [&] { return __real_MOX_Tuner_SendDiSEqCCmd(lnbId, cmd); });
}

int __wrap_MOX_DvbSetSMP(int path, int enable) {
    return answered(DriverFunction::DvbSetSMP, path, enable, nullptr, 0, nullptr,
                    [&] { return __real_MOX_DvbSetSMP(path, enable); });
}

}  // extern "C"
