#include "ChannelSettings.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ValueParsing.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

template <typename T>
bool parsed(const std::optional<T>& value, const char* what, const std::string& text, T& out,
            std::string& error) {
    if (!value) {
        error = std::string("invalid ") + what + ": '" + text + "'";
        return false;
    }
    out = *value;
    return true;
}

// The highest intermediate frequency an LNB hands a satellite tuner (the L band's top).
constexpr uint32_t kHighestIfKHz = 2150000;

// A bare number is taken in the unit dvbv5 channel files write it in (Hz for terrestrial and
// cable, kHz for satellite) when it is at least 1 MHz in that unit; a smaller one cannot be meant
// so and is refused with the form to write.
std::string withFileUnit(const std::string& text, const char* unit, uint64_t oneMHz) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        text.size() > 12 || std::stoull(text) < oneMHz) {
        return text;
    }
    return text + unit;
}

bool frequency(const std::string& given, uint32_t& hz, std::string& error) {
    const std::string text = withFileUnit(given, "Hz", 1000000);
    if (parseFrequencyHz(text)) return parsed(parseFrequencyHz(text), "frequency", text, hz, error);
    if (!text.empty() && parseFrequencyHz(text + "MHz")) {
        error = "frequency '" + text + "' has no unit: write " + text + "MHz (or Hz, kHz, GHz)";
    } else {
        error = "invalid frequency: '" + text + "' (e.g. 474MHz, 306000kHz, 1.21GHz)";
    }
    return false;
}

// Refuses options of the other delivery systems rather than ignoring them.
bool noForeignOptions(const char* system,
                      std::vector<std::pair<const char*, const std::string*>> foreign,
                      std::string& error) {
    for (const auto& [name, value] : foreign) {
        if (!value->empty()) {
            error = std::string(name) + " does not apply to " + system;
            return false;
        }
    }
    return true;
}

// The PLP or input stream id: a number 0..255.
bool streamId(const std::string& text, std::optional<uint32_t>& id, std::string& error) {
    id.reset();
    if (text.empty()) return true;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text[0] == '-' || *end != '\0' || value > kMaxStreamId) {
        error = "invalid --plp: '" + text + "' (a PLP or stream id, 0 to " +
                std::to_string(kMaxStreamId) + ")";
        return false;
    }
    id = static_cast<uint32_t>(value);
    return true;
}

bool buildDvbt(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    if (!noForeignOptions("DVB-T",
                          {{"--symbol-rate", &o.symbolRate},
                           {"--modulation", &o.modulation},
                           {"--annex", &o.annex},
                           {"--lnb", &o.lnb},
                           {"--polarisation", &o.polarisation},
                           {"--sat", &o.satellite}},
                          error)) {
        return false;
    }
    FrontendDvbtSettings dvbt{};
    const std::string bandwidth = o.bandwidth.empty() ? "8MHz" : o.bandwidth;
    const std::string standard = o.standard.empty() ? "T" : o.standard;
    if (!frequency(o.dvbt, dvbt.frequency, error) ||
        !parsed(parseBandwidth(bandwidth), "bandwidth", bandwidth, dvbt.bandwidth, error) ||
        !parsed(parseDvbtStandard(standard), "DVB-T standard", standard, dvbt.standard, error)) {
        return false;
    }
    std::optional<uint32_t> plp;
    if (!streamId(o.plp, plp, error)) return false;
    if (plp && dvbt.standard == FrontendDvbtStandard::T) {
        error = "--plp applies to DVB-T2 (--standard T2 or AUTO)";
        return false;
    }
    dvbt.plpId = static_cast<uint8_t>(plp.value_or(0));
    settings.dvbt(dvbt);
    return true;
}

bool buildDvbc(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    if (!noForeignOptions("DVB-C",
                          {{"--bandwidth", &o.bandwidth},
                           {"--standard", &o.standard},
                           {"--lnb", &o.lnb},
                           {"--polarisation", &o.polarisation},
                           {"--sat", &o.satellite},
                           {"--plp", &o.plp}},
                          error)) {
        return false;
    }
    if (o.symbolRate.empty()) {
        error = "--dvbc needs --symbol-rate (e.g. 6900000, 6.9M, 6875k)";
        return false;
    }
    FrontendDvbcSettings dvbc{};
    const std::string modulation = o.modulation.empty() ? "256QAM" : o.modulation;
    const std::string annex = o.annex.empty() ? "A" : o.annex;
    if (!frequency(o.dvbc, dvbc.frequency, error) ||
        !parsed(parseSymbolRate(o.symbolRate), "symbol rate", o.symbolRate, dvbc.symbolRate, error) ||
        !parsed(parseDvbcModulation(modulation), "modulation", modulation, dvbc.modulation, error) ||
        !parsed(parseAnnex(annex), "annex", annex, dvbc.annex, error)) {
        return false;
    }
    settings.dvbc(dvbc);
    return true;
}

bool buildDvbs(const ChannelOptions& o, FrontendSettings& settings, std::string& error,
               std::optional<SatellitePlan>* plan) {
    if (!noForeignOptions("DVB-S",
                          {{"--bandwidth", &o.bandwidth},
                           {"--modulation", &o.modulation},
                           {"--annex", &o.annex}},
                          error)) {
        return false;
    }
    // A downlink (what a dvbv5 satellite file holds) is no frequency a tuner sees: the LNB's
    // oscillator brings it down, so it needs the LNB's type.
    const std::string dvbsFrequency = withFileUnit(o.dvbs, "kHz", 1000);
    const std::optional<uint32_t> kHz = parseFrequencyKHz(dvbsFrequency);
    if (o.lnb.empty() && kHz && *kHz > kHighestIfKHz) {
        char mhz[32];
        snprintf(mhz, sizeof(mhz), "%.3f MHz", *kHz / 1e3);
        error = std::string("a downlink frequency (") + mhz +
                ") needs --lnb TYPE, the LNB that brings it down (e.g. --lnb UNIVERSAL; --help "
                "lists the types)";
        return false;
    }
    FrontendDvbsSettings dvbs{};
    const std::string standard = o.standard.empty() ? "S2" : o.standard;
    const std::string symbolRate = o.symbolRate.empty() ? "27500000" : o.symbolRate;
    if ((o.lnb.empty() && !frequency(dvbsFrequency, dvbs.frequency, error)) ||
        !parsed(parseSymbolRate(symbolRate), "symbol rate", symbolRate, dvbs.symbolRate, error) ||
        !parsed(parseDvbsStandard(standard), "DVB-S standard", standard, dvbs.standard, error)) {
        return false;
    }
    std::optional<uint32_t> stream;
    if (!streamId(o.plp, stream, error)) return false;
    dvbs.inputStreamId = stream.value_or(0);
    if (o.lnb.empty()) {
        if (!o.polarisation.empty() || !o.satellite.empty()) {
            error = "--polarisation and --sat need --lnb (the LNB type)";
            return false;
        }
    } else {
        if (o.polarisation.empty()) {
            error = "--lnb needs --polarisation (V, H, R or L)";
            return false;
        }
        SatellitePlan p;
        const std::optional<uint32_t> downlinkKHz = parseFrequencyKHz(dvbsFrequency);
        if (!downlinkKHz) {
            error = "invalid downlink frequency: '" + o.dvbs + "' (e.g. 11778MHz)";
            return false;
        }
        if (!planSatellite(o.lnb, *downlinkKHz, o.polarisation, p, error)) return false;
        dvbs.frequency = p.ifHz;  // the tuner works at the LNB's output
        if (plan) *plan = p;
    }
    settings.dvbs(dvbs);
    return true;
}

std::string range(uint32_t low, uint32_t high, const char* unit) {
    return std::to_string(low) + " .. " + std::to_string(high) + " " + unit;
}

// A flag value is allowed when the capability lists it (or does not list anything).
template <typename E, typename Mask>
bool allowed(E value, Mask cap) {
    return cap == 0 || (static_cast<uint64_t>(value) & static_cast<uint64_t>(cap)) != 0;
}

template <typename E, typename Mask>
std::string names(Mask cap) {
    std::string out;
    for (E e : ::android::hardware::hidl_enum_range<E>()) {
        if (static_cast<uint64_t>(e) != 0 && (static_cast<uint64_t>(e) & cap) != 0) {
            out += (out.empty() ? "" : ", ") + toString(e);
        }
    }
    return out;
}

const char* dvbtStandardName(FrontendDvbtStandard standard) {
    switch (standard) {
        case FrontendDvbtStandard::T:
            return "DVB-T";
        case FrontendDvbtStandard::T2:
            return "DVB-T2";
        default:
            return "DVB-T/T2";
    }
}

const char* dvbsStandardName(FrontendDvbsStandard standard) {
    switch (standard) {
        case FrontendDvbsStandard::S:
            return "DVB-S";
        case FrontendDvbsStandard::S2:
            return "DVB-S2";
        case FrontendDvbsStandard::S2X:
            return "DVB-S2X";
        default:
            return "DVB-S/S2";
    }
}

std::string mhz(uint32_t hz) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f MHz", hz / 1e6);
    return text;
}

}  // namespace

std::optional<uint32_t> askedStreamId(const ChannelOptions& options) {
    std::optional<uint32_t> id;
    std::string error;
    streamId(options.plp, id, error);
    return id;
}

std::vector<StandardAttempt> standardAttempts(const FrontendSettings& settings,
                                              const FrontendInfo& info) {
    using D = FrontendSettings::hidl_discriminator;
    using CD = FrontendInfo::FrontendCapabilities::hidl_discriminator;
    std::vector<StandardAttempt> attempts;
    if (settings.getDiscriminator() == D::dvbt &&
        settings.dvbt().standard == FrontendDvbtStandard::AUTO) {
        for (FrontendDvbtStandard standard : {FrontendDvbtStandard::T, FrontendDvbtStandard::T2}) {
            if (standard == FrontendDvbtStandard::T2 &&
                (info.frontendCaps.getDiscriminator() != CD::dvbtCaps ||
                 !info.frontendCaps.dvbtCaps().isT2Supported)) {
                continue;
            }
            FrontendSettings one = settings;
            one.dvbt().standard = standard;
            attempts.push_back({toString(standard), one});
        }
    } else if (settings.getDiscriminator() == D::dvbs &&
               settings.dvbs().standard == FrontendDvbsStandard::AUTO) {
        for (FrontendDvbsStandard standard : {FrontendDvbsStandard::S2, FrontendDvbsStandard::S}) {
            FrontendSettings one = settings;
            one.dvbs().standard = standard;
            attempts.push_back({toString(standard), one});
        }
    } else {
        const std::string standard =
                settings.getDiscriminator() == D::dvbt   ? toString(settings.dvbt().standard)
                : settings.getDiscriminator() == D::dvbs ? toString(settings.dvbs().standard)
                                                         : std::string();
        attempts.push_back({standard, settings});
    }
    return attempts;
}

std::string channelLabel(const FrontendSettings& settings) {
    using D = FrontendSettings::hidl_discriminator;
    switch (settings.getDiscriminator()) {
        case D::dvbt:
            return std::string(dvbtStandardName(settings.dvbt().standard)) + " " +
                   mhz(settings.dvbt().frequency);
        case D::dvbc:
            return "DVB-C " + mhz(settings.dvbc().frequency);
        case D::dvbs:
            return std::string(dvbsStandardName(settings.dvbs().standard)) + " " +
                   mhz(settings.dvbs().frequency);
        default:
            return "a channel tunerctl does not tune";
    }
}

bool lists(const FrontendInfo& info, FrontendStatusType type) {
    for (FrontendStatusType listed : info.statusCaps) {
        if (listed == type) return true;
    }
    return false;
}

bool buildSettings(const ChannelOptions& options, FrontendSettings& settings, std::string& error,
                   std::optional<SatellitePlan>* plan) {
    const int given = !options.dvbt.empty() + !options.dvbc.empty() + !options.dvbs.empty();
    if (given != 1) {
        error = "name the channel with exactly one of --dvbt, --dvbc, --dvbs";
        return false;
    }
    if (!options.dvbt.empty()) return buildDvbt(options, settings, error);
    if (!options.dvbc.empty()) return buildDvbc(options, settings, error);
    return buildDvbs(options, settings, error, plan);
}

bool checkAgainstFrontend(const FrontendInfo& info, uint32_t id, const FrontendSettings& settings,
                          std::string& error) {
    using D = FrontendSettings::hidl_discriminator;
    const std::string frontend = "frontend " + std::to_string(id);
    const D wanted = info.type == FrontendType::DVBT   ? D::dvbt
                     : info.type == FrontendType::DVBC ? D::dvbc
                     : info.type == FrontendType::DVBS ? D::dvbs
                                                       : D::analog;
    if (settings.getDiscriminator() != wanted) {
        const char* option = wanted == D::dvbt   ? "--dvbt"
                             : wanted == D::dvbc ? "--dvbc"
                             : wanted == D::dvbs ? "--dvbs"
                                                 : nullptr;
        error = frontend + " is " + toString(info.type) +
                (option ? std::string(": name the channel with ") + option : ": it cannot tune");
        return false;
    }
    uint32_t hz = 0;
    uint32_t symbolRate = 0;
    if (wanted == D::dvbt) hz = settings.dvbt().frequency;
    if (wanted == D::dvbc) hz = settings.dvbc().frequency, symbolRate = settings.dvbc().symbolRate;
    if (wanted == D::dvbs) hz = settings.dvbs().frequency, symbolRate = settings.dvbs().symbolRate;
    if (hz < info.minFrequency || hz > info.maxFrequency) {
        error = "frequency " + std::to_string(hz) + " Hz is outside " + frontend + "'s range " +
                range(info.minFrequency, info.maxFrequency, "Hz");
        return false;
    }
    if (wanted != D::dvbt && info.maxSymbolRate != 0 &&
        (symbolRate < info.minSymbolRate || symbolRate > info.maxSymbolRate)) {
        error = "symbol rate " + std::to_string(symbolRate) + " is outside " + frontend +
                "'s range " + range(info.minSymbolRate, info.maxSymbolRate, "sym/s");
        return false;
    }
    using CD = FrontendInfo::FrontendCapabilities::hidl_discriminator;
    const auto& caps = info.frontendCaps;
    if (wanted == D::dvbt && caps.getDiscriminator() == CD::dvbtCaps) {
        const FrontendDvbtSettings& t = settings.dvbt();
        if (t.bandwidth != FrontendDvbtBandwidth::AUTO &&
            !allowed(t.bandwidth, caps.dvbtCaps().bandwidthCap)) {
            error = "bandwidth " + toString(t.bandwidth) + " is not one of " + frontend +
                    "'s: " + names<FrontendDvbtBandwidth>(uint64_t{caps.dvbtCaps().bandwidthCap});
            return false;
        }
        if (t.standard == FrontendDvbtStandard::T2 && !caps.dvbtCaps().isT2Supported) {
            error = frontend + " does not support DVB-T2";
            return false;
        }
    }
    if (wanted == D::dvbc && caps.getDiscriminator() == CD::dvbcCaps) {
        const FrontendDvbcSettings& c = settings.dvbc();
        if (c.modulation != FrontendDvbcModulation::AUTO &&
            !allowed(c.modulation, caps.dvbcCaps().modulationCap)) {
            error = "modulation " + toString(c.modulation) + " is not one of " + frontend +
                    "'s: " + names<FrontendDvbcModulation>(uint64_t{caps.dvbcCaps().modulationCap});
            return false;
        }
        if (!allowed(c.annex, caps.dvbcCaps().annexCap)) {
            error = "annex " + toString(c.annex) + " is not one of " + frontend +
                    "'s: " + names<FrontendDvbcAnnex>(uint64_t{caps.dvbcCaps().annexCap});
            return false;
        }
    }
    return true;
}

}  // namespace tunerctl
