// UTC times and durations as DVB SI sends them: a 16-bit Modified Julian Date and BCD digits.
//
// libdvbv5's dvb_time() is not used: it reads the date in the host's byte order and passes the
// result through mktime() in the process's local zone, so a UTC time that falls in a local
// summer-time gap comes out an hour off, and the result depends on TZ.
#pragma once

#include <cstdint>
#include <string>

namespace mox::streamcheck {

// Seconds since 1970-01-01 00:00 UTC from 5 bytes (MJD, then hours, minutes, seconds in BCD).
// False when a digit is not decimal or a field is out of range (all 0xFF: undefined).
bool utcFromMjdBcd(const uint8_t* bytes, int64_t& utc);
// Seconds from 3 BCD bytes (hours, minutes, seconds).
bool secondsFromBcd(const uint8_t* bytes, uint32_t& seconds);
// "2024-03-01T12:00:00Z".
std::string formatUtc(int64_t utc);

}  // namespace mox::streamcheck
