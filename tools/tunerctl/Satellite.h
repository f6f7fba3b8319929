// Satellite reception the way users of the DVB tools think of it: a downlink frequency and
// polarisation, an LNB type from libdvbv5's table, and a satellite number on a DiSEqC switch.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

struct SatellitePlan {
    std::string lnb;       // libdvbv5's short name, e.g. UNIVERSAL
    uint32_t downlinkKHz;  // what the satellite sends
    uint32_t ifHz;         // what reaches the tuner
    uint32_t oscillatorMHz;
    bool horizontal;  // 18 V; vertical (13 V) otherwise
    bool highBand;    // 22 kHz tone on
};

// Plans the LNB settings and the intermediate frequency; false with a one-line message when the
// LNB type is unknown or cannot receive the frequency.
bool planSatellite(const std::string& lnbName, uint32_t downlinkKHz,
                   const std::string& polarisation, SatellitePlan& plan, std::string& error);

// The LNB type names libdvbv5 knows, for the help and for errors.
std::vector<std::string> lnbNames();

// A DiSEqC 1.0 committed-switch command for satellite 0..3 (inputs A..D): E0 10 38 Fx.
std::vector<uint8_t> committedSwitch(int satellite, bool horizontal, bool highBand);

// What the plan does, for people: "11778.000 MHz V, UNIVERSAL high band (LO 10600 MHz, 18 V
// tone on) -> IF 1178.000 MHz".
std::string describePlan(const SatellitePlan& plan, std::optional<int> satellite);

}  // namespace tunerctl
