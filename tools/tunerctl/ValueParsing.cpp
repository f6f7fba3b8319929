#include "ValueParsing.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

std::string normalized(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            out += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

// A decimal number followed by one of the given unit suffixes (upper case), scaled by it.
std::optional<uint32_t> parseScaled(const std::string& text,
                                    const std::vector<std::pair<std::string, double>>& units) {
    const std::string s = normalized(text);
    if (s.empty()) return std::nullopt;
    char* end = nullptr;
    const double number = std::strtod(s.c_str(), &end);
    if (end == s.c_str() || !std::isfinite(number) || number < 0) return std::nullopt;
    const std::string suffix(end);
    for (const auto& [unit, scale] : units) {
        if (suffix != unit) continue;
        const double value = std::round(number * scale);
        if (value > UINT32_MAX) return std::nullopt;
        return static_cast<uint32_t>(value);
    }
    return std::nullopt;
}

template <typename E>
std::optional<E> lookup(const std::string& text,
                        const std::vector<std::pair<std::string, E>>& names) {
    const std::string s = normalized(text);
    for (const auto& [name, value] : names) {
        if (s == name) return value;
    }
    return std::nullopt;
}

}  // namespace

std::optional<uint32_t> parseFrequencyHz(const std::string& text) {
    return parseScaled(text, {{"HZ", 1.0}, {"KHZ", 1e3}, {"MHZ", 1e6}, {"GHZ", 1e9}});
}

std::optional<uint32_t> parseFrequencyKHz(const std::string& text) {
    return parseScaled(text, {{"HZ", 1e-3}, {"KHZ", 1.0}, {"MHZ", 1e3}, {"GHZ", 1e6}});
}

std::optional<uint32_t> parseSymbolRate(const std::string& text) {
    return parseScaled(text, {{"", 1.0}, {"K", 1e3}, {"M", 1e6}, {"KSYM", 1e3}, {"MSYM", 1e6}});
}

std::optional<FrontendDvbtBandwidth> parseBandwidth(const std::string& text) {
    using B = FrontendDvbtBandwidth;
    return lookup<B>(text, {{"AUTO", B::AUTO},
                            {"8MHZ", B::BANDWIDTH_8MHZ},
                            {"7MHZ", B::BANDWIDTH_7MHZ},
                            {"6MHZ", B::BANDWIDTH_6MHZ},
                            {"5MHZ", B::BANDWIDTH_5MHZ},
                            {"1.7MHZ", B::BANDWIDTH_1_7MHZ},
                            {"10MHZ", B::BANDWIDTH_10MHZ}});
}

std::optional<FrontendDvbtStandard> parseDvbtStandard(const std::string& text) {
    using S = FrontendDvbtStandard;
    return lookup<S>(text, {{"T", S::T}, {"T2", S::T2}, {"AUTO", S::AUTO}});
}

std::optional<FrontendDvbsStandard> parseDvbsStandard(const std::string& text) {
    using S = FrontendDvbsStandard;
    return lookup<S>(text, {{"S", S::S}, {"S2", S::S2}, {"S2X", S::S2X}, {"AUTO", S::AUTO}});
}

std::optional<FrontendDvbcModulation> parseDvbcModulation(const std::string& text) {
    using M = FrontendDvbcModulation;
    return lookup<M>(text, {{"16QAM", M::MOD_16QAM},
                            {"32QAM", M::MOD_32QAM},
                            {"64QAM", M::MOD_64QAM},
                            {"128QAM", M::MOD_128QAM},
                            {"256QAM", M::MOD_256QAM},
                            {"AUTO", M::AUTO}});
}

std::optional<FrontendDvbcAnnex> parseAnnex(const std::string& text) {
    using A = FrontendDvbcAnnex;
    return lookup<A>(text, {{"A", A::A}, {"B", A::B}, {"C", A::C}});
}

std::optional<LnbVoltage> parseVoltage(const std::string& text) {
    using V = LnbVoltage;
    return lookup<V>(text, {{"NONE", V::NONE},
                            {"OFF", V::NONE},
                            {"5V", V::VOLTAGE_5V},
                            {"11V", V::VOLTAGE_11V},
                            {"12V", V::VOLTAGE_12V},
                            {"13V", V::VOLTAGE_13V},
                            {"14V", V::VOLTAGE_14V},
                            {"15V", V::VOLTAGE_15V},
                            {"18V", V::VOLTAGE_18V},
                            {"19V", V::VOLTAGE_19V}});
}

std::optional<LnbTone> parseTone(const std::string& text) {
    return lookup<LnbTone>(text, {{"ON", LnbTone::CONTINUOUS}, {"OFF", LnbTone::NONE}});
}

std::optional<LnbPosition> parsePosition(const std::string& text) {
    using P = LnbPosition;
    return lookup<P>(text, {{"A", P::POSITION_A}, {"B", P::POSITION_B}, {"NONE", P::UNDEFINED}});
}

std::optional<std::vector<uint8_t>> parseDiseqc(const std::string& text) {
    const std::string hex = normalized(text);
    if (hex.empty() || hex.size() % 2 != 0) return std::nullopt;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        if (!std::isxdigit(static_cast<unsigned char>(hex[i])) ||
            !std::isxdigit(static_cast<unsigned char>(hex[i + 1]))) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace tunerctl

namespace tunerctl {

std::optional<std::chrono::milliseconds> parseDuration(const std::string& text) {
    static const std::pair<const char*, double> kUnits[] = {{"ms", 1}, {"s", 1000}, {"m", 60000}};
    for (const auto& [unit, scale] : kUnits) {
        const size_t length = strlen(unit);
        if (text.size() <= length || text.compare(text.size() - length, length, unit) != 0) {
            continue;
        }
        const std::string number = text.substr(0, text.size() - length);
        char* end = nullptr;
        const double value = strtod(number.c_str(), &end);
        if (end != number.c_str() + number.size() || !(value >= 0) || value * scale > 86400e3) {
            return std::nullopt;
        }
        return std::chrono::milliseconds(static_cast<int64_t>(value * scale));
    }
    return std::nullopt;
}

}  // namespace tunerctl
