// The service's dump in its machine-readable form (IBase::debug with the option "--json"), read
// strictly: a key that is missing or of another type is an error, so a renamed field shows at
// once instead of reading as "no".
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

struct FrontendDump {
    uint32_t id = 0;
    std::string type;  // FrontendType's enumerator name, e.g. "DVBT"
    bool locked = false;
    bool scanRunning = false;
    std::string callback;                // "none", "set" or "gone" (its process no longer answers)
    std::optional<int32_t> callbackPid;  // the process of a callback that is set
    std::vector<std::string> notMeasured;  // status types answered with a fixed value
};

struct ServiceDump {
    bool discovered = false;
    std::vector<FrontendDump> frontends;
    std::vector<uint32_t> demuxes;
    std::map<uint32_t, uint32_t> bindings;  // frontend id -> demux id

    const FrontendDump* frontend(uint32_t id) const;
};

// The option that asks the service for this form.
inline constexpr const char* kDumpJsonOption = "--json";

// Reads the service's answer; nullopt with a one-line reason when it is not of this form.
std::optional<ServiceDump> parseServiceDump(const std::string& json, std::string& error);

}  // namespace tunerctl
