// Channel files in the formats DVB users have: dvbv5 (read and written) and the legacy zap
// format (read), through libdvbv5's own readers and writers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ChannelSettings.h"

namespace tunerctl {

struct FoundChannel;

// Finds a channel by name in a file of the given format ("dvbv5" or "zap"; a zap file holds one
// delivery system, named by system: "DVBT", "DVBC", "DVBS"). Fills the options that tune it, and
// with `service` the entry's service id and PIDs (service id 0: the file names none).
bool readChannel(const std::string& file, const std::string& format, const std::string& system,
                 const std::string& name, ChannelOptions& options, std::string& error,
                 FoundChannel* service = nullptr);

// A multiplex or a service a scan found, as a channel file holds it.
struct FoundChannel {
    std::string name;
    ChannelOptions options;  // exactly one of dvbt, dvbc, dvbs, in Hz ("474000000Hz")
    // A service's (serviceId 0: the entry is a whole multiplex).
    std::string provider;
    uint16_t serviceId = 0;
    uint16_t pmtPid = 0;
    std::vector<uint16_t> videoPids;
    std::vector<uint16_t> audioPids;
    std::vector<uint16_t> otherPids;
};

// Writes the channels in the dvbv5 format.
bool writeChannels(const std::string& file, const std::vector<FoundChannel>& channels,
                   std::string& error);

}  // namespace tunerctl
