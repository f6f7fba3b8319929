#include "recorder/DriverFunctions.h"

#include "driver/MoxTuner.h"

namespace mox::trace {

// In the list's order (checked below); the names are the list's own.
const DriverFunctionInfo kDriverFunctions[kDriverFunctionCount] = {
        {namesOf(DriverFunction::Init).cName, Target::None, nullptr, 0, 0},
        {namesOf(DriverFunction::GetCapabilities).cName, Target::None, nullptr, 0,
         sizeof(MOX_TunerCapability_t)},
        {namesOf(DriverFunction::Scan).cName, Target::Tuner, nullptr, sizeof(MOX_TunerParam_t), 0},
        {namesOf(DriverFunction::IsLocked).cName, Target::Tuner, nullptr, 0, 0},
        {namesOf(DriverFunction::GetInfo).cName, Target::Tuner, nullptr, 0,
         sizeof(MOX_TunerSignalInfo_t)},
        {namesOf(DriverFunction::GetParamInfo).cName, Target::Tuner, nullptr, 0,
         sizeof(MOX_TunerParamInfo_t)},
        {namesOf(DriverFunction::Release).cName, Target::Tuner, nullptr, 0, 0},
        {namesOf(DriverFunction::SetLNBMode).cName, Target::Lnb, "mode", 0, 0},
        {namesOf(DriverFunction::Set22KContinues).cName, Target::Lnb, "on", 0, 0},
        {namesOf(DriverFunction::SendDiSEqCToneBurst).cName, Target::Lnb, "burst", 0, 0},
        {namesOf(DriverFunction::SendDiSEqCCmd).cName, Target::Lnb, nullptr,
         sizeof(MOX_DiSEqCCmd_t), 0},
        {namesOf(DriverFunction::DvbSetSMP).cName, Target::DataPath, "enable", 0, 0},
};

static_assert(sizeof(kDriverFunctions) / sizeof(kDriverFunctions[0]) == kEntryPointCount);

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
