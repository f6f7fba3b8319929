#include "ScanResults.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tunerctl {

std::vector<Multiplex> mergeLocks(const std::vector<uint32_t>& lockedHz, uint32_t stepHz) {
    std::vector<Multiplex> out;
    for (uint32_t hz : lockedHz) {
        if (!out.empty() && hz >= out.back().lastHz && hz - out.back().lastHz <= stepHz) {
            out.back().lastHz = hz;
            ++out.back().steps;
            continue;
        }
        out.push_back({hz, hz, 1});
    }
    return out;
}

std::string progressLine(int percent, uint32_t currentHz, double secondsLeft, int width) {
    percent = std::clamp(percent, 0, 100);
    char text[96];
    const int left = static_cast<int>(std::lround(std::max(0.0, secondsLeft)));
    std::snprintf(text, sizeof(text), "%3d%% %.2f MHz ~%dm%02ds left", percent, currentHz / 1e6,
                  left / 60, left % 60);
    const std::string tail(text);
    const int barWidth = width - static_cast<int>(tail.size()) - 3;  // "[", "] "
    if (barWidth < 10) return tail.substr(0, static_cast<size_t>(std::max(width, 0)));
    const int filled = percent * barWidth / 100;
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, ' ') + "] " + tail;
}

}  // namespace tunerctl
