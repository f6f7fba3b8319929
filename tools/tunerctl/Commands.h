// tunerctl's subcommands. Each returns the process exit code.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

#include <cstdint>
#include <optional>
#include <string>

#include "ChannelSettings.h"

namespace tunerctl {

struct GlobalOptions {
    bool json = false;
};

int runOverview(const GlobalOptions& global);
int runDump(const GlobalOptions& global);
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
    // A channel named in a channel file instead of the options above.
    std::string channelName;
    std::string channelFile;
    std::string channelFormat = "dvbv5";
};
int runTune(const GlobalOptions& global, const TuneOptions& options);
int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watch);
int runDemux(const GlobalOptions& global, const TuneOptions& options);

struct ScanOptions {
    uint32_t id = 0;
    ChannelOptions channel;
    bool blind = false;
    std::string output;     // a dvbv5 channel file for what the scan finds
    bool services = true;   // read each multiplex's tables and list its services
    bool followNit = true;  // and scan the multiplexes its NIT announces
};
int runScan(const GlobalOptions& global, const ScanOptions& options);

// Sets the LNB in front of a satellite frontend as the plan says (see TuneCommands.cpp).
int setUpDish(const GlobalOptions& global,
              const ::android::sp<::android::hardware::tv::tuner::V1_0::ITuner>& tuner, uint32_t id,
              const ::android::sp<::android::hardware::tv::tuner::V1_0::IFrontend>& frontend,
              const SatellitePlan& plan, const ChannelOptions& channel);

}  // namespace tunerctl
