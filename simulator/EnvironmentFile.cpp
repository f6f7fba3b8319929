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
#include "simulator/stream/CapturedStream.h"

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

    // A path the file names, as seen from the file's own directory.
    std::string besideFile(const std::string& path) const {
        const size_t slash = mName.rfind('/');
        if (path.empty() || path[0] == '/' || slash == std::string::npos) return path;
        return mName.substr(0, slash + 1) + path;
    }

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

    // A list the stream bounds: "31 services, a multiplex carries at most 30".
    const json& bounded(const json& v, const std::string& path, size_t most, const char* things,
                        const char* holder) const {
        if (!v.is_array()) fail(path, "must be a list");
        if (v.size() > most) {
            fail(path, std::to_string(v.size()) + " " + things + ", " + holder +
                               " carries at most " + std::to_string(most));
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

constexpr NameCode kConstellationTable[] = {{"QPSK", 2}, {"16QAM", 4}, {"64QAM", 6}};
constexpr NameCode kT2ConstellationTable[] = {
        {"QPSK", 2}, {"16QAM", 4}, {"64QAM", 6}, {"256QAM", 8}};
constexpr NameCode kSatelliteModulationTable[] = {
        {"QPSK", 2}, {"8PSK", 3}, {"16APSK", 4}, {"32APSK", 5}};
constexpr const char* kTerrestrialCodeRates = "1/2 2/3 3/4 5/6 7/8";
constexpr const char* kT2CodeRates = "1/2 3/5 2/3 3/4 4/5 5/6";
constexpr const char* kSatelliteCodeRates = "1/2 3/5 2/3 3/4 4/5 5/6 7/8 8/9 9/10";
constexpr const char* kTerrestrialGuards = "1/32 1/16 1/8 1/4";
constexpr const char* kT2Guards = "1/128 1/32 1/16 19/256 1/8 19/128 1/4";

// A fraction of a list given as text, e.g. "2/3" of "1/2 2/3 3/4".
air::CodeRate readFraction(const Reader& r, const json& v, const std::string& path,
                           const char* allowed) {
    std::istringstream list(allowed);
    for (std::string f; list >> f;) {
        if (v.is_string() && v.get<std::string>() == f) {
            const size_t slash = f.find('/');
            return {static_cast<uint32_t>(std::stoul(f.substr(0, slash))),
                    static_cast<uint32_t>(std::stoul(f.substr(slash + 1)))};
        }
    }
    std::string listed = allowed;
    for (size_t at = listed.find(' '); at != std::string::npos; at = listed.find(' ', at + 2))
        listed.replace(at, 1, ", ");
    r.fail(path, v.dump() + " is not one of " + listed);
}

// A text of at most limit bytes.
std::string readText(const Reader& r, const json& v, const std::string& path, size_t limit) {
    if (!v.is_string()) r.fail(path, "must be a text");
    const std::string text = v.get<std::string>();
    if (text.size() > limit) {
        r.fail(path, "longer than " + std::to_string(limit) + " bytes");
    }
    return text;
}

constexpr NameCode kServiceTypeTable[] = {
        {"tv", 0x01}, {"radio", 0x02}, {"data", 0x0C}, {"hd-tv", 0x19}};
constexpr NameCode kStreamTypeTable[] = {
        {"MPEG-2 video", 0x02}, {"H.264", 0x1B}, {"HEVC", 0x24}, {"MPEG audio", 0x03},
        {"MPEG-2 audio", 0x04}, {"AAC", 0x0F},   {"AC-3", 0x06}};

uint16_t readPid(const Reader& r, const json& v, const std::string& path) {
    return static_cast<uint16_t>(r.integer(v, path, 0x20, 0x1FFE));
}

// "20:30": minutes after midnight.
uint32_t readTimeOfDay(const Reader& r, const json& v, const std::string& path) {
    unsigned hours = 0, minutes = 0;
    char end = 0;
    if (!v.is_string() ||
        sscanf(v.get<std::string>().c_str(), "%2u:%2u%c", &hours, &minutes, &end) != 2 ||
        hours > 23 || minutes > 59) {
        r.fail(path, "must be a time of day in UTC, e.g. \"20:30\"");
    }
    return hours * 60 + minutes;
}

air::Service readService(const Reader& r, const json& v, const std::string& p) {
    r.object(v, p,
             {"id", "name", "provider", "type", "pmtPid", "pcrPid", "scrambled", "components",
              "events"});
    auto at = [&](const char* key) { return Reader::join(p, key); };
    air::Service s;
    s.id = static_cast<uint16_t>(r.integer(r.member(v, p, "id"), at("id"), 1, 0xFFFF));
    s.name = readText(r, r.member(v, p, "name"), at("name"), air::kMaxNameLength);
    if (v.contains("provider"))
        s.provider = readText(r, v.at("provider"), at("provider"), air::kMaxNameLength);
    if (v.contains("type"))
        s.type = static_cast<uint8_t>(r.name(v.at("type"), at("type"), names(kServiceTypeTable)));
    if (v.contains("pmtPid")) s.pmtPid = readPid(r, v.at("pmtPid"), at("pmtPid"));
    if (v.contains("pcrPid")) s.pcrPid = readPid(r, v.at("pcrPid"), at("pcrPid"));
    if (v.contains("scrambled")) s.scrambled = r.boolean(v.at("scrambled"), at("scrambled"));
    const json& components = r.bounded(r.member(v, p, "components"), at("components"),
                                       air::kMaxComponentsPerService, "components", "a service");
    if (components.empty()) r.fail(at("components"), "a service needs at least one component");
    for (size_t i = 0; i < components.size(); ++i) {
        const std::string cp = Reader::index(at("components"), i);
        const json& c = r.object(components[i], cp, {"type", "pid", "language", "bitRateKbps"});
        air::Component component;
        component.streamType = static_cast<uint8_t>(
                r.name(r.member(c, cp, "type"), Reader::join(cp, "type"), names(kStreamTypeTable)));
        component.ac3 = c.at("type") == "AC-3";
        if (c.contains("pid")) component.pid = readPid(r, c.at("pid"), Reader::join(cp, "pid"));
        if (c.contains("language")) {
            component.language = readText(r, c.at("language"), Reader::join(cp, "language"), 3);
            if (component.language.size() != 3) {
                r.fail(Reader::join(cp, "language"), "must be an ISO 639 code of three letters");
            }
        }
        if (c.contains("bitRateKbps")) {
            component.bitRate = 1000 * r.integer(c.at("bitRateKbps"),
                                                 Reader::join(cp, "bitRateKbps"), 16, 100000);
        }
        s.components.push_back(component);
    }
    if (v.contains("events")) {
        const json& events = r.bounded(v.at("events"), at("events"), air::kMaxEventsPerService,
                                       "events", "a service's schedule");
        for (size_t i = 0; i < events.size(); ++i) {
            const std::string ep = Reader::index(at("events"), i);
            const json& e = r.object(events[i], ep, {"start", "minutes", "name", "text"});
            air::ProgrammeEvent event;
            event.id = static_cast<uint16_t>(i + 1);
            event.startMinute =
                    readTimeOfDay(r, r.member(e, ep, "start"), Reader::join(ep, "start"));
            event.minutes =
                    r.integer(r.member(e, ep, "minutes"), Reader::join(ep, "minutes"), 1, 1440);
            event.name = readText(r, r.member(e, ep, "name"), Reader::join(ep, "name"),
                                  air::kMaxNameLength);
            if (e.contains("text"))
                event.text =
                        readText(r, e.at("text"), Reader::join(ep, "text"), air::kMaxTextLength);
            s.events.push_back(event);
        }
    }
    return s;
}

// What a transmitter carries: a multiplex of services, a captured stream, faults of its stream.
void readContent(const Reader& r, const json& v, const std::string& p, Transmitter& tx) {
    auto at = [&](const char* key) { return Reader::join(p, key); };
    if (v.contains("multiplex") && v.contains("ts"))
        r.fail(at("ts"), "a transmitter carries a multiplex or a ts file, not both");
    if (v.contains("ts")) {
        tx.tsFile = r.besideFile(readText(r, v.at("ts"), at("ts"), 4096));
        try {
            air::readCaptureSummary(tx.tsFile);
        } catch (const air::CaptureError& e) {
            r.fail(at("ts"), e.what());
        }
    }
    if (v.contains("multiplex")) {
        const std::string mp = at("multiplex");
        const json& m = r.object(v.at("multiplex"), mp,
                                 {"network", "transportStreamId", "originalNetworkId", "services"});
        air::MultiplexContent& c = tx.content;
        c.networkId = static_cast<uint16_t>(
                r.integer(r.member(m, mp, "network"), Reader::join(mp, "network"), 1, 0xFFFF));
        c.transportStreamId =
                static_cast<uint16_t>(r.integer(r.member(m, mp, "transportStreamId"),
                                                Reader::join(mp, "transportStreamId"), 0, 0xFFFF));
        c.originalNetworkId = m.contains("originalNetworkId")
                                      ? static_cast<uint16_t>(r.integer(
                                                m.at("originalNetworkId"),
                                                Reader::join(mp, "originalNetworkId"), 0, 0xFFFF))
                                      : c.networkId;
        const std::string sp = Reader::join(mp, "services");
        const json& services = r.bounded(r.member(m, mp, "services"), sp,
                                         air::kMaxServicesPerMultiplex, "services", "a multiplex");
        if (services.empty()) r.fail(sp, "a multiplex needs at least one service");
        std::map<uint32_t, std::string> pids;
        std::set<uint16_t> ids;
        for (size_t i = 0; i < services.size(); ++i) {
            const std::string ip = Reader::index(sp, i);
            air::Service s = readService(r, services[i], ip);
            if (!ids.insert(s.id).second)
                r.fail(Reader::join(ip, "id"),
                       "service " + std::to_string(s.id) + " is there twice");
            c.services.push_back(std::move(s));
        }
    }
    if (v.contains("streamFaults")) {
        const std::string fp = at("streamFaults");
        const json& f =
                r.object(v.at("streamFaults"), fp,
                         {"continuityErrorsPerS", "crcErrorsPerS", "missing", "overflowPercent"});
        air::StreamFaults& faults = tx.streamFaults;
        if (f.contains("continuityErrorsPerS"))
            faults.continuityErrorsPerS =
                    r.number(f.at("continuityErrorsPerS"), Reader::join(fp, "continuityErrorsPerS"),
                             0, 10000);
        if (f.contains("crcErrorsPerS"))
            faults.crcErrorsPerS =
                    r.number(f.at("crcErrorsPerS"), Reader::join(fp, "crcErrorsPerS"), 0, 10000);
        if (f.contains("overflowPercent"))
            faults.overflowPercent =
                    r.integer(f.at("overflowPercent"), Reader::join(fp, "overflowPercent"), 0, 100);
        if (f.contains("missing")) {
            const std::string mp = Reader::join(fp, "missing");
            const json& missing = r.array(f.at("missing"), mp, air::kTables);
            for (size_t i = 0; i < missing.size(); ++i) {
                bool known = false;
                for (size_t t = 0; t < air::kTables; ++t) {
                    if (missing[i] == air::tableName(static_cast<air::Table>(t))) {
                        faults.missing[t] = known = true;
                    }
                }
                if (!known)
                    r.fail(Reader::index(mp, i), missing[i].dump() +
                                                         " is not a table: PAT, CAT, PMT, NIT, "
                                                         "SDT, SDT-other, EIT, TDT, TOT");
            }
        }
    }
}

// Which fields a transmitter of a system may have.
const std::set<std::string>& transmitterFields(uint32_t system) {
    static const std::set<std::string> terrestrial = {
            "system",        "frequencyMHz", "bandwidth",     "hierarchy",
            "plps",          "levelDbuV",    "cnDb",          "lockDelayMs",
            "flapPeriodMs",  "figures",      "constellation", "codeRate",
            "guardInterval", "multiplex",    "streamFaults",  "ts"};
    static const std::set<std::string> cable = {
            "system",    "frequencyMHz", "symbolRate",   "modulation",  "annex",
            "bandwidth", "levelDbuV",    "cnDb",         "lockDelayMs", "flapPeriodMs",
            "figures",   "multiplex",    "streamFaults", "ts"};
    static const std::set<std::string> other = {
            "system",       "frequencyMHz", "symbolRate", "levelDbuV",    "cnDb", "lockDelayMs",
            "flapPeriodMs", "figures",      "multiplex",  "streamFaults", "ts"};
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
    readContent(r, v, p, tx);
    if (isTerrestrial(tx.system)) {
        tx.bandwidth = r.name(r.member(v, p, "bandwidth"), at("bandwidth"), kBandwidths);
        if (v.contains("hierarchy"))
            tx.hierarchy = r.integer(v.at("hierarchy"), at("hierarchy"), 0, 3);
        const bool t2 = tx.system == MOX_TUNER_TYPE_DVBT2;
        if (v.contains("constellation")) {
            tx.bitsPerSymbol =
                    r.name(v.at("constellation"), at("constellation"),
                           t2 ? names(kT2ConstellationTable) : names(kConstellationTable));
        }
        if (v.contains("codeRate")) {
            tx.codeRate = readFraction(r, v.at("codeRate"), at("codeRate"),
                                       t2 ? kT2CodeRates : kTerrestrialCodeRates);
        }
        if (v.contains("guardInterval")) {
            tx.guard = readFraction(r, v.at("guardInterval"), at("guardInterval"),
                                    t2 ? kT2Guards : kTerrestrialGuards);
        }
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
// downlink frequencies. paths: where each transmitter stands in the file.
void readSatellites(const Reader& r, const json& v, std::vector<Transmitter>& air,
                    std::vector<std::string>& paths) {
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
                              "cnDb", "lockDelayMs", "flapPeriodMs", "figures", "modulation",
                              "codeRate", "pilots", "multiplex", "streamFaults", "ts"});
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
            readContent(r, t, p, tx);
            if (t.contains("modulation")) {
                tx.bitsPerSymbol = r.name(t.at("modulation"), at("modulation"),
                                          names(kSatelliteModulationTable));
                if (tx.system == MOX_TUNER_TYPE_DVBS && tx.bitsPerSymbol != 2) {
                    r.fail(at("modulation"), "DVB-S is QPSK");
                }
            }
            if (t.contains("codeRate"))
                tx.codeRate = readFraction(r, t.at("codeRate"), at("codeRate"), kSatelliteCodeRates);
            if (t.contains("pilots")) tx.pilots = r.boolean(t.at("pilots"), at("pilots"));
            const auto [it, fresh] =
                    used.emplace(std::make_tuple(input, tx.horizontal, tx.frequencyMHz), p);
            if (!fresh) {
                r.fail(at("frequencyMHz"), std::to_string(tx.frequencyMHz) + " MHz " +
                                                   (tx.horizontal ? "H" : "V") +
                                                   " is already used by " + it->second);
            }
            air.push_back(std::move(tx));
            paths.push_back(p);
        }
    }
}

// The dates the network's time may start at: DVB's date field carries modified Julian dates up
// to 0xFFFF (2038-04-22), and a 32-bit time_t (the armhf build's) ends sooner, on 2038-01-19.
constexpr int64_t kDvbDatesEnd = int64_t{0xFFFF + 1 - 40587} * 86400;
constexpr int64_t kUtcStartEnd = int64_t{std::numeric_limits<time_t>::max()} < kDvbDatesEnd
                                         ? int64_t{std::numeric_limits<time_t>::max()} + 1
                                         : kDvbDatesEnd;
constexpr const char* kUtcStartRange =
        kUtcStartEnd == kDvbDatesEnd ? "1970-01-01 to 2038-04-22" : "1970-01-01 to 2038-01-19";

// The network's time when the clock starts: "2026-11-24T20:00:00Z", a real date and time of day.
time_t readUtcStart(const Reader& r, const json& v) {
    struct tm tm {};
    int length = -1;  // set only when the text matched up to its Z
    const std::string text = v.is_string() ? v.get<std::string>() : "";
    if (sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
               &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &length) != 6 ||
        length != static_cast<int>(text.size())) {
        r.fail("utcStart", "must be a time in UTC, e.g. \"2026-11-24T20:00:00Z\"");
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const struct tm asked = tm;
    // -1 also where time_t cannot hold the time.
    const time_t utc = timegm(&tm);
    if (utc < 0 || int64_t{utc} >= kUtcStartEnd) {
        r.fail("utcStart",
               v.dump() + " is outside the dates DVB's time tables carry, " + kUtcStartRange);
    }
    // timegm moves a 31 November to 1 December: a field it moved was not a date.
    if (tm.tm_year != asked.tm_year || tm.tm_mon != asked.tm_mon || tm.tm_mday != asked.tm_mday ||
        tm.tm_hour != asked.tm_hour || tm.tm_min != asked.tm_min || tm.tm_sec != asked.tm_sec) {
        r.fail("utcStart", v.dump() + " is no date and time of day");
    }
    return utc;
}

// The networks multiplexes name, and the network's time when the clock starts. paths: where each
// transmitter stands in the file.
void readNetworks(const Reader& r, const json& root, Environment& env,
                  const std::vector<std::string>& paths) {
    std::map<uint16_t, std::string> names;
    if (root.contains("networks")) {
        const json& networks = r.array(root.at("networks"), "networks", 64);
        for (size_t i = 0; i < networks.size(); ++i) {
            const std::string p = Reader::index("networks", i);
            const json& n = r.object(networks[i], p, {"id", "name"});
            const auto id = static_cast<uint16_t>(
                    r.integer(r.member(n, p, "id"), Reader::join(p, "id"), 1, 0xFFFF));
            if (!names.emplace(id, readText(r, r.member(n, p, "name"), Reader::join(p, "name"),
                                            air::kMaxNameLength))
                         .second) {
                r.fail(Reader::join(p, "id"), "network " + std::to_string(id) + " is there twice");
            }
        }
    }
    // Where each network's transport streams were written.
    std::map<std::pair<uint16_t, uint16_t>, std::string> streams;
    for (size_t i = 0; i < env.air.size(); ++i) {
        air::MultiplexContent& c = env.air[i].content;
        if (c.services.empty()) continue;
        const std::string mp = Reader::join(paths[i], "multiplex");
        const auto name = names.find(c.networkId);
        if (name == names.end()) {
            r.fail(Reader::join(mp, "network"),
                   "no network " + std::to_string(c.networkId) + " in \"networks\"");
        }
        c.networkName = name->second;
        const auto [it, fresh] =
                streams.emplace(std::make_pair(c.networkId, c.transportStreamId), mp);
        if (!fresh) {
            r.fail(Reader::join(mp, "transportStreamId"),
                   "transport stream " + std::to_string(c.transportStreamId) + " of network " +
                           std::to_string(c.networkId) + " is already " + it->second);
        }
    }
    // Each multiplex's PIDs, its PMTs' and components' (those it leaves out included), apart.
    std::vector<Transmitter> completed = env.air;
    completeAir(completed);
    for (size_t i = 0; i < completed.size(); ++i) {
        const std::string sp = Reader::join(Reader::join(paths[i], "multiplex"), "services");
        const std::vector<air::Service>& services = completed[i].content.services;
        std::map<uint16_t, std::string> used;
        for (size_t j = 0; j < services.size(); ++j) {
            const air::Service& s = services[j];
            const std::string at = Reader::index(sp, j);
            const std::string of = " of service " + std::to_string(s.id);
            std::vector<std::tuple<uint16_t, std::string, std::string>> pids = {
                    {s.pmtPid, "the PMT" + of, Reader::join(at, "pmtPid")}};
            for (size_t k = 0; k < s.components.size(); ++k) {
                pids.emplace_back(
                        s.components[k].pid, "component " + std::to_string(k) + of,
                        Reader::join(Reader::index(Reader::join(at, "components"), k), "pid"));
            }
            for (const auto& [pid, owner, path] : pids) {
                const auto [it, fresh] = used.emplace(pid, owner);
                if (!fresh) {
                    r.fail(path, "PID " + std::to_string(pid) + " of " + owner +
                                         " is already used by " + it->second);
                }
            }
        }
    }
    if (root.contains("utcStart")) env.utcStart = readUtcStart(r, root.at("utcStart"));
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
              "timeline", "networks", "utcStart"});
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
    std::vector<std::string> paths;  // where each of env.air stands in the file
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
            paths.push_back(p);
        }
    }
    if (root.contains("satellites")) readSatellites(r, root.at("satellites"), env.air, paths);
    readNetworks(r, root, env, paths);
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
