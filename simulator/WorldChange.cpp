// The words of a change of the world, the same from a client and in an installation's timeline:
//   transmitter 474MHz off | on
//   transmitter 474MHz level DBUV | cn DB [over 10s] | ber VALUE
//   disconnect cable | antenna | dish        connect cable | antenna | dish
//   fail FUNCTION RESULT [first N | every N]  heal FUNCTION
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "simulator/SimulatedDriver.h"

namespace mox::sim {
namespace {

bool number(const std::string& text, double& value) {
    char* end = nullptr;
    value = strtod(text.c_str(), &end);
    return !text.empty() && end == text.c_str() + text.size() && std::isfinite(value);
}

bool megahertz(const std::string& text, uint32_t& mhz) {
    double value = 0;
    if (text.size() < 4 || text.compare(text.size() - 3, 3, "MHz") != 0 ||
        !number(text.substr(0, text.size() - 3), value) || value <= 0 || value > 100000 ||
        value != std::floor(value)) {
        return false;
    }
    mhz = static_cast<uint32_t>(value);
    return true;
}

bool duration(const std::string& text, uint32_t& ms) {
    double value = 0;
    const bool millis = text.size() > 2 && text.compare(text.size() - 2, 2, "ms") == 0;
    const bool seconds = !millis && text.size() > 1 && text.back() == 's';
    if (!millis && !seconds) return false;
    if (!number(text.substr(0, text.size() - (millis ? 2 : 1)), value) || value < 0) return false;
    value *= millis ? 1 : 1000;
    if (value > 86400e3) return false;
    ms = static_cast<uint32_t>(value);
    return true;
}

bool input(const std::string& text, Input& which) {
    const std::pair<const char*, Input> inputs[] = {
            {"cable", Input::kCable}, {"antenna", Input::kAntenna}, {"dish", Input::kDish}};
    for (const auto& [name, value] : inputs) {
        if (text == name) {
            which = value;
            return true;
        }
    }
    return false;
}

bool function(const std::string& text, DriverFunction& which) {
    for (size_t f = 0; f < kDriverFunctions; ++f) {
        if (text == kEntryPoints[f].shortName) {
            which = static_cast<DriverFunction>(f);
            return true;
        }
    }
    return false;
}

bool transmitterChange(const std::vector<std::string>& w, WorldChange& c, std::string& error) {
    if (w.size() < 3 || !megahertz(w[1], c.frequencyMHz)) {
        error = "a transmitter by its frequency in MHz, e.g. 'transmitter 474MHz off'";
        return false;
    }
    if (w.size() == 3 && (w[2] == "off" || w[2] == "on")) {
        c.kind = w[2] == "off" ? WorldChange::Kind::kTransmitterOff
                               : WorldChange::Kind::kTransmitterOn;
        return true;
    }
    c.kind = WorldChange::Kind::kFigure;
    const std::pair<const char*, WorldChange::Figure> figures[] = {
            {"level", WorldChange::Figure::kLevel},
            {"cn", WorldChange::Figure::kCn},
            {"ber", WorldChange::Figure::kBer}};
    bool known = false;
    for (const auto& [name, figure] : figures) {
        if (w[2] == name) {
            c.figure = figure;
            known = true;
        }
    }
    double value = 0;
    if (!known || w.size() < 4 || !number(w[3], value)) {
        error = "after the frequency: off, on, level DBUV, cn DB or ber VALUE";
        return false;
    }
    c.value = static_cast<float>(value);
    if (w.size() == 4) return true;
    if (w.size() == 6 && w[4] == "over" && c.figure != WorldChange::Figure::kBer &&
        duration(w[5], c.overMs)) {
        return true;
    }
    error = "a ramp of the level or C/N is 'over DURATION', e.g. 'over 10s' or 'over 500ms'";
    return false;
}

bool faultChange(const std::vector<std::string>& w, WorldChange& c, std::string& error) {
    if (w.size() < 2 || !function(w[1], c.function)) {
        error = "a driver function: Init, GetCapabilities, Scan, IsLocked, GetInfo, "
                "GetParamInfo, Release, SetLNBMode, Set22KContinues, SendDiSEqCToneBurst, "
                "SendDiSEqCCmd";
        return false;
    }
    if (w[0] == "heal") {
        c.kind = WorldChange::Kind::kHeal;
        if (w.size() == 2) return true;
        error = "'heal FUNCTION' takes nothing more";
        return false;
    }
    c.kind = WorldChange::Kind::kFail;
    double result = 0;
    if (w.size() < 3 || !number(w[2], result) || result == 0 || result != std::floor(result) ||
        std::fabs(result) > 2147483647.0) {
        error = "'fail FUNCTION RESULT': a non-zero result code, e.g. 'fail Scan -3'";
        return false;
    }
    c.fault.result = static_cast<int>(result);
    if (w.size() == 3) return true;
    double count = 0;
    if (w.size() == 5 && (w[3] == "first" || w[3] == "every") && number(w[4], count) &&
        count >= 1 && count <= 4294967295.0 && count == std::floor(count)) {
        (w[3] == "first" ? c.fault.first : c.fault.every) = static_cast<uint32_t>(count);
        return true;
    }
    error = "after the result: 'first N' or 'every N'";
    return false;
}

}  // namespace

bool parseWorldChange(const std::string& text, WorldChange& change, std::string& error) {
    std::istringstream in(text);
    std::vector<std::string> w;
    for (std::string word; in >> word;) w.push_back(word);
    change = WorldChange();
    if (w.empty()) {
        error = "no change given";
        return false;
    }
    if (w[0] == "transmitter") return transmitterChange(w, change, error);
    if (w[0] == "connect" || w[0] == "disconnect") {
        change.kind =
                w[0] == "connect" ? WorldChange::Kind::kConnect : WorldChange::Kind::kDisconnect;
        if (w.size() == 2 && input(w[1], change.input)) return true;
        error = "'" + w[0] + "' takes cable, antenna or dish";
        return false;
    }
    if (w[0] == "fail" || w[0] == "heal") return faultChange(w, change, error);
    error = "unknown change '" + w[0] + "': transmitter, connect, disconnect, fail or heal";
    return false;
}

}  // namespace mox::sim
