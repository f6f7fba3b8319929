#include "recorder/JsonText.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>

namespace mox::trace {

void appendQuoted(std::string& out, const char* text, size_t size) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (size_t i = 0; i < size; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            // Anything outside printable ASCII is escaped byte by byte, so a line stays one line
            // and a reader gets back the same bytes.
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
}

void appendHex(std::string& out, const void* bytes, size_t size) {
    static const char kHex[] = "0123456789abcdef";
    const auto* b = static_cast<const unsigned char*>(bytes);
    out += '"';
    for (size_t i = 0; i < size; ++i) {
        out += kHex[b[i] >> 4];
        out += kHex[b[i] & 15];
    }
    out += '"';
}

void appendNumber(std::string& out, int64_t value) {
    char text[24];
    const int n = snprintf(text, sizeof(text), "%" PRId64, value);
    out.append(text, static_cast<size_t>(n));
}

void appendUnsigned(std::string& out, uint64_t value) {
    char text[24];
    const int n = snprintf(text, sizeof(text), "%" PRIu64, value);
    out.append(text, static_cast<size_t>(n));
}

namespace {
bool appendNonFinite(std::string& out, double value) {
    if (std::isnan(value)) {
        out += "\"NaN\"";
        return true;
    }
    if (std::isinf(value)) {
        out += value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
        return true;
    }
    return false;
}
}  // namespace

void appendNumber(std::string& out, float value) {
    if (appendNonFinite(out, value)) return;
    char text[32];
    const int n = snprintf(text, sizeof(text), "%.9g", static_cast<double>(value));
    out.append(text, static_cast<size_t>(n));
}

void appendNumber(std::string& out, double value) {
    if (appendNonFinite(out, value)) return;
    char text[32];
    // 17 significant digits bring every double back exactly, floats included.
    const int n = snprintf(text, sizeof(text), "%.17g", value);
    out.append(text, static_cast<size_t>(n));
}

}  // namespace mox::trace
