#include "Satellite.h"

#include <libdvbv5/dvb-sat.h>

#include <cstdint>
#include <cstdio>

namespace tunerctl {

std::vector<std::string> lnbNames() {
    std::vector<std::string> names;
    for (int i = 0; const dvb_sat_lnb* lnb = dvb_sat_get_lnb(i); ++i) {
        if (lnb->lowfreq != 0) names.push_back(lnb->alias);  // those with an oscillator to use
    }
    return names;
}

bool planSatellite(const std::string& lnbName, uint32_t downlinkKHz,
                   const std::string& polarisation, SatellitePlan& plan, std::string& error) {
    const int index = dvb_sat_search_lnb(lnbName.c_str());
    const dvb_sat_lnb* lnb = index < 0 ? nullptr : dvb_sat_get_lnb(index);
    if (lnb == nullptr || lnb->lowfreq == 0) {
        std::string known;
        for (const std::string& name : lnbNames()) known += (known.empty() ? "" : ", ") + name;
        error = "unknown LNB type '" + lnbName + "': one of " + known;
        return false;
    }
    if (polarisation != "V" && polarisation != "H" && polarisation != "R" && polarisation != "L") {
        error = "--polarisation must be V, H, R or L";
        return false;
    }
    plan.lnb = lnb->alias;
    plan.downlinkKHz = downlinkKHz;
    // Horizontal and circular left take 18 V, vertical and circular right 13 V.
    plan.horizontal = polarisation == "H" || polarisation == "L";
    const uint32_t mhz = downlinkKHz / 1000;
    plan.highBand = lnb->rangeswitch != 0 && mhz >= lnb->rangeswitch;
    plan.oscillatorMHz = plan.highBand ? lnb->highfreq : lnb->lowfreq;
    // A two-oscillator LNB without a band switch picks its oscillator by polarisation.
    if (lnb->rangeswitch == 0 && lnb->highfreq != 0 && plan.horizontal) {
        plan.oscillatorMHz = lnb->highfreq;
    }
    const uint64_t oscillatorKHz = uint64_t{plan.oscillatorMHz} * 1000;
    // A C-band LNB's oscillator lies above the downlink.
    const uint64_t ifKHz = oscillatorKHz > downlinkKHz ? oscillatorKHz - downlinkKHz
                                                       : uint64_t{downlinkKHz} - oscillatorKHz;
    const auto& range = lnb->freqrange[plan.highBand ? 1 : 0];
    if (range.low != 0 && (mhz < range.low || mhz > range.high)) {
        error = "LNB " + plan.lnb + " receives " + std::to_string(range.low) + " .. " +
                std::to_string(range.high) + " MHz" + (lnb->rangeswitch ? " in this band" : "") +
                ", not " + std::to_string(mhz) + " MHz";
        return false;
    }
    if (ifKHz * 1000 > UINT32_MAX) {
        error = "LNB " + plan.lnb + " cannot bring " + std::to_string(mhz) + " MHz down";
        return false;
    }
    plan.ifHz = static_cast<uint32_t>(ifKHz * 1000);
    return true;
}

std::vector<uint8_t> committedSwitch(int satellite, bool horizontal, bool highBand) {
    const uint8_t option = (satellite >> 1) & 1;
    const uint8_t position = satellite & 1;
    return {0xE0, 0x10, 0x38,
            static_cast<uint8_t>(0xF0 | option << 3 | position << 2 | (horizontal ? 2 : 0) |
                                 (highBand ? 1 : 0))};
}

std::string describePlan(const SatellitePlan& plan, std::optional<int> satellite) {
    char text[200];
    std::snprintf(text, sizeof(text),
                  "%.3f MHz %c, LNB %s%s (LO %u MHz, %s, tone %s)%s -> IF %.3f MHz",
                  plan.downlinkKHz / 1e3, plan.horizontal ? 'H' : 'V', plan.lnb.c_str(),
                  plan.highBand ? " high band" : "", plan.oscillatorMHz,
                  plan.horizontal ? "18 V" : "13 V", plan.highBand ? "on" : "off",
                  satellite ? (std::string(", satellite ") + "ABCD"[*satellite & 3]).c_str() : "",
                  plan.ifHz / 1e6);
    return text;
}

}  // namespace tunerctl
