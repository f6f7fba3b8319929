// What a multiplex carries: its identity in the network, its services with their components and
// programme events, and the faults its stream shows on purpose. Installation files describe it;
// the multiplexer turns it into a transport stream.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/stream/Delivery.h"

namespace mox::air {

// Bounds a file or a live change cannot push past: each keeps the sections within one section
// and the tables' repetition within what receivers measure.
inline constexpr size_t kMaxServicesPerMultiplex = 30;
inline constexpr size_t kMaxComponentsPerService = 14;  // PMT PID + 15 is its ECMs'
inline constexpr size_t kMaxEventsPerService = 48;
inline constexpr size_t kMaxNameLength = 64;   // service, provider, network and event names
inline constexpr size_t kMaxTextLength = 200;  // an event's short text

struct Component {
    uint8_t streamType = 0;  // ISO/IEC 13818-1 stream_type
    uint16_t pid = 0;
    std::string language;  // ISO 639 code of three letters, or empty
    uint32_t bitRate = 0;  // bits/s; 0: a share of what the multiplex leaves free
    bool ac3 = false;      // private data carrying AC-3 (stream type 0x06 with descriptor 0x6A)

    bool isVideo() const;
};

// A programme in a daily schedule, in UTC: it starts at the same minute every day.
struct ProgrammeEvent {
    uint16_t id = 0;
    uint32_t startMinute = 0;  // minutes after midnight UTC
    uint32_t minutes = 0;
    std::string name;
    std::string text;
};

struct Service {
    uint16_t id = 0;  // service id, the PMT's program number
    std::string name;
    std::string provider;
    uint8_t type = 0x01;  // service_type: 0x01 TV, 0x02 radio, 0x0C data, 0x19 HD TV
    uint16_t pmtPid = 0;
    uint16_t pcrPid = 0;
    bool scrambled = false;
    std::vector<Component> components;
    std::vector<ProgrammeEvent> events;
};

// The tables a multiplex sends, as faults and live changes name them.
enum class Table { kPat, kCat, kPmt, kNit, kSdt, kSdtOther, kEit, kTdt, kTot };
inline constexpr size_t kTables = 9;
const char* tableName(Table table);  // "PAT", ..., "SDT-other", ...

// Damage a stream shows whatever the reception: the faults of real networks.
struct StreamFaults {
    double continuityErrorsPerS = 0;  // packets lost on the way, each one counter skipped
    double crcErrorsPerS = 0;         // sections sent with a wrong CRC
    bool missing[kTables] = {};       // tables not sent at all
    uint32_t overflowPercent = 0;     // content asks this much more than the multiplex carries

    bool any() const;
};

struct MultiplexContent {
    uint16_t networkId = 0;
    std::string networkName;
    uint16_t transportStreamId = 0;
    uint16_t originalNetworkId = 0;
    std::vector<Service> services;
};

// A network as its NIT and SDT other describe it: every multiplex with its delivery.
struct NetworkMultiplex {
    Delivery delivery;
    MultiplexContent content;
};
struct Network {
    uint16_t id = 0;
    std::string name;
    std::vector<NetworkMultiplex> multiplexes;
};

}  // namespace mox::air
