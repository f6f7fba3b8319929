// tunerctl's subcommands. Each returns the process exit code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ChannelSettings.h"

namespace tunerctl {

struct GlobalOptions {
    bool json = false;
};

int runOverview(const GlobalOptions& global);
int runFrontends(const GlobalOptions& global);
int runInfo(const GlobalOptions& global, uint32_t id);

int runLnbs(const GlobalOptions& global);
struct LnbOptions {
    uint32_t id = 0;
    std::string voltage;
    std::string tone;
    std::string position;
    std::optional<std::string> diseqc;  // given, if only as an empty string
};
int runLnb(const GlobalOptions& global, const LnbOptions& options);

struct TuneOptions {
    uint32_t id = 0;
    ChannelOptions channel;
};
int runTune(const GlobalOptions& global, const TuneOptions& options);
int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watch);
int runDemux(const GlobalOptions& global, const TuneOptions& options);

struct ScanOptions {
    uint32_t id = 0;
    ChannelOptions channel;
    bool blind = false;
};
int runScan(const GlobalOptions& global, const ScanOptions& options);

}  // namespace tunerctl
