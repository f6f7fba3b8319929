// The maker's entry points as values: an enumeration and their names, from the one list in
// MoxEntryPoints.def.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mox {

enum class DriverFunction : uint8_t {
#define MOX_ENTRY_POINT(id, name, library, params) id,
#include "driver/MoxEntryPoints.def"
#undef MOX_ENTRY_POINT
};

struct EntryPointNames {
    const char* shortName;  // "Scan"
    const char* cName;      // "MOX_Tuner_Scan"
    bool driver;            // the tuner driver's (false: the player library's)
};

inline constexpr EntryPointNames kEntryPoints[] = {
#define MOX_ENTRY_POINT(id, name, library, params) \
    {#id, #name, std::string_view(#library) == "DRIVER"},
#include "driver/MoxEntryPoints.def"
#undef MOX_ENTRY_POINT
};

inline constexpr size_t kEntryPointCount = sizeof(kEntryPoints) / sizeof(kEntryPoints[0]);

// The tuner driver's own entry points: the first ones of the list.
inline constexpr size_t driverEntryPointCount() {
    size_t count = 0;
    while (count < kEntryPointCount && kEntryPoints[count].driver) ++count;
    return count;
}
inline constexpr size_t kDriverEntryPointCount = driverEntryPointCount();
static_assert(kEntryPoints[kEntryPointCount - 1].driver == false &&
                      kDriverEntryPointCount == kEntryPointCount - 1,
              "the player library's entry point comes after the driver's");

inline constexpr const EntryPointNames& namesOf(DriverFunction f) {
    return kEntryPoints[static_cast<size_t>(f)];
}

}  // namespace mox
