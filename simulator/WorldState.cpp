// The simulated world while the service runs: changes made now or by the timeline as the
// simulated clock runs on, and a description of everything the driver holds.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "simulator/SimulatedDriver.h"

namespace mox::sim {
namespace {

using json = nlohmann::json;

const char* systemName(uint32_t code) {
    switch (code) {
        case 1:
            return "DVB-C";
        case 4:
            return "DVB-T";
        case 5:
            return "DVB-S";
        case 6:
            return "DVB-S2";
        case 7:
            return "DVB-T2";
        default:
            return "other";
    }
}

// A figure as JSON: NaN and infinities have no JSON number, so they go as text.
json figureJson(float value) {
    if (std::isfinite(value)) return value;
    return std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf";
}

std::string hex(const std::vector<uint8_t>& bytes) {
    std::string text;
    char byte[4];
    for (uint8_t b : bytes) {
        snprintf(byte, sizeof(byte), "%s%02X", text.empty() ? "" : " ", b);
        text += byte;
    }
    return text;
}

Input inputOf(uint32_t system) {
    return system == 1                  ? Input::kCable
           : system == 5 || system == 6 ? Input::kDish
                                        : Input::kAntenna;
}

}  // namespace

void SimulatedDriver::setTimeline(std::vector<TimedChange> timeline) {
    ::android::Mutex::Autolock guard(mLock);
    std::stable_sort(timeline.begin(), timeline.end(),
                     [](const TimedChange& a, const TimedChange& b) { return a.atMs < b.atMs; });
    mTimeline = std::move(timeline);
    mTimelineDone = 0;
}

bool SimulatedDriver::connectedLocked(uint32_t system) const {
    return mConnected[static_cast<size_t>(inputOf(system))];
}

void SimulatedDriver::advanceLocked() {
    const uint64_t now = mClock();
    while (mTimelineDone < mTimeline.size() &&
           now - mStartUs >= mTimeline[mTimelineDone].atMs * 1000) {
        std::string ignored;  // the file's changes were checked when it was read
        changeLocked(mTimeline[mTimelineDone++].change, ignored);
    }
    for (auto it = mRamps.begin(); it != mRamps.end();) {
        const double done =
                it->durationUs == 0
                        ? 1.0
                        : std::min(1.0, double(now - it->startUs) / double(it->durationUs));
        const float value = it->from + static_cast<float>(done) * (it->to - it->from);
        Transmitter& tx = mAir[it->transmitter];
        (it->figure == WorldChange::Figure::kLevel ? tx.levelDbuV : tx.cnDb) = value;
        it = done >= 1.0 ? mRamps.erase(it) : std::next(it);
    }
}

// A tuner tuned where nothing was on the air keeps trying: a signal that appears there is
// acquired from now, after the transmitter's lock delay.
void SimulatedDriver::reacquireLocked() {
    for (size_t t = 0; t < mTuners.size(); ++t) {
        TunerState& tuner = mTuners[t];
        if (!tuner.tuned || tuner.transmitter >= 0) continue;
        tuner.transmitter = matchLocked(static_cast<uint8_t>(t), tuner.param);
        if (tuner.transmitter >= 0) tuner.tunedAtUs = mClock();
    }
}

bool SimulatedDriver::change(const WorldChange& change, std::string& error) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    return changeLocked(change, error);
}

bool SimulatedDriver::changeLocked(const WorldChange& change, std::string& error) {
    using Kind = WorldChange::Kind;
    switch (change.kind) {
        case Kind::kConnect:
        case Kind::kDisconnect:
            mConnected[static_cast<size_t>(change.input)] = change.kind == Kind::kConnect;
            if (change.kind == Kind::kConnect) reacquireLocked();
            return true;
        case Kind::kFail:
        case Kind::kHeal: {
            const size_t f = static_cast<size_t>(change.function);
            mMisbehaviour.faults[f] = change.kind == Kind::kFail ? change.fault : Fault();
            mCalls[f] = 0;  // "first N" counts from now
            return true;
        }
        default:
            break;
    }
    bool found = false;
    ++mAirVersion;
    for (size_t i = 0; i < mAir.size(); ++i) {
        Transmitter& tx = mAir[i];
        if (tx.frequencyMHz != change.frequencyMHz) continue;
        found = true;
        if (change.kind == Kind::kStream) {
            if (!streamChangeLocked(change, tx, error)) return false;
        } else if (change.kind != Kind::kFigure) {
            tx.onAir = change.kind == Kind::kTransmitterOn;
            if (tx.onAir) reacquireLocked();
        } else if (change.figure == WorldChange::Figure::kBer) {
            tx.ber = change.value;
        } else {
            // A new ramp of the figure replaces one under way.
            mRamps.erase(std::remove_if(mRamps.begin(), mRamps.end(),
                                        [&](const Ramp& r) {
                                            return r.transmitter == i && r.figure == change.figure;
                                        }),
                         mRamps.end());
            const float from = change.figure == WorldChange::Figure::kLevel ? tx.levelDbuV : tx.cnDb;
            mRamps.push_back({i, change.figure, from, change.value, mClock(),
                              uint64_t{change.overMs} * 1000});
        }
    }
    if (!found) error = "no transmitter at " + std::to_string(change.frequencyMHz) + " MHz";
    advanceLocked();  // a change "over 0 s" takes effect at once
    return found;
}

// A change of a transmitter's stream: its faults, or its services (which the next version of
// its tables announces).
bool SimulatedDriver::streamChangeLocked(const WorldChange& change, Transmitter& tx,
                                         std::string& error) {
    using S = WorldChange::Stream;
    air::StreamFaults& faults = tx.streamFaults;
    std::vector<air::Service>& services = tx.content.services;
    auto service = std::find_if(services.begin(), services.end(),
                                [&](const air::Service& s) { return s.id == change.serviceId; });
    switch (change.stream) {
        case S::kContinuityErrors:
            faults.continuityErrorsPerS = change.value;
            return true;
        case S::kCrcErrors:
            faults.crcErrorsPerS = change.value;
            return true;
        case S::kOverflow:
            faults.overflowPercent = static_cast<uint32_t>(change.value);
            return true;
        case S::kWithout:
        case S::kWith:
            faults.missing[static_cast<size_t>(change.table)] = change.stream == S::kWithout;
            return true;
        case S::kClean:
            faults = air::StreamFaults();
            return true;
        case S::kRename:
        case S::kRemoveService:
            if (service == services.end()) {
                error = "no service " + std::to_string(change.serviceId) + " at " +
                        std::to_string(change.frequencyMHz) + " MHz";
                return false;
            }
            if (change.stream == S::kRename) {
                service->name = change.name.substr(0, air::kMaxNameLength);
            } else {
                services.erase(service);
            }
            return true;
        case S::kAddService: {
            if (service != services.end() || services.size() >= air::kMaxServicesPerMultiplex) {
                error = service != services.end()
                                ? "service " + std::to_string(change.serviceId) + " is already there"
                                : "no room for another service (at most " +
                                          std::to_string(air::kMaxServicesPerMultiplex) + ")";
                return false;
            }
            air::Service added;
            added.id = change.serviceId;
            added.name = change.name.substr(0, air::kMaxNameLength);
            added.provider = services.empty() ? "" : services.front().provider;
            added.type = change.serviceType;
            if (change.serviceType == 0x01) added.components.push_back({0x1B, 0, "", 0, false});
            added.components.push_back({0x03, 0, "eng", 0, false});
            // A PMT PID of its own, after the others'.
            uint16_t pmt = 0x100;
            for (const air::Service& s : services) pmt = std::max<uint16_t>(pmt, s.pmtPid + 0x10);
            added.pmtPid = pmt;
            services.push_back(added);
            completeAir(mAir);
            return true;
        }
    }
    return false;
}

std::string SimulatedDriver::describe() {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    json world;
    world["clockMs"] = (mClock() - mStartUs) / 1000;
    world["clockSpeed"] = mClockSpeed;
    world["inputs"] = {
            {"cable", mConnected[0]}, {"antenna", mConnected[1]}, {"dish", mConnected[2]}};
    json tuners = json::array();
    for (size_t t = 0; t < mTuners.size(); ++t) {
        const TunerState& tuner = mTuners[t];
        json entry = {{"tuner", t}, {"tuned", tuner.tuned}};
        if (tuner.tuned) {
            entry["asked"] = {{"system", systemName(tuner.param.eTunerType)},
                              {"frequencyMHz", tuner.param.uiFreqMHz},
                              {"symbolRate", tuner.param.uiSymbolRate}};
            entry["locked"] = lockedLocked(static_cast<uint8_t>(t), tuner);
            if (tuner.transmitter >= 0) {
                const Transmitter& tx = mAir[tuner.transmitter];
                entry["transmitterMHz"] = tx.frequencyMHz;
                entry["levelDbuV"] = figureJson(tx.levelDbuV);
                entry["cnDb"] = figureJson(tx.cnDb);
            }
        }
        const int lnbId = mTunerLnbs[t];
        if (lnbId >= 0) {
            entry["lnb"] = lnbId;
            // What the dish hands this tuner now: each transponder the LNB's selection passes.
            const LnbState& lnb = mLnbs[lnbId];
            json receives = json::array();
            for (const Transmitter& tx : mAir) {
                if (tx.switchInput < 0 || !tx.onAir || !mConnected[2]) continue;
                if (const std::optional<uint32_t> ifMHz = dishIfMHz(lnb, tx)) {
                    receives.push_back({{"downlinkMHz", tx.frequencyMHz}, {"ifMHz", *ifMHz}});
                }
            }
            entry["receives"] = receives;
        }
        tuners.push_back(entry);
    }
    world["tuners"] = tuners;
    json lnbs = json::array();
    for (size_t l = 0; l < mLnbs.size(); ++l) {
        const LnbState& s = mLnbs[l];
        lnbs.push_back({{"lnb", l},
                        {"mode", s.mode},
                        {"supply", s.mode == 0   ? "off"
                                   : s.mode == 1 ? "13 V"
                                                 : "18 V"},
                        {"tone", s.tone ? "on" : "off"},
                        {"burst", s.lastBurst < 0    ? "none"
                                  : s.lastBurst == 0 ? "A"
                                                     : "B"},
                        {"diseqc", hex(s.lastDiseqc)},
                        {"selects", s.selection()}});
    }
    world["lnbs"] = lnbs;
    json air = json::array();
    for (const Transmitter& tx : mAir) {
        json entry = {{"system", systemName(tx.system)},
                      {"frequencyMHz", tx.frequencyMHz},
                      {"onAir", tx.onAir},
                      {"levelDbuV", figureJson(tx.levelDbuV)},
                      {"cnDb", figureJson(tx.cnDb)},
                      {"bitRate", air::usefulBitRate(deliveryOf(tx))}};
        if (!tx.tsFile.empty()) {
            entry["ts"] = tx.tsFile;
        } else {
            entry["networkId"] = tx.content.networkId;
            entry["transportStreamId"] = tx.content.transportStreamId;
            json services = json::array();
            for (const air::Service& s : tx.content.services) {
                services.push_back({{"id", s.id},
                                    {"name", s.name},
                                    {"type", s.type == 0x02   ? "radio"
                                             : s.type == 0x0C ? "data"
                                                              : "tv"},
                                    {"scrambled", s.scrambled}});
            }
            entry["services"] = services;
        }
        json faults = json::object();
        const air::StreamFaults& f = tx.streamFaults;
        if (f.continuityErrorsPerS > 0) faults["continuityErrorsPerS"] = f.continuityErrorsPerS;
        if (f.crcErrorsPerS > 0) faults["crcErrorsPerS"] = f.crcErrorsPerS;
        if (f.overflowPercent > 0) faults["overflowPercent"] = f.overflowPercent;
        json missing = json::array();
        for (size_t t = 0; t < air::kTables; ++t) {
            if (f.missing[t]) missing.push_back(air::tableName(static_cast<air::Table>(t)));
        }
        if (!missing.empty()) faults["missing"] = missing;
        entry["streamFaults"] = faults;
        air.push_back(entry);
    }
    world["transmitters"] = air;
    json faults = json::array();
    for (size_t f = 0; f < kDriverFunctions; ++f) {
        const Fault& fault = mMisbehaviour.faults[f];
        if (fault.result == 0) continue;
        faults.push_back({{"function", kEntryPoints[f].shortName},
                          {"result", fault.result},
                          {"first", fault.first},
                          {"every", fault.every}});
    }
    world["faults"] = faults;
    return world.dump();
}

}  // namespace mox::sim
