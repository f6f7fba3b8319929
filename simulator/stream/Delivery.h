// How a multiplex is transmitted, in broadcast terms: what a network's NIT announces of it and
// what sets its transport stream's bit rate.
#pragma once

#include <cstdint>

namespace mox::air {

enum class DeliverySystem : uint8_t { kDvbT, kDvbT2, kDvbC, kDvbS, kDvbS2 };

struct CodeRate {
    uint32_t num = 1;
    uint32_t den = 1;  // 1/1: no inner code (cable)
};

struct Delivery {
    DeliverySystem system = DeliverySystem::kDvbT;
    uint32_t frequencyKHz = 0;   // centre frequency; a satellite's downlink frequency
    uint32_t bandwidthKHz = 0;   // terrestrial: 1712, 5000, 6000, 7000, 8000, 10000
    uint32_t bitsPerSymbol = 0;  // 2 QPSK, 3 8PSK, 4 16QAM/16APSK, 5 32QAM/32APSK, 6 64QAM ...
    CodeRate codeRate;
    CodeRate guard{1, 4};          // terrestrial guard interval as a fraction of the useful symbol
    uint32_t symbolRate = 0;       // symbols/s (cable, satellite)
    bool pilots = false;           // DVB-S2
    bool horizontal = false;       // satellite polarisation
    uint16_t orbitalTenths = 192;  // satellite position in tenths of a degree east
    uint8_t hierarchy = 0;         // DVB-T: 0 none, 1..3 alpha
    uint8_t plpId = 0;             // DVB-T2: the PLP the multiplex travels in
};

// The useful bit rate of the transport stream, in bits/s:
// - DVB-T: 6048 data carriers per 896 us in 8 MHz (scaled with the bandwidth), times bits per
//   carrier and code rate, Reed-Solomon's 188/204, over the guard interval: EN 300 744's table.
// - DVB-T2: 32K with PP7, 27404 data cells per 3584 us in 8 MHz, LDPC code rate and BCH,
//   without Reed-Solomon.
// - DVB-C: symbol rate times bits per symbol times 188/204.
// - DVB-S: symbol rate times 2 times the code rate times 188/204.
// - DVB-S2: normal frames of 64800 bits with their PL header and pilot blocks, BCH and the
//   baseband header taken off.
uint64_t usefulBitRate(const Delivery& delivery);

}  // namespace mox::air
