// Reads an installation file. Every field is checked for its type and range, unknown fields are
// refused, and each error names the file, the line and the field.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

#include "simulator/Environment.h"
#include "simulator/JsonLines.h"

namespace mox::sim {

namespace {

using nlohmann::json;

// The names a file may use for the driver's codes. Constant tables: the simulator reads a file
// while the process's static objects are still being built.
struct NameCode {
    const char* name;
    uint32_t code;
};
struct Names {
    const NameCode* entries;
    size_t size;
    const NameCode* begin() const { return entries; }
    const NameCode* end() const { return entries + size; }
};
template <size_t N>
constexpr Names names(const NameCode (&table)[N]) {
    return {table, N};
}
template <size_t N>
constexpr Names names(const std::array<NameCode, N>& table) {
    return {table.data(), N};
}

constexpr NameCode kSystemTable[] = {
        {"DVB-C", MOX_TUNER_TYPE_DVBC},   {"DVB-T", MOX_TUNER_TYPE_DVBT},
        {"DVB-S", MOX_TUNER_TYPE_DVBS},   {"DVB-S2", MOX_TUNER_TYPE_DVBS2},
        {"DVB-T2", MOX_TUNER_TYPE_DVBT2}, {"ISDB-T", MOX_TUNER_TYPE_ISDBT}};
constexpr NameCode kBandwidthTable[] = {
        {"6MHz", MOX_TUNER_BW_6MHZ}, {"7MHz", MOX_TUNER_BW_7MHZ},   {"8MHz", MOX_TUNER_BW_8MHZ},
        {"5MHz", MOX_TUNER_BW_5MHZ}, {"10MHz", MOX_TUNER_BW_10MHZ}, {"1.7MHz", MOX_TUNER_BW_1_7MHZ},
        {"auto", MOX_TUNER_BW_AUTO}};
constexpr NameCode kQamTable[] = {{"16QAM", MOX_CABLE_MOD_16QAM},
                                  {"32QAM", MOX_CABLE_MOD_32QAM},
                                  {"64QAM", MOX_CABLE_MOD_64QAM},
                                  {"128QAM", MOX_CABLE_MOD_128QAM},
                                  {"256QAM", MOX_CABLE_MOD_256QAM}};
constexpr NameCode kAnnexTable[] = {
        {"A", MOX_DVBC_ANNEX_A}, {"B", MOX_DVBC_ANNEX_B}, {"C", MOX_DVBC_ANNEX_C}};
constexpr Names kSystems = names(kSystemTable);
constexpr Names kBandwidths = names(kBandwidthTable);
constexpr Names kQam = names(kQamTable);
constexpr Names kAnnexes = names(kAnnexTable);

constexpr uint32_t kStatusTypes = 22;  // the status capability bits the framework knows

std::string nameList(const Names& names) {
    std::string out;
    for (const NameCode& n : names) out += (out.empty() ? "" : ", ") + std::string(n.name);
    return out;
}

bool isTerrestrial(uint32_t system) {
    return system == MOX_TUNER_TYPE_DVBT || system == MOX_TUNER_TYPE_DVBT2;
}

// Reads values at paths of one file and fails with the file, line and path of the value.
class Reader {
  public:
    Reader(const std::string& name, const std::string& text) : mName(name), mLines(text) {}

    [[noreturn]] void fail(const std::string& path, const std::string& what) const {
        throw EnvironmentError(mName + ":" + std::to_string(mLines.lineOf(path)) + ": " +
                               (path.empty() ? "(top level)" : path) + ": " + what);
    }

    const json& object(const json& v, const std::string& path,
                       const std::set<std::string>& fields) const {
        if (!v.is_object()) fail(path, "must be an object");
        for (const auto& [key, member] : v.items()) {
            if (!fields.count(key)) fail(join(path, key), "unknown field");
        }
        return v;
    }

    const json& array(const json& v, const std::string& path, size_t room) const {
        if (!v.is_array()) fail(path, "must be a list");
        if (v.size() > room) {
            fail(path, std::to_string(v.size()) + " entries, the record has room for " +
                               std::to_string(room));
        }
        return v;
    }

    const json& member(const json& object, const std::string& path, const char* key) const {
        if (!object.contains(key)) fail(join(path, key), "missing");
        return object.at(key);
    }

    uint32_t integer(const json& v, const std::string& path, uint64_t min, uint64_t max) const {
        if (!v.is_number_integer()) fail(path, "must be a whole number");
        const bool negative = !v.is_number_unsigned() && v.get<int64_t>() < 0;
        if (negative || v.get<uint64_t>() < min || v.get<uint64_t>() > max) {
            fail(path,
                 v.dump() + " is out of range " + std::to_string(min) + ".." + std::to_string(max));
        }
        return static_cast<uint32_t>(v.get<int64_t>());
    }

    float number(const json& v, const std::string& path, double min, double max) const {
        if (!v.is_number()) fail(path, "must be a number");
        const double d = v.get<double>();
        if (d < min || d > max) {
            std::ostringstream range;
            range << v.dump() << " is out of range " << min << ".." << max;
            fail(path, range.str());
        }
        return static_cast<float>(d);
    }

    bool boolean(const json& v, const std::string& path) const {
        if (!v.is_boolean()) fail(path, "must be true or false");
        return v.get<bool>();
    }

    uint32_t name(const json& v, const std::string& path, const Names& names) const {
        if (v.is_string()) {
            for (const NameCode& n : names) {
                if (v.get<std::string>() == n.name) return n.code;
            }
        }
        fail(path, v.dump() + " is not one of " + nameList(names));
    }

    template <size_t Room, typename Read>
    void codes(const json& object, const std::string& path, const char* key,
               MOX_CodeList_t<Room>& list, Read read) const {
        if (!object.contains(key)) return;
        const std::string p = join(path, key);
        const json& values = array(object.at(key), p, Room);
        list.ucCnt = static_cast<uint8_t>(values.size());
        for (size_t i = 0; i < values.size(); ++i) list.eValues[i] = read(values[i], index(p, i));
    }

    static std::string join(const std::string& path, const std::string& key) {
        return path.empty() ? key : path + "." + key;
    }
    static std::string index(const std::string& path, size_t i) {
        return path + "[" + std::to_string(i) + "]";
    }

  private:
    const std::string mName;
    const JsonLines mLines;
};

// A driver code list read as whole numbers up to max.
auto codesUpTo(const Reader& r, uint32_t max) {
    return [&r, max](const json& v, const std::string& p) { return r.integer(v, p, 0, max); };
}

void readRange(const Reader& r, const json& entry, const std::string& path, const char* key,
               MOX_TunerRange_t& range) {
    if (!entry.contains(key)) return;
    const std::string p = Reader::join(path, key);
    const json& v = r.object(entry.at(key), p, {"min", "max"});
    range.uiMin = r.integer(r.member(v, p, "min"), Reader::join(p, "min"), 0, UINT32_MAX);
    range.uiMax = r.integer(r.member(v, p, "max"), Reader::join(p, "max"), 0, UINT32_MAX);
    if (range.uiMin > range.uiMax) r.fail(p, "min is above max");
}

void readTerrestrial(const Reader& r, const json& v, const std::string& p, MOX_TunerDvbtCap_t& t) {
    r.object(v, p,
             {"t2", "miso", "constellations", "t2Constellations", "codeRates", "t2CodeRates",
              "guardIntervals", "t2GuardIntervals", "hierarchies", "transmissionModes",
              "t2TransmissionModes"});
    if (v.contains("t2")) t.ucT2Support = r.boolean(v.at("t2"), Reader::join(p, "t2")) ? 1 : 0;
    if (v.contains("miso")) t.ucMisoSupport = r.boolean(v.at("miso"), Reader::join(p, "miso"));
    r.codes(v, p, "constellations", t.tConstellation.tDvbt, codesUpTo(r, 3));
    r.codes(v, p, "t2Constellations", t.tConstellation.tDvbt2, codesUpTo(r, 4));
    r.codes(v, p, "codeRates", t.tCodeRate.tDvbt, codesUpTo(r, 5));
    r.codes(v, p, "t2CodeRates", t.tCodeRate.tDvbt2, codesUpTo(r, 8));
    r.codes(v, p, "guardIntervals", t.tGuardInterval.tDvbt, codesUpTo(r, 4));
    r.codes(v, p, "t2GuardIntervals", t.tGuardInterval.tDvbt2, codesUpTo(r, 7));
    r.codes(v, p, "hierarchies", t.tHierarchy, codesUpTo(r, 3));
    r.codes(v, p, "transmissionModes", t.tTransmissionMode.tDvbt, codesUpTo(r, 3));
    r.codes(v, p, "t2TransmissionModes", t.tTransmissionMode.tDvbt2, codesUpTo(r, 6));
}

void readCable(const Reader& r, const json& v, const std::string& p, MOX_TunerDvbcCap_t& c) {
    r.object(v, p, {"modulations", "annexes"});
    auto qam = [&r](const json& x, const std::string& q) { return r.name(x, q, kQam); };
    auto annex = [&r](const json& x, const std::string& q) { return r.name(x, q, kAnnexes); };
    r.codes(v, p, "modulations", c.tQam, qam);
    r.codes(v, p, "annexes", c.tAnnex, annex);
}

void readSatellite(const Reader& r, const json& v, const std::string& p, MOX_TunerDvbsCap_t& s) {
    r.object(v, p, {"lnbs", "modulations", "s2Modulations", "codeRates", "s2CodeRates"});
    if (v.contains("lnbs")) {
        const std::string lp = Reader::join(p, "lnbs");
        const json& lnbs = r.array(v.at("lnbs"), lp, 2);
        s.tLnb.ucCnt = static_cast<uint8_t>(lnbs.size());
        for (size_t i = 0; i < lnbs.size(); ++i) {
            const std::string ip = Reader::index(lp, i);
            const json& lnb = r.object(lnbs[i], ip, {"lowMv", "highMv"});
            s.tLnb.tVoltage[i].uiLow =
                    r.integer(r.member(lnb, ip, "lowMv"), Reader::join(ip, "lowMv"), 0, 30000);
            s.tLnb.tVoltage[i].uiHigh =
                    r.integer(r.member(lnb, ip, "highMv"), Reader::join(ip, "highMv"), 0, 30000);
        }
    }
    r.codes(v, p, "modulations", s.tModulation.tDvbs, codesUpTo(r, 12));
    r.codes(v, p, "s2Modulations", s.tModulation.tDvbs2, codesUpTo(r, 12));
    r.codes(v, p, "codeRates", s.tCodeRate.tDvbs, codesUpTo(r, 13));
    r.codes(v, p, "s2CodeRates", s.tCodeRate.tDvbs2, codesUpTo(r, 13));
}

// Counts the record declares whatever its lists hold, up to 255: beyond a list's room too.
void readDeclaredCounts(const Reader& r, const json& v, const std::string& path, const char* part,
                        MOX_TunerFrontendCap_t& entry) {
    const std::string p = Reader::join(path, "declaredCounts");
    MOX_TunerDvbtCap_t& t = entry.tCapability.tDvbt;
    MOX_TunerDvbcCap_t& c = entry.tCapability.tDvbc;
    MOX_TunerDvbsCap_t& s = entry.tCapability.tDvbs;
    std::map<std::string, uint8_t*> counts = {{"systems", &entry.tTypeSupport.ucCnt},
                                              {"bandwidths", &entry.tBwSupport.ucCnt}};
    if (std::strcmp(part, "dvbt") == 0) {
        counts.insert({{"dvbt.constellations", &t.tConstellation.tDvbt.ucCnt},
                       {"dvbt.t2Constellations", &t.tConstellation.tDvbt2.ucCnt},
                       {"dvbt.codeRates", &t.tCodeRate.tDvbt.ucCnt},
                       {"dvbt.t2CodeRates", &t.tCodeRate.tDvbt2.ucCnt},
                       {"dvbt.guardIntervals", &t.tGuardInterval.tDvbt.ucCnt},
                       {"dvbt.t2GuardIntervals", &t.tGuardInterval.tDvbt2.ucCnt},
                       {"dvbt.hierarchies", &t.tHierarchy.ucCnt},
                       {"dvbt.transmissionModes", &t.tTransmissionMode.tDvbt.ucCnt},
                       {"dvbt.t2TransmissionModes", &t.tTransmissionMode.tDvbt2.ucCnt}});
    } else if (std::strcmp(part, "dvbc") == 0) {
        counts.insert({{"dvbc.modulations", &c.tQam.ucCnt}, {"dvbc.annexes", &c.tAnnex.ucCnt}});
    } else {
        counts.insert({{"dvbs.lnbs", &s.tLnb.ucCnt},
                       {"dvbs.modulations", &s.tModulation.tDvbs.ucCnt},
                       {"dvbs.s2Modulations", &s.tModulation.tDvbs2.ucCnt},
                       {"dvbs.codeRates", &s.tCodeRate.tDvbs.ucCnt},
                       {"dvbs.s2CodeRates", &s.tCodeRate.tDvbs2.ucCnt}});
    }
    if (!v.is_object()) r.fail(p, "must be an object");
    for (const auto& [key, value] : v.items()) {
        auto it = counts.find(key);
        if (it == counts.end()) r.fail(Reader::join(p, key), "no such list in this entry");
        *it->second = static_cast<uint8_t>(r.integer(value, Reader::join(p, key), 0, 255));
    }
}

void readFrontend(const Reader& r, const json& v, const std::string& p,
                  MOX_TunerFrontendCap_t& entry) {
    r.object(v, p,
             {"systems", "channels", "frequencyMHz", "symbolRateKsym", "bandwidths", "statusCaps",
              "dvbt", "dvbc", "dvbs", "neverLocks", "declaredCounts"});
    r.member(v, p, "systems");
    r.codes(v, p, "systems", entry.tTypeSupport,
            [&r](const json& x, const std::string& q) { return r.name(x, q, kSystems); });
    if (entry.tTypeSupport.ucCnt == 0) r.fail(Reader::join(p, "systems"), "names no system");
    entry.ucChannelCnt = static_cast<uint8_t>(
            r.integer(r.member(v, p, "channels"), Reader::join(p, "channels"), 0, 255));
    r.member(v, p, "frequencyMHz");
    readRange(r, v, p, "frequencyMHz", entry.tFreqRange);
    readRange(r, v, p, "symbolRateKsym", entry.tSymbolRateRange);
    r.codes(v, p, "bandwidths", entry.tBwSupport,
            [&r](const json& x, const std::string& q) { return r.name(x, q, kBandwidths); });
    entry.uiStatusCap = (1u << kStatusTypes) - 1;
    if (v.contains("statusCaps")) {
        const std::string sp = Reader::join(p, "statusCaps");
        const json& caps = r.array(v.at("statusCaps"), sp, 32);
        entry.uiStatusCap = 0;
        for (size_t i = 0; i < caps.size(); ++i) {
            entry.uiStatusCap |= 1u << r.integer(caps[i], Reader::index(sp, i), 0, 31);
        }
    }
    // The record holds one of the three system parts, chosen by the first system.
    const uint32_t first = entry.tTypeSupport.eValues[0];
    const char* part = isTerrestrial(first) || first == MOX_TUNER_TYPE_ISDBT ? "dvbt"
                       : first == MOX_TUNER_TYPE_DVBC                        ? "dvbc"
                                                                             : "dvbs";
    for (const char* other : {"dvbt", "dvbc", "dvbs"}) {
        if (v.contains(other) && std::strcmp(other, part) != 0) {
            r.fail(Reader::join(p, other), std::string("does not apply to ") +
                                                   v.at("systems")[0].get<std::string>() +
                                                   " (use \"" + part + "\")");
        }
    }
    if (v.contains(part)) {
        const std::string pp = Reader::join(p, part);
        if (std::strcmp(part, "dvbt") == 0)
            readTerrestrial(r, v.at(part), pp, entry.tCapability.tDvbt);
        if (std::strcmp(part, "dvbc") == 0) readCable(r, v.at(part), pp, entry.tCapability.tDvbc);
        if (std::strcmp(part, "dvbs") == 0)
            readSatellite(r, v.at(part), pp, entry.tCapability.tDvbs);
    }
    if (v.contains("declaredCounts")) readDeclaredCounts(r, v.at("declaredCounts"), p, part, entry);
}

// A figure as the driver will report it: a number, or "nan", "inf", "-inf".
float figure(const Reader& r, const json& v, const std::string& p) {
    if (v.is_number()) return v.get<float>();
    if (v == "nan") return std::numeric_limits<float>::quiet_NaN();
    if (v == "inf") return std::numeric_limits<float>::infinity();
    if (v == "-inf") return -std::numeric_limits<float>::infinity();
    r.fail(p, v.dump() + " is not a number, \"nan\", \"inf\" or \"-inf\"");
}

// How a transmitter misbehaves: a flapping lock, figures reported as they are.
void readMisbehaviour(const Reader& r, const json& v, const std::string& p, Transmitter& tx) {
    if (v.contains("flapPeriodMs")) {
        tx.flapPeriodMs =
                r.integer(v.at("flapPeriodMs"), Reader::join(p, "flapPeriodMs"), 1, 600000);
    }
    if (!v.contains("figures")) return;
    const std::string fp = Reader::join(p, "figures");
    const json& f = r.object(v.at("figures"), fp, {"snr", "ber", "mer", "lber", "packetError"});
    const std::pair<const char*, std::optional<float>*> fields[] = {
            {"snr", &tx.snr},
            {"ber", &tx.ber},
            {"mer", &tx.mer},
            {"lber", &tx.lber},
            {"packetError", &tx.packetError}};
    for (const auto& [key, field] : fields) {
        if (f.contains(key)) *field = figure(r, f.at(key), Reader::join(fp, key));
    }
}

// The driver functions by the names SimulatedDriver.h gives them.
constexpr std::array<NameCode, kDriverFunctions> functionTable() {
    std::array<NameCode, kDriverFunctions> table{};
    for (size_t f = 0; f < kDriverFunctions; ++f) {
        table[f] = {kEntryPoints[f].shortName, static_cast<uint32_t>(f)};
    }
    return table;
}
constexpr std::array<NameCode, kDriverFunctions> kFunctionTable = functionTable();

// Driver functions that fail: {"Scan": {"result": -1, "first": 2}}.
void readFaults(const Reader& r, const json& v, Misbehaviour& misbehaviour) {
    if (!v.is_object()) r.fail("faults", "must be an object");
    for (const auto& [function, rule] : v.items()) {
        const std::string p = Reader::join("faults", function);
        const uint32_t f = r.name(json(function), p, names(kFunctionTable));
        r.object(rule, p, {"result", "first", "every"});
        Fault& fault = misbehaviour.faults[f];
        const json& result = r.member(rule, p, "result");
        if (!result.is_number_integer() || result.get<int64_t>() == 0 ||
            result.get<int64_t>() < INT32_MIN || result.get<int64_t>() > INT32_MAX) {
            r.fail(Reader::join(p, "result"), "must be a non-zero 32-bit result code");
        }
        fault.result = static_cast<int>(result.get<int64_t>());
        if (rule.contains("first"))
            fault.first = r.integer(rule.at("first"), Reader::join(p, "first"), 1, UINT32_MAX);
        if (rule.contains("every"))
            fault.every = r.integer(rule.at("every"), Reader::join(p, "every"), 1, UINT32_MAX);
    }
}

// Changes of the world in the simulated clock: [{"at": "30s", "do": "transmitter 474MHz off"}].
// A change must name a transmitter of the file.
void readTimeline(const Reader& r, const json& v, Environment& env) {
    const json& entries = r.array(v, "timeline", 10000);
    for (size_t i = 0; i < entries.size(); ++i) {
        const std::string p = Reader::index("timeline", i);
        const json& entry = r.object(entries[i], p, {"at", "do"});
        const json& at = r.member(entry, p, "at");
        const json& what = r.member(entry, p, "do");
        TimedChange timed;
        char* end = nullptr;
        const std::string text = at.is_string() ? at.get<std::string>() : "";
        const double seconds = strtod(text.c_str(), &end);
        if (text.empty() || std::string(end) != "s" || !(seconds >= 0) || seconds > 86400) {
            r.fail(Reader::join(p, "at"), "must be seconds of the simulated clock, e.g. \"30s\"");
        }
        timed.atMs = static_cast<uint64_t>(seconds * 1000);
        std::string error;
        if (!what.is_string() || !parseWorldChange(what.get<std::string>(), timed.change, error)) {
            r.fail(Reader::join(p, "do"), what.is_string() ? error : "must be a change in words");
        }
        const WorldChange::Kind kind = timed.change.kind;
        if (kind == WorldChange::Kind::kTransmitterOn ||
            kind == WorldChange::Kind::kTransmitterOff || kind == WorldChange::Kind::kFigure) {
            const bool known =
                    std::any_of(env.air.begin(), env.air.end(), [&](const Transmitter& tx) {
                        return tx.frequencyMHz == timed.change.frequencyMHz;
                    });
            if (!known) {
                r.fail(Reader::join(p, "do"),
                       "no transmitter at " + std::to_string(timed.change.frequencyMHz) + " MHz");
            }
        }
        env.timeline.push_back(timed);
    }
}

// Which fields a transmitter of a system may have.
const std::set<std::string>& transmitterFields(uint32_t system) {
    static const std::set<std::string> terrestrial = {
            "system",    "frequencyMHz", "bandwidth",   "hierarchy",    "plps",
            "levelDbuV", "cnDb",         "lockDelayMs", "flapPeriodMs", "figures"};
    static const std::set<std::string> cable = {
            "system",    "frequencyMHz", "symbolRate",  "modulation",   "annex",  "bandwidth",
            "levelDbuV", "cnDb",         "lockDelayMs", "flapPeriodMs", "figures"};
    static const std::set<std::string> other = {"system",       "frequencyMHz", "symbolRate",
                                                "levelDbuV",    "cnDb",         "lockDelayMs",
                                                "flapPeriodMs", "figures"};
    return isTerrestrial(system) ? terrestrial : system == MOX_TUNER_TYPE_DVBC ? cable : other;
}

Transmitter readTransmitter(const Reader& r, const json& v, const std::string& p) {
    if (!v.is_object()) r.fail(p, "must be an object");
    Transmitter tx{};
    tx.system = r.name(r.member(v, p, "system"), Reader::join(p, "system"), kSystems);
    for (const auto& [key, member] : v.items()) {
        if (!transmitterFields(tx.system).count(key)) {
            r.fail(Reader::join(p, key), "does not apply to " + v.at("system").get<std::string>());
        }
    }
    auto at = [&](const char* key) { return Reader::join(p, key); };
    tx.frequencyMHz = r.integer(r.member(v, p, "frequencyMHz"), at("frequencyMHz"), 1, 100000);
    tx.levelDbuV = 60.0f;
    tx.cnDb = 30.0f;
    tx.lockDelayMs = 300;
    if (v.contains("levelDbuV"))
        tx.levelDbuV = r.number(v.at("levelDbuV"), at("levelDbuV"), 0, 120);
    if (v.contains("cnDb")) tx.cnDb = r.number(v.at("cnDb"), at("cnDb"), -10, 60);
    if (v.contains("lockDelayMs")) {
        tx.lockDelayMs = r.integer(v.at("lockDelayMs"), at("lockDelayMs"), 0, 60000);
    }
    readMisbehaviour(r, v, p, tx);
    if (isTerrestrial(tx.system)) {
        tx.bandwidth = r.name(r.member(v, p, "bandwidth"), at("bandwidth"), kBandwidths);
        if (v.contains("hierarchy"))
            tx.hierarchy = r.integer(v.at("hierarchy"), at("hierarchy"), 0, 3);
        if (v.contains("plps")) {
            if (tx.system != MOX_TUNER_TYPE_DVBT2) r.fail(at("plps"), "only DVB-T2 carries PLPs");
            const json& plps = r.array(v.at("plps"), at("plps"), 255);
            for (size_t i = 0; i < plps.size(); ++i) {
                tx.plpIds.push_back(static_cast<uint8_t>(
                        r.integer(plps[i], Reader::index(at("plps"), i), 0, 255)));
            }
        }
    } else {
        tx.symbolRate = r.integer(r.member(v, p, "symbolRate"), at("symbolRate"), 1000, 100000000);
        if (v.contains("modulation"))
            tx.modulation = r.name(v.at("modulation"), at("modulation"), kQam);
        if (v.contains("annex")) tx.annex = r.name(v.at("annex"), at("annex"), kAnnexes);
        // A cable channel occupies the 8 MHz raster unless the file says otherwise.
        if (tx.system == MOX_TUNER_TYPE_DVBC) {
            tx.bandwidth = v.contains("bandwidth")
                                   ? r.name(v.at("bandwidth"), at("bandwidth"), kBandwidths)
                                   : MOX_TUNER_BW_8MHZ;
        }
    }
    return tx;
}

constexpr NameCode kInputTable[] = {{"A", 0}, {"B", 1}, {"C", 2}, {"D", 3}};
constexpr NameCode kPolarisationTable[] = {{"V", 0}, {"H", 1}};
constexpr NameCode kSatelliteSystemTable[] = {{"DVB-S", MOX_TUNER_TYPE_DVBS},
                                              {"DVB-S2", MOX_TUNER_TYPE_DVBS2}};

// Satellites behind the dish's switch, each on an input A..D, with their transponders at their
// downlink frequencies.
void readSatellites(const Reader& r, const json& v, std::vector<Transmitter>& air) {
    const json& satellites = r.array(v, "satellites", 4);
    std::map<std::tuple<int, bool, uint32_t>, std::string> used;
    for (size_t s = 0; s < satellites.size(); ++s) {
        const std::string sp = Reader::index("satellites", s);
        const json& satellite = r.object(satellites[s], sp, {"name", "input", "transponders"});
        if (satellite.contains("name") && !satellite.at("name").is_string()) {
            r.fail(Reader::join(sp, "name"), "must be a text");
        }
        const int input = static_cast<int>(r.name(r.member(satellite, sp, "input"),
                                                  Reader::join(sp, "input"), names(kInputTable)));
        const std::string tp = Reader::join(sp, "transponders");
        const json& transponders = r.array(r.member(satellite, sp, "transponders"), tp, 1000);
        for (size_t i = 0; i < transponders.size(); ++i) {
            const std::string p = Reader::index(tp, i);
            const json& t =
                    r.object(transponders[i], p,
                             {"system", "frequencyMHz", "polarisation", "symbolRate", "levelDbuV",
                              "cnDb", "lockDelayMs", "flapPeriodMs", "figures"});
            auto at = [&](const char* key) { return Reader::join(p, key); };
            Transmitter tx{};
            tx.switchInput = input;
            tx.system = r.name(r.member(t, p, "system"), at("system"), names(kSatelliteSystemTable));
            tx.frequencyMHz =
                    r.integer(r.member(t, p, "frequencyMHz"), at("frequencyMHz"), 10700, 12750);
            tx.horizontal = r.name(r.member(t, p, "polarisation"), at("polarisation"),
                                   names(kPolarisationTable)) == 1;
            tx.symbolRate =
                    r.integer(r.member(t, p, "symbolRate"), at("symbolRate"), 1000000, 45000000);
            tx.levelDbuV = t.contains("levelDbuV")
                                   ? r.number(t.at("levelDbuV"), at("levelDbuV"), 0, 120)
                                   : 65.0f;
            tx.cnDb = t.contains("cnDb") ? r.number(t.at("cnDb"), at("cnDb"), -10, 60) : 12.0f;
            tx.lockDelayMs = t.contains("lockDelayMs")
                                     ? r.integer(t.at("lockDelayMs"), at("lockDelayMs"), 0, 60000)
                                     : 500;
            readMisbehaviour(r, t, p, tx);
            const auto [it, fresh] =
                    used.emplace(std::make_tuple(input, tx.horizontal, tx.frequencyMHz), p);
            if (!fresh) {
                r.fail(at("frequencyMHz"), std::to_string(tx.frequencyMHz) + " MHz " +
                                                   (tx.horizontal ? "H" : "V") +
                                                   " is already used by " + it->second);
            }
            air.push_back(std::move(tx));
        }
    }
}

}  // namespace

Environment parseEnvironment(const std::string& text, const std::string& name) {
    json root;
    try {
        root = json::parse(text);
    } catch (const json::parse_error& e) {
        // "[json.exception.parse_error.101] parse error at line 3, column 5: ..."
        const std::string what = e.what();
        const size_t at = what.find("at line ");
        const std::string line =
                at == std::string::npos ? "1" : what.substr(at + 8, what.find(',', at) - at - 8);
        const size_t colon = what.find(": ", at == std::string::npos ? 0 : at);
        throw EnvironmentError(name + ":" + line + ": syntax error: " +
                               (colon == std::string::npos ? what : what.substr(colon + 2)));
    }
    const Reader r(name, text);
    r.object(root, "",
             {"frontends", "transmitters", "satellites", "faults", "seed", "declaredFrontendCount",
              "timeline"});
    Environment env{};
    memset(&env.capability, 0, sizeof(env.capability));
    const json& frontends = r.array(r.member(root, "", "frontends"), "frontends", 5);
    env.capability.ucFrontendCnt = static_cast<uint8_t>(frontends.size());
    for (size_t i = 0; i < frontends.size(); ++i) {
        const std::string p = Reader::index("frontends", i);
        readFrontend(r, frontends[i], p, env.capability.tFrontend[i]);
        env.misbehaviour.entryNeverLocks.push_back(
                frontends[i].contains("neverLocks") &&
                r.boolean(frontends[i].at("neverLocks"), Reader::join(p, "neverLocks")));
    }
    if (root.contains("declaredFrontendCount")) {
        env.capability.ucFrontendCnt = static_cast<uint8_t>(
                r.integer(root.at("declaredFrontendCount"), "declaredFrontendCount", 0, 255));
    }
    if (root.contains("seed"))
        env.misbehaviour.seed = r.integer(root.at("seed"), "seed", 0, UINT32_MAX);
    if (root.contains("faults")) readFaults(r, root.at("faults"), env.misbehaviour);
    if (root.contains("transmitters")) {
        const json& transmitters = r.array(root.at("transmitters"), "transmitters", 1000);
        // One transmitter per frequency of a kind of network: terrestrial, cable, satellite.
        std::map<std::pair<int, uint32_t>, size_t> used;
        for (size_t i = 0; i < transmitters.size(); ++i) {
            const std::string p = Reader::index("transmitters", i);
            Transmitter tx = readTransmitter(r, transmitters[i], p);
            const int network = isTerrestrial(tx.system)           ? 0
                                : tx.system == MOX_TUNER_TYPE_DVBC ? 1
                                                                   : 2;
            const auto [it, fresh] = used.emplace(std::make_pair(network, tx.frequencyMHz), i);
            if (!fresh) {
                r.fail(Reader::join(p, "frequencyMHz"),
                       std::to_string(tx.frequencyMHz) + " MHz is already used by transmitters[" +
                               std::to_string(it->second) + "]");
            }
            env.air.push_back(std::move(tx));
        }
    }
    if (root.contains("satellites")) readSatellites(r, root.at("satellites"), env.air);
    if (root.contains("timeline")) readTimeline(r, root.at("timeline"), env);
    return env;
}

Environment loadEnvironmentFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw EnvironmentError(path + ":0: cannot be read: " + std::strerror(errno));
    std::stringstream text;
    text << in.rdbuf();
    return parseEnvironment(text.str(), path);
}

}  // namespace mox::sim
