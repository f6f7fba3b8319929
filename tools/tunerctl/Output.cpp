#include "Output.h"

#include <cstdio>
#include <iostream>
#include <sstream>

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

struct CapabilityFields {
    std::string kind;
    std::vector<std::pair<std::string, std::vector<std::string>>> lists;
    std::vector<std::pair<std::string, bool>> flags;
};

CapabilityFields capabilityFields(const FrontendInfo::FrontendCapabilities& caps) {
    using D = FrontendInfo::FrontendCapabilities::hidl_discriminator;
    CapabilityFields fields;
    switch (caps.getDiscriminator()) {
        case D::dvbcCaps: {
            const auto& c = caps.dvbcCaps();
            fields.kind = "dvbc";
            fields.lists = {{"modulation", flagNames<FrontendDvbcModulation>(c.modulationCap)},
                            {"fec", flagNames<FrontendInnerFec>(c.fecCap)},
                            {"annex", flagNames<FrontendDvbcAnnex>(c.annexCap)}};
            break;
        }
        case D::dvbsCaps: {
            const auto& s = caps.dvbsCaps();
            fields.kind = "dvbs";
            fields.lists = {{"modulation", flagNames<FrontendDvbsModulation>(
                                                   static_cast<uint32_t>(s.modulationCap))},
                            {"innerFec", flagNames<FrontendInnerFec>(s.innerfecCap)},
                            {"standard", flagNames<FrontendDvbsStandard>(s.standard)}};
            break;
        }
        case D::dvbtCaps: {
            const auto& t = caps.dvbtCaps();
            fields.kind = "dvbt";
            fields.lists = {
                    {"transmissionMode",
                     flagNames<FrontendDvbtTransmissionMode>(t.transmissionModeCap)},
                    {"bandwidth", flagNames<FrontendDvbtBandwidth>(t.bandwidthCap)},
                    {"constellation", flagNames<FrontendDvbtConstellation>(t.constellationCap)},
                    {"coderate", flagNames<FrontendDvbtCoderate>(t.coderateCap)},
                    {"hierarchy", flagNames<FrontendDvbtHierarchy>(t.hierarchyCap)},
                    {"guardInterval", flagNames<FrontendDvbtGuardInterval>(t.guardIntervalCap)}};
            fields.flags = {{"t2", t.isT2Supported}, {"miso", t.isMisoSupported}};
            break;
        }
        default:
            fields.kind = "other";
            break;
    }
    return fields;
}

std::vector<std::string> statusCapNames(const FrontendInfo& info) {
    std::vector<std::string> names;
    for (FrontendStatusType type : info.statusCaps) names.push_back(toString(type));
    return names;
}

}  // namespace

void JsonObject::key(const std::string& key) {
    if (!mBody.empty()) mBody += ",";
    mBody += jsonString(key) + ":";
}

JsonObject& JsonObject::add(const std::string& k, int64_t value) {
    key(k);
    mBody += std::to_string(value);
    return *this;
}

JsonObject& JsonObject::add(const std::string& k, uint64_t value) {
    key(k);
    mBody += std::to_string(value);
    return *this;
}

JsonObject& JsonObject::add(const std::string& k, bool value) {
    key(k);
    mBody += value ? "true" : "false";
    return *this;
}

JsonObject& JsonObject::add(const std::string& k, const std::string& value) {
    key(k);
    mBody += jsonString(value);
    return *this;
}

JsonObject& JsonObject::addRaw(const std::string& k, const std::string& json) {
    key(k);
    mBody += json;
    return *this;
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string jsonArray(const std::vector<std::string>& jsonValues) {
    return "[" + joined(jsonValues, ",") + "]";
}

std::vector<std::string> jsonStrings(const std::vector<std::string>& texts) {
    std::vector<std::string> out;
    for (const std::string& text : texts) out.push_back(jsonString(text));
    return out;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? separator : "") + parts[i];
    return out;
}

std::string describeFrontend(uint32_t id, const FrontendInfo& info) {
    std::ostringstream os;
    os << "frontend " << id << ": " << toString(info.type) << "\n"
       << "  frequency      " << info.minFrequency << " .. " << info.maxFrequency << " Hz\n"
       << "  symbol rate    " << info.minSymbolRate << " .. " << info.maxSymbolRate << " sym/s\n"
       << "  acquire range  " << info.acquireRange << " Hz\n"
       << "  exclusive grp  " << info.exclusiveGroupId << "\n"
       << "  status caps    " << joined(statusCapNames(info), " ") << "\n";
    const CapabilityFields caps = capabilityFields(info.frontendCaps);
    os << "  " << caps.kind << " caps\n";
    for (const auto& [name, values] : caps.lists) {
        os << "    " << name << ": " << (values.empty() ? "none" : joined(values, " | ")) << "\n";
    }
    for (const auto& [name, value] : caps.flags) {
        os << "    " << name << ": " << (value ? "yes" : "no") << "\n";
    }
    return os.str();
}

std::string frontendJson(uint32_t id, const FrontendInfo& info) {
    const CapabilityFields caps = capabilityFields(info.frontendCaps);
    JsonObject capsJson;
    capsJson.add("kind", caps.kind);
    for (const auto& [name, values] : caps.lists)
        capsJson.addRaw(name, jsonArray(jsonStrings(values)));
    for (const auto& [name, value] : caps.flags) capsJson.add(name, value);
    return JsonObject()
            .add("id", id)
            .add("type", toString(info.type))
            .add("minFrequency", info.minFrequency)
            .add("maxFrequency", info.maxFrequency)
            .add("minSymbolRate", info.minSymbolRate)
            .add("maxSymbolRate", info.maxSymbolRate)
            .add("acquireRange", info.acquireRange)
            .add("exclusiveGroupId", info.exclusiveGroupId)
            .addRaw("statusCaps", jsonArray(jsonStrings(statusCapNames(info))))
            .addRaw("caps", capsJson.str())
            .str();
}

int reportFailure(bool json, int code, const std::string& message) {
    if (json) {
        std::cout << JsonObject().add("error", message).add("exit", int32_t{code}).str()
                  << std::endl;
    } else {
        std::cerr << message << std::endl;
    }
    return code;
}

std::string hex4(uint32_t value) {
    char text[12];
    std::snprintf(text, sizeof text, "0x%04X", value);
    return text;
}

}  // namespace tunerctl
