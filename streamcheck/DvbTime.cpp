#include "streamcheck/DvbTime.h"

#include <ctime>

namespace mox::streamcheck {

namespace {

constexpr int64_t kMjdOfUnixEpoch = 40587;  // 1970-01-01

bool bcd(uint8_t byte, int limit, int& value) {
    const int high = byte >> 4;
    const int low = byte & 0xF;
    if (high > 9 || low > 9) return false;
    value = high * 10 + low;
    return value < limit;
}

bool hms(const uint8_t* bytes, int hourLimit, uint32_t& seconds) {
    int h = 0, m = 0, s = 0;
    if (!bcd(bytes[0], hourLimit, h) || !bcd(bytes[1], 60, m) || !bcd(bytes[2], 60, s)) {
        return false;
    }
    seconds = static_cast<uint32_t>(h * 3600 + m * 60 + s);
    return true;
}

}  // namespace

bool utcFromMjdBcd(const uint8_t* bytes, int64_t& utc) {
    const int64_t mjd = (bytes[0] << 8) | bytes[1];
    uint32_t seconds = 0;
    if (!hms(bytes + 2, 24, seconds)) return false;
    utc = (mjd - kMjdOfUnixEpoch) * 86400 + seconds;
    return true;
}

bool secondsFromBcd(const uint8_t* bytes, uint32_t& seconds) {
    return hms(bytes, 100, seconds);
}

std::string formatUtc(int64_t utc) {
    const time_t t = static_cast<time_t>(utc);
    struct tm tm {};
    if (gmtime_r(&t, &tm) == nullptr) return "?";
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

}  // namespace mox::streamcheck
