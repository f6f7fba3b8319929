// The few pieces of JSON a trace line is written with: no library, so the device build can
// carry the recorder as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace mox::trace {

void appendQuoted(std::string& out, const char* text, size_t size);
inline void appendQuoted(std::string& out, const std::string& text) {
    appendQuoted(out, text.data(), text.size());
}
// Bytes as lower-case hex, quoted.
void appendHex(std::string& out, const void* bytes, size_t size);
void appendNumber(std::string& out, int64_t value);
void appendUnsigned(std::string& out, uint64_t value);
// JSON has no NaN or infinity: those are written as the strings "NaN", "Infinity", "-Infinity".
void appendNumber(std::string& out, double value);
// A float with the 9 digits that bring it back exactly.
void appendNumber(std::string& out, float value);

}  // namespace mox::trace
