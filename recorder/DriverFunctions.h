// The driver's entry points as a trace names them: one table that the recorder writes from and a
// replay reads with, so the two cannot disagree on a name, an argument or a record's size.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/MoxEntryPoints.h"

namespace mox::trace {

using DriverFunction = ::mox::DriverFunction;
constexpr size_t kDriverFunctionCount = kEntryPointCount;

// What a call is addressed to: its scalar arguments go by these names in a record.
enum class Target : uint8_t { None, Tuner, Lnb, DataPath };

// How a trace records each entry point, in the list's order (the C name comes from the list).
struct DriverFunctionInfo {
    const char* name;   // the C entry point's name
    Target target;      // the first argument: "tuner", "lnb" or "path"
    const char* value;  // the name of the second scalar argument, or nullptr
    size_t inSize;      // bytes of the record passed by value, 0 when none
    size_t outSize;     // bytes of the record the driver fills, 0 when none
};

extern const DriverFunctionInfo kDriverFunctions[kDriverFunctionCount];

inline const DriverFunctionInfo& infoOf(DriverFunction f) {
    return kDriverFunctions[static_cast<size_t>(f)];
}

// The key that orders a call against others: calls to one tuner keep their order, as do calls
// to one LNB; "driver" holds the calls that address no tuner.
const char* targetName(Target target);

}  // namespace mox::trace
