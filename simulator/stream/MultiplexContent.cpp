#include "simulator/stream/MultiplexContent.h"

namespace mox::air {

const char* tableName(Table table) {
    constexpr const char* kNames[kTables] = {"PAT",       "CAT", "PMT", "NIT", "SDT",
                                             "SDT-other", "EIT", "TDT", "TOT"};
    return kNames[static_cast<size_t>(table)];
}

bool StreamFaults::any() const {
    bool missingAny = false;
    for (bool m : missing) missingAny = missingAny || m;
    return continuityErrorsPerS > 0 || crcErrorsPerS > 0 || overflowPercent > 0 || missingAny;
}

}  // namespace mox::air
