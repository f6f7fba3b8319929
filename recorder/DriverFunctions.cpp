#include "recorder/DriverFunctions.h"

#include "driver/MoxTuner.h"

namespace mox::trace {

const DriverFunctionInfo kDriverFunctions[kDriverFunctionCount] = {
        {"MOX_Tuner_Init", Target::None, nullptr, 0, 0},
        {"MOX_Tuner_GetCapabilities", Target::None, nullptr, 0, sizeof(MOX_TunerCapability_t)},
        {"MOX_Tuner_Scan", Target::Tuner, nullptr, sizeof(MOX_TunerParam_t), 0},
        {"MOX_Tuner_IsLocked", Target::Tuner, nullptr, 0, 0},
        {"MOX_Tuner_GetInfo", Target::Tuner, nullptr, 0, sizeof(MOX_TunerSignalInfo_t)},
        {"MOX_Tuner_GetParamInfo", Target::Tuner, nullptr, 0, sizeof(MOX_TunerParamInfo_t)},
        {"MOX_Tuner_Release", Target::Tuner, nullptr, 0, 0},
        {"MOX_Tuner_SetLNBMode", Target::Lnb, "mode", 0, 0},
        {"MOX_Tuner_Set22KContinues", Target::Lnb, "on", 0, 0},
        {"MOX_Tuner_SendDiSEqCToneBurst", Target::Lnb, "burst", 0, 0},
        {"MOX_Tuner_SendDiSEqCCmd", Target::Lnb, nullptr, sizeof(MOX_DiSEqCCmd_t), 0},
        {"MOX_DvbSetSMP", Target::DataPath, "enable", 0, 0},
};

const char* targetName(Target target) {
    switch (target) {
        case Target::Tuner:
            return "tuner";
        case Target::Lnb:
            return "lnb";
        case Target::DataPath:
            return "path";
        case Target::None:
            break;
    }
    return "driver";
}

}  // namespace mox::trace
