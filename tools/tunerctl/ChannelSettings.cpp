#include "ChannelSettings.h"

#include <cstdio>
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

bool frequency(const std::string& text, uint32_t& hz, std::string& error) {
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
    settings.dvbt(dvbt);
    return true;
}

bool buildDvbc(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    if (!noForeignOptions("DVB-C",
                          {{"--bandwidth", &o.bandwidth},
                           {"--standard", &o.standard},
                           {"--lnb", &o.lnb},
                           {"--polarisation", &o.polarisation},
                           {"--sat", &o.satellite}},
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
    const std::optional<uint32_t> kHz = parseFrequencyKHz(o.dvbs);
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
    if ((o.lnb.empty() && !frequency(o.dvbs, dvbs.frequency, error)) ||
        !parsed(parseSymbolRate(symbolRate), "symbol rate", symbolRate, dvbs.symbolRate, error) ||
        !parsed(parseDvbsStandard(standard), "DVB-S standard", standard, dvbs.standard, error)) {
        return false;
    }
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
        const std::optional<uint32_t> downlinkKHz = parseFrequencyKHz(o.dvbs);
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

}  // namespace

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
