#include "ServiceDump.h"

#include <nlohmann/json.hpp>

namespace tunerctl {

namespace {

using nlohmann::json;

// Reads one key as T; throws json::exception when it is missing or of another type.
template <typename T>
T field(const json& object, const char* key) {
    return object.at(key).get<T>();
}

FrontendDump frontendOf(const json& entry) {
    FrontendDump f;
    f.id = field<uint32_t>(entry, "id");
    f.type = field<std::string>(entry, "type");
    f.locked = field<bool>(entry, "locked");
    f.scanRunning = field<bool>(entry, "scanRunning");
    f.callback = field<std::string>(entry, "callback");
    const json& pid = entry.at("callbackPid");
    if (!pid.is_null()) f.callbackPid = pid.get<int32_t>();
    f.notMeasured = field<std::vector<std::string>>(entry, "notMeasured");
    if (f.callback != "none" && f.callback != "set" && f.callback != "gone") {
        throw std::invalid_argument("callback '" + f.callback + "' is none, set or gone");
    }
    return f;
}

}  // namespace

const FrontendDump* ServiceDump::frontend(uint32_t id) const {
    for (const FrontendDump& f : frontends) {
        if (f.id == id) return &f;
    }
    return nullptr;
}

std::optional<ServiceDump> parseServiceDump(const std::string& text, std::string& error) {
    try {
        const json document = json::parse(text);
        ServiceDump dump;
        dump.discovered = field<bool>(document, "discovered");
        for (const json& entry : document.at("frontends")) {
            dump.frontends.push_back(frontendOf(entry));
        }
        dump.demuxes = field<std::vector<uint32_t>>(document, "demuxes");
        for (const json& binding : document.at("bindings")) {
            dump.bindings[field<uint32_t>(binding, "frontend")] = field<uint32_t>(binding, "demux");
        }
        return dump;
    } catch (const std::exception& e) {
        error = std::string("the service's dump is not of the form tunerctl reads: ") + e.what();
        return std::nullopt;
    }
}

}  // namespace tunerctl
