// The PSI/SI tables of the multiplex a demux receives, read through section filters with
// dvbv5-scan's time-outs, decoded with libdvbv5's parsers, and the services they describe.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "DataPath.h"
#include "streamcheck/StreamReport.h"

namespace tunerctl {

namespace sc = ::mox::streamcheck;

// How long each table may take to come whole, from when its filter starts (dvbv5-scan's).
struct TableTimeouts {
    std::chrono::milliseconds pat{1000};
    std::chrono::milliseconds pmt{1000};
    std::chrono::milliseconds sdt{2000};
    std::chrono::milliseconds nit{10000};
};
// DVB-T networks send their NIT less often: dvbv5-scan waits 12 s for it.
TableTimeouts timeoutsFor(bool terrestrial);

// The tables that came, and the names of those that did not come whole in time.
struct MultiplexTables {
    sc::Tables tables;
    std::vector<std::string> missing;  // "PAT", "PMT 0x0100", "SDT", "NIT"
    std::vector<std::string> problems;
};

// Reads PAT, each program's PMT, SDT actual and (with `nit`) NIT actual until each has come
// whole or its time is up; `stop` (Ctrl-C) ends the wait early.
MultiplexTables readMultiplexTables(const sp<hal::IDemux>& demux, const TableTimeouts& timeouts,
                                    bool nit, const std::function<bool()>& stop, std::string& error);

// A service as a scan lists it.
struct FoundService {
    uint16_t id = 0;
    std::string name;
    std::string provider;
    uint8_t type = 0;
    std::string kind;  // "TV", "radio", "data"
    bool scrambled = false;
    uint16_t pmtPid = 0;
    uint16_t pcrPid = 0;
    std::vector<uint16_t> videoPids;
    std::vector<uint16_t> audioPids;
    std::vector<uint16_t> otherPids;
};

// The services the PAT lists, with their PMT's streams and SDT's names, by service id. A service
// the SDT does not name is called by its id ("service 0x0102").
std::vector<FoundService> servicesOf(const sc::Tables& tables);
// "TV", "radio" or "data" for an SDT service_type.
std::string serviceKind(uint8_t serviceType);

}  // namespace tunerctl
