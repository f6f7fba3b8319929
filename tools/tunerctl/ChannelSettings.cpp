#include "ChannelSettings.h"

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

bool buildDvbt(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    FrontendDvbtSettings dvbt{};
    const std::string standard = o.standard.empty() ? "T" : o.standard;
    if (!parsed(parseFrequencyHz(o.dvbt), "frequency", o.dvbt, dvbt.frequency, error) ||
        !parsed(parseBandwidth(o.bandwidth), "bandwidth", o.bandwidth, dvbt.bandwidth, error) ||
        !parsed(parseDvbtStandard(standard), "DVB-T standard", standard, dvbt.standard, error)) {
        return false;
    }
    settings.dvbt(dvbt);
    return true;
}

bool buildDvbc(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    FrontendDvbcSettings dvbc{};
    const std::string symbolRate = o.symbolRate.empty() ? "0" : o.symbolRate;
    if (!parsed(parseFrequencyHz(o.dvbc), "frequency", o.dvbc, dvbc.frequency, error) ||
        !parsed(parseSymbolRate(symbolRate), "symbol rate", symbolRate, dvbc.symbolRate, error) ||
        !parsed(parseDvbcModulation(o.modulation), "modulation", o.modulation, dvbc.modulation,
                error) ||
        !parsed(parseAnnex(o.annex), "annex", o.annex, dvbc.annex, error)) {
        return false;
    }
    settings.dvbc(dvbc);
    return true;
}

bool buildDvbs(const ChannelOptions& o, FrontendSettings& settings, std::string& error) {
    FrontendDvbsSettings dvbs{};
    const std::string standard = o.standard.empty() ? "S2" : o.standard;
    const std::string symbolRate = o.symbolRate.empty() ? "27500000" : o.symbolRate;
    if (!parsed(parseFrequencyHz(o.dvbs), "frequency", o.dvbs, dvbs.frequency, error) ||
        !parsed(parseSymbolRate(symbolRate), "symbol rate", symbolRate, dvbs.symbolRate, error) ||
        !parsed(parseDvbsStandard(standard), "DVB-S standard", standard, dvbs.standard, error)) {
        return false;
    }
    settings.dvbs(dvbs);
    return true;
}

}  // namespace

bool buildSettings(const ChannelOptions& options, FrontendSettings& settings, std::string& error) {
    const int given = !options.dvbt.empty() + !options.dvbc.empty() + !options.dvbs.empty();
    if (given != 1) {
        error = "name the channel with exactly one of --dvbt, --dvbc, --dvbs";
        return false;
    }
    if (!options.dvbt.empty()) return buildDvbt(options, settings, error);
    if (!options.dvbc.empty()) return buildDvbc(options, settings, error);
    return buildDvbs(options, settings, error);
}

}  // namespace tunerctl
