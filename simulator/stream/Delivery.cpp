#include "simulator/stream/Delivery.h"

namespace mox::air {
namespace {

constexpr double kTsRsFactor = 188.0 / 204.0;

double fraction(const CodeRate& rate) {
    return rate.den == 0 ? 0.0 : double(rate.num) / double(rate.den);
}

double terrestrial(const Delivery& d) {
    const double scale = d.bandwidthKHz / 8000.0;
    const double guard = 1.0 + fraction(d.guard);
    if (d.system == DeliverySystem::kDvbT) {
        // Hierarchical modulation sends the high-priority stream: QPSK's two bits per carrier.
        const uint32_t bits = d.hierarchy != 0 ? 2 : d.bitsPerSymbol;
        return 6048.0 / 896e-6 * scale * bits * fraction(d.codeRate) * kTsRsFactor / guard;
    }
    constexpr double kBchEfficiency = 0.995;
    return 27404.0 / 3584e-6 * scale * d.bitsPerSymbol * fraction(d.codeRate) * kBchEfficiency /
           guard;
}

double satellite2(const Delivery& d) {
    if (d.bitsPerSymbol == 0) return 0;
    const double slots = 64800.0 / d.bitsPerSymbol / 90.0;  // slots of 90 symbols
    const double pilotBlocks = d.pilots ? static_cast<uint32_t>((slots - 1) / 16) : 0;
    const double symbols = 64800.0 / d.bitsPerSymbol + 90.0 + 36.0 * pilotBlocks;
    // BCH parity of 192 bits for most code rates, the baseband header's 80 bits.
    const double useful = 64800.0 * fraction(d.codeRate) - 192.0 - 80.0;
    return d.symbolRate / symbols * useful;
}

}  // namespace

uint64_t usefulBitRate(const Delivery& d) {
    double rate = 0;
    switch (d.system) {
        case DeliverySystem::kDvbT:
        case DeliverySystem::kDvbT2:
            rate = terrestrial(d);
            break;
        case DeliverySystem::kDvbC:
            rate = double(d.symbolRate) * d.bitsPerSymbol * kTsRsFactor;
            break;
        case DeliverySystem::kDvbS:
            rate = double(d.symbolRate) * 2 * fraction(d.codeRate) * kTsRsFactor;
            break;
        case DeliverySystem::kDvbS2:
            rate = satellite2(d);
            break;
    }
    return rate > 0 ? static_cast<uint64_t>(rate + 0.5) : 0;
}

}  // namespace mox::air
