// The player library's secure media path switch.
#include "MoxHostRecord.h"
#include "driver/MoxTuner.h"

extern "C" int MOX_DvbSetSMP(int path, int enable) {
    mox::host::recordSmp(path, enable);
    return 0;
}
