// What a scan found, as a user thinks of it, and the progress line a terminal shows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tunerctl {

// One multiplex: the locked frequencies of a sweep that follow each other by at most one step
// are one transmission, at their centre.
struct Multiplex {
    uint32_t firstHz;
    uint32_t lastHz;
    uint32_t steps;
    uint32_t centreHz() const { return firstHz + (lastHz - firstHz) / 2; }
};

// Groups locked frequencies (in the order found) into multiplexes; stepHz is the sweep's step.
std::vector<Multiplex> mergeLocks(const std::vector<uint32_t>& lockedHz, uint32_t stepHz);

// A progress line that fits width columns: a bar, the percentage, the frequency being tried
// and the time left, "[#####     ] 42% 474.35 MHz ~1m05s left". Without room for a bar, the text
// alone.
std::string progressLine(int percent, uint32_t currentHz, double secondsLeft, int width);

}  // namespace tunerctl
