#include "FuzzDriver.h"

#include <cstring>

namespace fuzz {
MOX_TunerCapability_t gCapability;
MOX_TunerSignalInfo_t gSignal;
MOX_TunerParamInfo_t gParamInfo;
}  // namespace fuzz

extern "C" {
int MOX_Tuner_Init(void) {
    return 0;
}
int MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    *capability = fuzz::gCapability;
    return 0;
}
int MOX_Tuner_Scan(uint8_t, MOX_TunerParam_t) {
    return 0;
}
int MOX_Tuner_IsLocked(uint8_t) {
    return 1;
}
int MOX_Tuner_GetInfo(uint8_t, MOX_TunerSignalInfo_t* info) {
    *info = fuzz::gSignal;
    return 0;
}
int MOX_Tuner_GetParamInfo(uint8_t, MOX_TunerParamInfo_t* info) {
    *info = fuzz::gParamInfo;
    return 0;
}
int MOX_Tuner_Release(uint8_t) {
    return 0;
}
int MOX_Tuner_SetLNBMode(int32_t, uint32_t) {
    return 0;
}
int MOX_Tuner_Set22KContinues(int32_t, uint32_t) {
    return 0;
}
int MOX_Tuner_SendDiSEqCToneBurst(int32_t, uint32_t) {
    return 0;
}
int MOX_Tuner_SendDiSEqCCmd(int32_t, MOX_DiSEqCCmd_t) {
    return 0;
}
}

// The Tuner and its frontends keep each other alive, as in the service, so every input's objects
// stay allocated until the process ends; that is not a leak to report.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:implementation::Tuner::discoverFromCapabilitiesLocked\n"
           "leak:implementation::Tuner::addFallbackFrontendLocked\n";
}
