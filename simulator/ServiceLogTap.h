// The host service process's log, kept for clients: every record liblog lets through goes to
// stderr as before (at the level the process logs at) and into a bounded ring, numbered, so that
// tunerctl -v can show what its command made the service log. A client that asks for a lower
// priority gets it for a while (a lease), then the process falls back to its own level.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mox::sim {

// How many records the ring keeps, and how much of each record's text.
inline constexpr size_t kServiceLogRecords = 4096;
inline constexpr size_t kServiceLogTextBytes = 1024;
// How long an asked-for priority lasts after the last request.
inline constexpr uint64_t kServiceLogLeaseUs = 30'000'000;

// Installs the tap as this process's liblog logger; the first call does, later ones nothing.
void installServiceLogTap();

struct ServiceLogExcerpt {
    uint64_t newest = 0;
    std::vector<std::string> lines;
};

// Records after `after` of `priority` or above, and keeps that priority logged for the lease;
// nothing where no tap is installed.
ServiceLogExcerpt serviceLogSince(uint64_t after, int priority);

}  // namespace mox::sim
