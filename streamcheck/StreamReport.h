// What a StreamChecker saw: the ETSI TR 101 290 counts, how often each table and clock came,
// and the tables' decoded contents (the latest version of each).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace mox::streamcheck {

// First priority: what a receiver needs to decode anything at all.
struct FirstPriority {
    uint64_t tsSyncLoss = 0;
    uint64_t syncByteError = 0;
    uint64_t patError = 0;
    uint64_t continuityCountError = 0;
    uint64_t pmtError = 0;
    uint64_t pidError = 0;
};

// Second priority: what continuous monitoring watches.
struct SecondPriority {
    uint64_t transportError = 0;
    uint64_t crcError = 0;
    uint64_t pcrRepetitionError = 0;
    uint64_t pcrDiscontinuityIndicatorError = 0;
    uint64_t pcrAccuracyError = 0;
    uint64_t ptsError = 0;
    uint64_t catError = 0;
};

// Third priority: the repetition of the DVB SI tables.
struct ThirdPriority {
    uint64_t nitActualError = 0;
    uint64_t sdtActualError = 0;
    uint64_t eitActualError = 0;
    uint64_t tdtError = 0;
};

// How often something came, in stream time (packet positions at the bit rate).
struct Interval {
    uint64_t count = 0;         // occurrences
    double largestSeconds = 0;  // between consecutive occurrences; 0 with fewer than two
    double smallestSeconds = 0;
};

struct Repetitions {
    Interval pat;
    std::map<uint16_t, Interval> pmt;  // by PMT PID
    Interval nitActual;
    Interval sdtActual;
    std::map<uint16_t, Interval> eitPresentFollowingActual;  // by service id, section 0
    Interval tdt;
    Interval tot;
    std::map<uint16_t, Interval> pcr;  // by PID
    std::map<uint16_t, Interval> pts;  // by PID
};

struct ProgramAssociation {
    uint16_t transportStreamId = 0;
    uint8_t version = 0;
    uint32_t versionChanges = 0;
    std::map<uint16_t, uint16_t> programs;  // program number to PMT PID (0: the network PID)
};

struct ElementaryStream {
    uint8_t type = 0;
    uint16_t pid = 0;
    std::string language;  // ISO 639, empty without one
};

struct ProgramMap {
    uint16_t program = 0;
    uint16_t pid = 0;  // where it came
    uint8_t version = 0;
    uint32_t versionChanges = 0;
    uint16_t pcrPid = 0;
    std::vector<ElementaryStream> streams;
};

struct Service {
    uint16_t id = 0;
    std::string name;
    std::string provider;
    uint8_t type = 0;
    bool freeCaMode = false;
    uint8_t runningStatus = 0;
    bool eitSchedule = false;
    bool eitPresentFollowing = false;
};

struct ServiceDescription {
    uint16_t transportStreamId = 0;
    uint16_t originalNetworkId = 0;
    uint8_t version = 0;
    uint32_t versionChanges = 0;
    std::map<uint16_t, Service> services;  // by service id
};

struct TerrestrialDelivery {
    uint64_t centreFrequencyHz = 0;
    uint32_t bandwidthHz = 0;   // 0: reserved value
    std::string constellation;  // "QPSK", "16QAM", "64QAM"
    std::string hierarchy;      // "none", "1", "2", "4" (with "native" appended for in-depth)
    std::string codeRateHp;     // "1/2" ... "7/8"
    std::string codeRateLp;
    std::string guardInterval;     // "1/32" ... "1/4"
    std::string transmissionMode;  // "2k", "8k", "4k"
    bool otherFrequency = false;
};

struct T2Delivery {
    uint8_t plpId = 0;
    uint16_t t2SystemId = 0;
    bool hasDetails = false;  // the fields below are sent
    std::string sisoMiso;     // "SISO", "MISO"
    uint32_t bandwidthHz = 0;
    std::string guardInterval;     // "1/32" ... "19/256"
    std::string transmissionMode;  // "2k" ... "32k"
    bool otherFrequency = false;
    bool tfs = false;
    std::vector<uint64_t> centreFrequenciesHz;  // of the cells, as the descriptor lists them
};

struct CableDelivery {
    uint64_t frequencyHz = 0;
    std::string fecOuter;     // "none", "RS(204/188)"
    std::string modulation;   // "16QAM" ... "256QAM"
    uint32_t symbolRate = 0;  // symbols/s
    std::string fecInner;     // "1/2" ... "9/10", "none"
};

struct SatelliteDelivery {
    uint64_t frequencyKHz = 0;
    uint16_t orbitalPositionTenths = 0;  // tenths of a degree
    bool east = false;
    std::string polarisation;      // "H", "V", "L", "R"
    std::string modulationSystem;  // "DVB-S", "DVB-S2"
    std::string modulation;        // "auto", "QPSK", "8PSK", "16QAM"
    std::string rollOff;           // DVB-S2 only: "0.35", "0.25", "0.20"
    uint32_t symbolRate = 0;
    std::string fecInner;
};

struct ServiceListEntry {
    uint16_t serviceId = 0;
    uint8_t type = 0;
};

struct TransportStreamInfo {
    uint16_t transportStreamId = 0;
    uint16_t originalNetworkId = 0;
    std::optional<TerrestrialDelivery> terrestrial;
    std::optional<T2Delivery> t2;
    std::optional<CableDelivery> cable;
    std::optional<SatelliteDelivery> satellite;
    std::vector<ServiceListEntry> services;
};

struct NetworkInformation {
    uint16_t networkId = 0;
    uint8_t version = 0;
    uint32_t versionChanges = 0;
    std::string name;
    std::map<uint16_t, TransportStreamInfo> transportStreams;  // by transport stream id
};

struct Event {
    uint16_t id = 0;
    bool startKnown = false;
    int64_t startUtc = 0;  // seconds since 1970
    uint32_t durationSeconds = 0;
    uint8_t runningStatus = 0;
    bool freeCaMode = false;
    std::string language;  // of the short event descriptor
    std::string name;
    std::string text;
};

struct PresentFollowing {
    uint16_t serviceId = 0;
    uint16_t transportStreamId = 0;
    uint16_t originalNetworkId = 0;
    uint8_t version = 0;
    uint32_t versionChanges = 0;
    std::optional<Event> present;    // section 0
    std::optional<Event> following;  // section 1
};

struct Tables {
    std::optional<ProgramAssociation> pat;
    std::map<uint16_t, ProgramMap> pmts;  // by program number
    bool catSeen = false;
    std::optional<NetworkInformation> nitActual;
    std::optional<ServiceDescription> sdtActual;
    std::map<uint16_t, ServiceDescription> sdtOther;                 // by transport stream id
    std::map<uint16_t, PresentFollowing> eitPresentFollowingActual;  // by service id
    std::optional<int64_t> tdtUtc;
    std::optional<int64_t> totUtc;
};

struct StreamReport {
    FirstPriority first;
    SecondPriority second;
    ThirdPriority third;
    Repetitions repetitions;
    Tables tables;

    uint64_t totalPackets = 0;
    std::map<uint16_t, uint64_t> packetsPerPid;
    double bitRate = 0;          // bits/s the times are reckoned at (given, or measured); 0: none
    double measuredBitRate = 0;  // from the PCRs of the first PID that carried one; 0: not yet
    double durationSeconds = 0;
    uint64_t malformedPackets = 0;   // an adaptation field longer than the packet
    uint64_t malformedSections = 0;  // lengths that do not fit; not decoded
    // Why sections could not be decoded (the decoder's own messages among them), the first
    // kMaxProblems; problemCount counts all.
    std::vector<std::string> problems;
    uint64_t problemCount = 0;
};

constexpr size_t kMaxProblems = 64;

}  // namespace mox::streamcheck
