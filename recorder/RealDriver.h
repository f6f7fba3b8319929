// The maker's library behind the wrapped entry points: a binary linked with --wrap=MOX_* reaches
// the real function as __real_MOX_*.
#pragma once

#include "driver/MoxTuner.h"

extern "C" {
int __real_MOX_Tuner_Init(void);
int __real_MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability);
int __real_MOX_Tuner_Scan(uint8_t tunerIndex, MOX_TunerParam_t param);
int __real_MOX_Tuner_IsLocked(uint8_t tunerIndex);
int __real_MOX_Tuner_GetInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info);
int __real_MOX_Tuner_GetParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info);
int __real_MOX_Tuner_Release(uint8_t tunerIndex);
int __real_MOX_Tuner_SetLNBMode(int32_t lnbId, uint32_t mode);
int __real_MOX_Tuner_Set22KContinues(int32_t lnbId, uint32_t on);
int __real_MOX_Tuner_SendDiSEqCToneBurst(int32_t lnbId, uint32_t burst);
int __real_MOX_Tuner_SendDiSEqCCmd(int32_t lnbId, MOX_DiSEqCCmd_t cmd);
int __real_MOX_DvbSetSMP(int path, int enable);
}
