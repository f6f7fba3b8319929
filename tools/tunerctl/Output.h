// Human-readable and JSON renderings of what the service answers.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;

// A JSON object built field by field; values are numbers, strings, booleans or nested JSON.
class JsonObject {
  public:
    JsonObject& add(const std::string& key, int64_t value);
    JsonObject& add(const std::string& key, uint64_t value);
    JsonObject& add(const std::string& key, uint32_t value) { return add(key, uint64_t{value}); }
    JsonObject& add(const std::string& key, int32_t value) { return add(key, int64_t{value}); }
    JsonObject& add(const std::string& key, bool value);
    JsonObject& add(const std::string& key, const std::string& value);
    JsonObject& add(const std::string& key, const char* value) {
        return add(key, std::string(value));
    }
    JsonObject& addRaw(const std::string& key, const std::string& json);
    std::string str() const { return "{" + mBody + "}"; }

  private:
    void key(const std::string& key);
    std::string mBody;
};

std::string jsonString(const std::string& text);
std::string jsonArray(const std::vector<std::string>& jsonValues);
std::vector<std::string> jsonStrings(const std::vector<std::string>& texts);

// The names of the enumerators of E whose bits are set in mask, each value once by its first name
// (some enumerators share a value: FrontendInnerFec's FEC_29_45 to FEC_77_90, beyond 32 bits in
// the interface file, came out of the generator as the low bits).
template <typename E>
std::vector<std::string> flagNames(uint64_t mask) {
    std::vector<std::string> names;
    uint64_t named = 0;
    for (E value : ::android::hardware::hidl_enum_range<E>()) {
        const uint64_t bits = static_cast<uint64_t>(value);
        if (bits == 0 || (mask & bits) != bits || (named & bits) == bits) continue;
        named |= bits;
        names.push_back(toString(value));
    }
    return names;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator);
// A PID, service id or table id as DVB tools write it: "0x0021".
std::string hex4(uint32_t value);

std::string describeFrontend(uint32_t id, const hal::FrontendInfo& info);
std::string frontendJson(uint32_t id, const hal::FrontendInfo& info);

// Reports a failure as one line: {"error": ..., "exit": code} on stdout for --json, the message on
// stderr otherwise. Returns code.
int reportFailure(bool json, int code, const std::string& message);

}  // namespace tunerctl
