// Reading a trace's scalars back: integers in range, floats (and the strings a trace writes for
// NaN and the infinities), booleans, strings, and enumerators by the names the recorder wrote.
#pragma once

#include <hidl/HidlSupport.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>

namespace mox::trace {

inline bool fail(std::string& error, const std::string& expected) {
    error = "expected " + expected;
    return false;
}
inline bool missing(std::string& error, const char* member) {
    error = std::string(member) + ": missing";
    return false;
}
// Puts the member's name before what went wrong inside it.
inline bool within(std::string& error, const char* member) {
    error = std::string(member) + (error.compare(0, 9, "expected ") == 0 ? ": " : ".") + error;
    return false;
}

inline bool readScalar(const nlohmann::json& in, bool& out, std::string& error) {
    if (!in.is_boolean()) return fail(error, "true or false");
    out = in.get<bool>();
    return true;
}

inline bool readScalar(const nlohmann::json& in, android::hardware::hidl_string& out,
                       std::string& error) {
    if (!in.is_string()) return fail(error, "a string");
    out = in.get<std::string>();
    return true;
}

template <typename T>
std::enable_if_t<std::is_floating_point_v<T>, bool> readScalar(const nlohmann::json& in, T& out,
                                                               std::string& error) {
    if (in.is_number()) {
        out = static_cast<T>(in.get<double>());
        return true;
    }
    if (in == "NaN") {
        out = std::numeric_limits<T>::quiet_NaN();
    } else if (in == "Infinity" || in == "-Infinity") {
        out = in == "Infinity" ? std::numeric_limits<T>::infinity()
                               : -std::numeric_limits<T>::infinity();
    } else {
        return fail(error, "a number");
    }
    return true;
}

template <typename T>
std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, bool> readScalar(
        const nlohmann::json& in, T& out, std::string& error) {
    if (in.is_number_unsigned()) {
        const uint64_t v = in.get<uint64_t>();
        if (v > static_cast<uint64_t>(std::numeric_limits<T>::max())) {
            return fail(error, "a number that fits");
        }
        out = static_cast<T>(v);
        return true;
    }
    if (in.is_number_integer()) {
        const int64_t v = in.get<int64_t>();
        if (v < static_cast<int64_t>(std::numeric_limits<T>::min()) ||
            (v > 0 &&
             static_cast<uint64_t>(v) > static_cast<uint64_t>(std::numeric_limits<T>::max()))) {
            return fail(error, "a number that fits");
        }
        out = static_cast<T>(v);
        return true;
    }
    return fail(error, "an integer");
}

// An enumerator by its name; a value no name has is written as its number in hex ("0x5").
template <typename E>
std::enable_if_t<std::is_enum_v<E>, bool> readScalar(const nlohmann::json& in, E& out,
                                                     std::string& error) {
    if (!in.is_string()) return fail(error, "an enumerator's name");
    const std::string name = in.get<std::string>();
    for (const E value : android::hardware::hidl_enum_range<E>()) {
        if (toString(value) == name) {
            out = value;
            return true;
        }
    }
    using U = std::underlying_type_t<E>;
    char* end = nullptr;
    const unsigned long long v = strtoull(name.c_str(), &end, 0);
    if (name.empty() || *end != '\0' ||
        v > static_cast<unsigned long long>(std::numeric_limits<std::make_unsigned_t<U>>::max())) {
        return fail(error, "an enumerator, not \"" + name + "\"");
    }
    out = static_cast<E>(static_cast<U>(v));
    return true;
}

}  // namespace mox::trace
