// Parsing of the values a user types: frequencies with units, modulations, LNB settings.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;

// "474MHz", "474.5 MHz", "306000kHz", "474000000Hz" -> Hz; nullopt without a unit, when malformed
// or beyond 32 bits.
std::optional<uint32_t> parseFrequencyHz(const std::string& text);
// The same in kHz, for satellite downlinks beyond 4.29 GHz: "11778MHz" -> 11778000.
std::optional<uint32_t> parseFrequencyKHz(const std::string& text);
// "6900000", "6.9M", "6900k" -> symbols per second.
std::optional<uint32_t> parseSymbolRate(const std::string& text);
std::optional<hal::FrontendDvbtBandwidth> parseBandwidth(const std::string& text);  // "8MHz", "auto"
std::optional<hal::FrontendDvbtStandard> parseDvbtStandard(const std::string& text);  // T, T2, AUTO
std::optional<hal::FrontendDvbsStandard> parseDvbsStandard(
        const std::string& text);  // S, S2, S2X, AUTO
std::optional<hal::FrontendDvbcModulation> parseDvbcModulation(const std::string& text);  // "64QAM"
std::optional<hal::FrontendDvbcAnnex> parseAnnex(const std::string& text);                // A, B, C
std::optional<hal::LnbVoltage> parseVoltage(const std::string& text);    // "13V", "18V", "NONE"
std::optional<hal::LnbTone> parseTone(const std::string& text);          // on, off
std::optional<hal::LnbPosition> parsePosition(const std::string& text);  // A, B, NONE
// "10s", "500ms", "2m", "1.5s" -> milliseconds; nullopt without a unit or when malformed.
std::optional<std::chrono::milliseconds> parseDuration(const std::string& text);
// "E0 10 38 F0" or "e01038f0" -> bytes; nullopt when empty or a byte is malformed.
std::optional<std::vector<uint8_t>> parseDiseqc(const std::string& text);

}  // namespace tunerctl
