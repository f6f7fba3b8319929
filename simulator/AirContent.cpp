// The services of transmitters whose installation names none: every network gets TV and radio
// services with real-looking names, programmes and one scrambled service per network, so a
// scanner and a player find on the host what they find on the air.
#include <algorithm>
#include <set>

#include "simulator/SimulatedDriver.h"

namespace mox::sim {
namespace {

// A network per kind of input: terrestrial, cable, satellite.
struct NetworkPlan {
    uint16_t networkId;
    uint16_t originalNetworkId;
    const char* name;
    const char* provider;
};
constexpr NetworkPlan kNetworks[] = {{0x3001, 0x233A, "Vale Digital", "Vale Broadcasting"},
                                     {0x1001, 0x1001, "CityNet Cable", "CityNet"},
                                     {0x0031, 0x0031, "Orbit 19.2E", "Orbit Media"}};

constexpr const char* kTvNames[] = {"One",      "Two",    "News 24", "Sport",   "Kids", "Movies",
                                    "Music TV", "Travel", "History", "Weather", "Shop", "Comedy"};
constexpr const char* kRadioNames[] = {"Radio 1", "Radio 2", "Classic", "Jazz", "Talk", "Local"};
constexpr const char* kProgrammes[] = {"Morning",      "Midday",  "Afternoon",
                                       "Evening News", "Feature", "Late Show"};

int networkOf(uint32_t system) {
    return system == MOX_TUNER_TYPE_DVBC                                     ? 1
           : system == MOX_TUNER_TYPE_DVBS || system == MOX_TUNER_TYPE_DVBS2 ? 2
                                                                             : 0;
}

// Six programmes of four hours, every day.
std::vector<air::ProgrammeEvent> dailySchedule(const std::string& service, uint16_t firstId) {
    std::vector<air::ProgrammeEvent> events;
    for (uint16_t i = 0; i < 6; ++i) {
        events.push_back({static_cast<uint16_t>(firstId + i), i * 240u, 240u,
                          std::string(kProgrammes[i]),
                          std::string(kProgrammes[i]) + " on " + service});
    }
    return events;
}

air::Service makeService(const NetworkPlan& plan, const std::string& name, bool radio, bool hd,
                         uint16_t id) {
    air::Service s;
    s.id = id;
    s.name = name;
    s.provider = plan.provider;
    s.type = radio ? 0x02 : hd ? 0x19 : 0x01;
    if (!radio) s.components.push_back({static_cast<uint8_t>(hd ? 0x1B : 0x02), 0, "", 0, false});
    s.components.push_back({0x03, 0, "eng", 0, false});
    if (!radio && hd) s.components.push_back({0x06, 0, "eng", 0, true});
    s.events = dailySchedule(name, static_cast<uint16_t>(id * 8));
    return s;
}

}  // namespace

void completeAir(std::vector<Transmitter>& air) {
    size_t multiplexes[3] = {0, 0, 0};
    std::set<std::pair<uint16_t, uint16_t>> usedTsids;
    for (const Transmitter& tx : air) {
        if (!tx.content.services.empty() || !tx.tsFile.empty()) {
            usedTsids.insert({tx.content.networkId, tx.content.transportStreamId});
        }
    }
    for (Transmitter& tx : air) {
        const int n = networkOf(tx.system);
        const NetworkPlan& plan = kNetworks[n];
        air::MultiplexContent& c = tx.content;
        if (c.services.empty() && tx.tsFile.empty()) {
            const size_t m = multiplexes[n]++;
            c.networkId = plan.networkId;
            c.originalNetworkId = plan.originalNetworkId;
            c.networkName = plan.name;
            uint16_t tsid = static_cast<uint16_t>(0x1000 * (n + 1) + m + 1);
            while (usedTsids.count({c.networkId, tsid})) ++tsid;
            usedTsids.insert({c.networkId, tsid});
            c.transportStreamId = tsid;
            const bool hd = tx.system == MOX_TUNER_TYPE_DVBT2 || tx.system == MOX_TUNER_TYPE_DVBS2;
            const std::string prefix =
                    std::string(plan.name).substr(0, std::string(plan.name).find(' '));
            for (size_t i = 0; i < 3; ++i) {
                const char* name = kTvNames[(m * 3 + i) % std::size(kTvNames)];
                c.services.push_back(makeService(plan, prefix + " " + name, false, hd,
                                                 static_cast<uint16_t>(tsid * 16 + i + 1)));
            }
            for (size_t i = 0; i < 2; ++i) {
                const char* name = kRadioNames[(m * 2 + i) % std::size(kRadioNames)];
                c.services.push_back(makeService(plan, prefix + " " + name, true, false,
                                                 static_cast<uint16_t>(tsid * 16 + i + 4)));
            }
            // The network's first multiplex carries one pay service.
            if (m == 0) c.services[2].scrambled = true;
        }
        // PIDs where the file gives none: 0x100 + 0x10 per service for its PMT, its components
        // after it, the PCR on the first video (or the first component).
        for (size_t i = 0; i < c.services.size(); ++i) {
            air::Service& s = c.services[i];
            if (s.pmtPid == 0) s.pmtPid = static_cast<uint16_t>(0x100 + 0x10 * i);
            for (size_t k = 0; k < s.components.size(); ++k) {
                if (s.components[k].pid == 0) {
                    s.components[k].pid = static_cast<uint16_t>(s.pmtPid + 1 + k);
                }
            }
            if (s.pcrPid == 0 && !s.components.empty()) {
                auto video = std::find_if(s.components.begin(), s.components.end(),
                                          [](const air::Component& x) { return x.isVideo(); });
                s.pcrPid = (video != s.components.end() ? *video : s.components.front()).pid;
            }
        }
    }
}

}  // namespace mox::sim
