#include "StatusFields.h"

#include <cstdio>

#include "Output.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

using D = FrontendStatus::hidl_discriminator;
using T = FrontendStatusType;

std::string fixed(double value, int decimals) {
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%.*f", decimals, value);
    return buffer;
}

std::string quoted(const std::string& text) {
    return jsonString(text);
}

std::string modulationName(const FrontendModulationStatus& m) {
    using M = FrontendModulationStatus::hidl_discriminator;
    switch (m.getDiscriminator()) {
        case M::dvbc:
            return toString(m.dvbc());
        case M::dvbs:
            return toString(m.dvbs());
        case M::isdbs:
            return toString(m.isdbs());
        case M::isdbs3:
            return toString(m.isdbs3());
        case M::isdbt:
            return toString(m.isdbt());
    }
    return "UNDEFINED";
}

// A value in its two forms.
struct Value {
    std::string text;
    std::string json;
};

Value flag(bool on, const char* yes, const char* no) {
    return {on ? yes : no, on ? "true" : "false"};
}

Value name(const std::string& n) {
    return {n, quoted(n)};
}

Value valueOf(const FrontendStatus& s) {
    switch (s.getDiscriminator()) {
        case D::isDemodLocked:
            return {s.isDemodLocked() ? "LOCKED" : "no lock", s.isDemodLocked() ? "true" : "false"};
        case D::snr:
            return {fixed(s.snr() / 1000.0, 1) + " dB", fixed(s.snr() / 1000.0, 3)};
        case D::ber:
            return {fixed(s.ber() / 1e6, 6), fixed(s.ber() / 1e6, 6)};
        case D::per:
            return {fixed(s.per() / 1e6, 6), fixed(s.per() / 1e6, 6)};
        case D::preBer:
            return {fixed(s.preBer() / 1e6, 6), fixed(s.preBer() / 1e6, 6)};
        case D::signalQuality:
            return {std::to_string(s.signalQuality()) + " %", std::to_string(s.signalQuality())};
        case D::signalStrength:
            return {std::to_string(s.signalStrength()), std::to_string(s.signalStrength())};
        case D::symbolRate:
            return {std::to_string(s.symbolRate()) + " Bd", std::to_string(s.symbolRate())};
        case D::innerFec:
            return name(toString(s.innerFec()));
        case D::modulation:
            return name(modulationName(s.modulation()));
        case D::inversion:
            return name(toString(s.inversion()));
        case D::lnbVoltage:
            return name(toString(s.lnbVoltage()));
        case D::plpId:
            return {std::to_string(s.plpId()), std::to_string(s.plpId())};
        case D::isEWBS:
            return flag(s.isEWBS(), "yes", "no");
        case D::agc:
            return {std::to_string(s.agc()), std::to_string(s.agc())};
        case D::isLnaOn:
            return flag(s.isLnaOn(), "on", "off");
        case D::isLayerError: {
            std::vector<std::string> text, json;
            for (bool layer : s.isLayerError()) {
                text.push_back(layer ? "error" : "ok");
                json.push_back(layer ? "true" : "false");
            }
            return {joined(text, " "), jsonArray(json)};
        }
        case D::mer:
            return {fixed(s.mer() / 1000.0, 1) + " dB", fixed(s.mer() / 1000.0, 3)};
        case D::freqOffset:
            return {std::to_string(s.freqOffset()) + " Hz", std::to_string(s.freqOffset())};
        case D::hierarchy:
            return name(toString(s.hierarchy()));
        case D::isRfLocked:
            return flag(s.isRfLocked(), "yes", "no");
        case D::plpInfo: {
            std::vector<std::string> text, json;
            for (const FrontendStatusAtsc3PlpInfo& plp : s.plpInfo()) {
                text.push_back(std::to_string(plp.plpId) + (plp.isLocked ? " locked" : ""));
                json.push_back(JsonObject()
                                       .add("plpId", uint32_t{plp.plpId})
                                       .add("locked", plp.isLocked)
                                       .add("uec", plp.uec)
                                       .str());
            }
            return {joined(text, ", "), jsonArray(json)};
        }
    }
    return {"?", "null"};
}

// Every answer's type with the names it is shown under, in display order.
struct Naming {
    D discriminator;
    T type;
    const char* name;
    const char* key;
};
constexpr Naming kNamings[] = {
        {D::isDemodLocked, T::DEMOD_LOCK, "lock", "locked"},
        {D::isRfLocked, T::RF_LOCK, "RF lock", "rfLocked"},
        {D::signalStrength, T::SIGNAL_STRENGTH, "strength", "strength"},
        {D::signalQuality, T::SIGNAL_QUALITY, "quality", "quality"},
        {D::snr, T::SNR, "SNR", "snrDb"},
        {D::mer, T::MER, "MER", "merDb"},
        {D::ber, T::BER, "BER", "ber"},
        {D::preBer, T::PRE_BER, "pre-BER", "preBer"},
        {D::per, T::PER, "PER", "per"},
        {D::agc, T::AGC, "AGC", "agc"},
        {D::plpId, T::PLP_ID, "PLP id", "plpId"},
        {D::hierarchy, T::HIERARCHY, "hierarchy", "hierarchy"},
        {D::symbolRate, T::SYMBOL_RATE, "symbols", "symbolRate"},
        {D::innerFec, T::FEC, "FEC", "fec"},
        {D::modulation, T::MODULATION, "QAM/PSK", "modulation"},
        {D::inversion, T::SPECTRAL, "inversion", "inversion"},
        {D::freqOffset, T::FREQ_OFFSET, "offset", "freqOffset"},
        {D::lnbVoltage, T::LNB_VOLTAGE, "LNB", "lnbVoltage"},
        {D::isLnaOn, T::LNA, "LNA", "lna"},
        {D::isLayerError, T::LAYER_ERROR, "layers", "layerError"},
        {D::isEWBS, T::EWBS, "EWBS", "ewbs"},
        {D::plpInfo, T::ATSC3_PLP_INFO, "PLPs", "atsc3PlpInfo"},
};

const Naming* namingOf(D discriminator) {
    for (const Naming& n : kNamings) {
        if (n.discriminator == discriminator) return &n;
    }
    return nullptr;
}

}  // namespace

std::vector<FrontendStatusType> displayOrder() {
    std::vector<FrontendStatusType> order;
    for (const Naming& n : kNamings) order.push_back(n.type);
    return order;
}

std::string statusName(FrontendStatusType type) {
    for (const Naming& n : kNamings) {
        if (n.type == type) return n.name;
    }
    return toString(type);
}

std::vector<FrontendStatusType> listedInDisplayOrder(const std::vector<FrontendStatusType>& listed) {
    std::vector<FrontendStatusType> types;
    for (FrontendStatusType type : displayOrder()) {
        for (FrontendStatusType cap : listed) {
            if (cap == type) {
                types.push_back(type);
                break;
            }
        }
    }
    return types;
}

std::vector<StatusField> statusFields(const std::vector<FrontendStatus>& statuses,
                                      const std::set<std::string>& notMeasured) {
    std::vector<StatusField> fields;
    for (const FrontendStatus& s : statuses) {
        const Naming* naming = namingOf(s.getDiscriminator());
        if (naming == nullptr) continue;
        StatusField field{naming->type, naming->name, naming->key, "", ""};
        if (notMeasured.count(toString(naming->type)) != 0) {
            field.text = kNotAvailable;
            field.json = "null";
        } else {
            Value value = valueOf(s);
            field.text = value.text;
            field.json = value.json;
        }
        fields.push_back(field);
    }
    return fields;
}

std::string statusFieldsJson(const std::vector<StatusField>& fields) {
    JsonObject json;
    for (const StatusField& field : fields) json.addRaw(field.key, field.json);
    return json.str();
}

std::optional<bool> demodLocked(const std::vector<hal::FrontendStatus>& statuses) {
    for (const hal::FrontendStatus& s : statuses) {
        if (s.getDiscriminator() == hal::FrontendStatus::hidl_discriminator::isDemodLocked) {
            return s.isDemodLocked();
        }
    }
    return std::nullopt;
}

}  // namespace tunerctl
