// The words of a change of the world, the same from a client and in an installation's timeline:
//   transmitter 474MHz off | on
//   transmitter 474MHz level DBUV | cn DB [over 10s] | ber VALUE
//   disconnect cable | antenna | dish        connect cable | antenna | dish
//   fail FUNCTION RESULT [first N | every N]  heal FUNCTION
//   stream 474MHz continuity-errors 2/s | crc-errors 1/s | overflow 10% | without SDT | with SDT
//   stream 474MHz rename SID NAME | add-service SID tv|radio NAME | remove-service SID | clean
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

bool rate(const std::string& text, double& perSecond) {
    const std::string digits = text.size() > 2 && text.compare(text.size() - 2, 2, "/s") == 0
                                       ? text.substr(0, text.size() - 2)
                                       : text;
    return number(digits, perSecond) && perSecond >= 0 && perSecond <= 10000;
}

bool serviceId(const std::string& text, uint16_t& id) {
    char* end = nullptr;
    const unsigned long value = strtoul(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value == 0 || value > 0xFFFF) return false;
    id = static_cast<uint16_t>(value);
    return true;
}

std::string rest(const std::vector<std::string>& w, size_t from) {
    std::string text;
    for (size_t i = from; i < w.size(); ++i) text += (text.empty() ? "" : " ") + w[i];
    return text;
}

bool streamChange(const std::vector<std::string>& w, WorldChange& c, std::string& error) {
    using S = WorldChange::Stream;
    c.kind = WorldChange::Kind::kStream;
    if (w.size() < 3 || !megahertz(w[1], c.frequencyMHz)) {
        error = "a transmitter's stream by its frequency, e.g. 'stream 474MHz crc-errors 1/s'";
        return false;
    }
    const std::string& what = w[2];
    if ((what == "continuity-errors" || what == "crc-errors") && w.size() == 4) {
        c.stream = what == "crc-errors" ? S::kCrcErrors : S::kContinuityErrors;
        double perSecond = 0;
        if (rate(w[3], perSecond)) {
            c.value = static_cast<float>(perSecond);
            return true;
        }
        error = "'" + what + "' takes a rate per second up to 10000, e.g. '2/s'";
        return false;
    }
    if (what == "overflow" && w.size() == 4) {
        c.stream = S::kOverflow;
        double percent = 0;
        const std::string& t = w[3];
        if (t.size() > 1 && t.back() == '%' && number(t.substr(0, t.size() - 1), percent) &&
            percent >= 0 && percent <= 100 && percent == std::floor(percent)) {
            c.value = static_cast<float>(percent);
            return true;
        }
        error = "'overflow' takes a whole percentage up to 100%, e.g. '10%'";
        return false;
    }
    if ((what == "without" || what == "with") && w.size() == 4) {
        c.stream = what == "without" ? S::kWithout : S::kWith;
        for (size_t t = 0; t < air::kTables; ++t) {
            if (w[3] == air::tableName(static_cast<air::Table>(t))) {
                c.table = static_cast<air::Table>(t);
                return true;
            }
        }
        error = "a table: PAT, CAT, PMT, NIT, SDT, SDT-other, EIT, TDT or TOT";
        return false;
    }
    if (what == "clean" && w.size() == 3) {
        c.stream = S::kClean;
        return true;
    }
    if (what == "rename" && w.size() >= 5 && serviceId(w[3], c.serviceId)) {
        c.stream = S::kRename;
        c.name = rest(w, 4);
        return true;
    }
    if (what == "add-service" && w.size() >= 6 && serviceId(w[3], c.serviceId) &&
        (w[4] == "tv" || w[4] == "radio")) {
        c.stream = S::kAddService;
        c.serviceType = w[4] == "tv" ? 0x01 : 0x02;
        c.name = rest(w, 5);
        return true;
    }
    if (what == "remove-service" && w.size() == 4 && serviceId(w[3], c.serviceId)) {
        c.stream = S::kRemoveService;
        return true;
    }
    error = "after the frequency: continuity-errors RATE, crc-errors RATE, overflow PERCENT, "
            "without TABLE, with TABLE, clean, rename SID NAME, add-service SID tv|radio NAME or "
            "remove-service SID";
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
    if (w[0] == "stream") return streamChange(w, change, error);
    error = "unknown change '" + w[0] + "': transmitter, stream, connect, disconnect, fail or heal";
    return false;
}

}  // namespace mox::sim
