#pragma once

#include <cmath>
#include <limits>
#include <type_traits>

namespace android::hardware::tv::tuner::V1_0::implementation {

// Converts toward zero, giving the target's nearest limit beyond its range and 0 for NaN, where a
// plain cast would be undefined.
template <typename Int>
Int saturatingCast(float value) {
    static_assert(std::is_integral<Int>::value, "integer targets only");
    if (std::isnan(value)) return 0;
    // Both limits are powers of two (or 0), so they are exact as floats.
    constexpr float kUpperBound = static_cast<float>(std::numeric_limits<Int>::max()) + 1.0f;
    constexpr float kLowerBound = static_cast<float>(std::numeric_limits<Int>::min());
    if (value >= kUpperBound) return std::numeric_limits<Int>::max();
    if (value <= kLowerBound) return std::numeric_limits<Int>::min();
    return static_cast<Int>(value);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
