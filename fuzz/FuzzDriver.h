// A driver whose records are whatever the fuzzer put into these buffers.
#pragma once

#include "driver/MoxTuner.h"

namespace fuzz {
extern MOX_TunerCapability_t gCapability;
extern MOX_TunerSignalInfo_t gSignal;
extern MOX_TunerParamInfo_t gParamInfo;
}  // namespace fuzz
