// The maker's library behind the wrapped entry points: a binary linked with --wrap=MOX_* reaches
// the real function as __real_MOX_*.
#pragma once

#include "driver/MoxTuner.h"

extern "C" {
#define MOX_ENTRY_POINT(id, name, library, params) int __real_##name params;
#include "driver/MoxEntryPoints.def"
#undef MOX_ENTRY_POINT
}
