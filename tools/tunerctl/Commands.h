// tunerctl's subcommands. Each returns the process exit code.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

#include <cstdint>
#include <optional>
#include <string>

#include "ChannelSettings.h"

namespace tunerctl {

class FrontendEvents;
struct FoundChannel;

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
// With `stream`, also the stream's bit rate, per-PID rates and TR 101 290 counts.
int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watch, bool stream);
int runDemux(const GlobalOptions& global, const TuneOptions& options);

// What comes after a lock: a recording, a played file, tables, now and next.
struct RecordOptions {
    TuneOptions tune;
    std::string output;               // the .ts file
    std::string duration;             // "10s"; empty: until Ctrl-C
    std::optional<uint16_t> service;  // a service id; else the channel file's, else all
};
int runRecord(const GlobalOptions& global, const RecordOptions& options);

struct PlayOptions {
    std::string file;
    bool fast = false;  // as fast as the DVR takes it, not at the file's PCR pace
};
int runPlay(const GlobalOptions& global, const PlayOptions& options);

struct SectionsOptions {
    TuneOptions tune;
    std::string play;  // a .ts file played through a DVR instead of a tune
    std::string pid;   // with table: one PID's sections as hex, e.g. "0x12"
    std::string table;
    bool follow = false;
};
int runSections(const GlobalOptions& global, const SectionsOptions& options);

struct EpgOptions {
    TuneOptions tune;
    std::optional<uint16_t> service;
};
int runEpg(const GlobalOptions& global, const EpgOptions& options);

struct ScanOptions {
    uint32_t id = 0;
    ChannelOptions channel;
    bool blind = false;
    std::string output;     // a dvbv5 channel file for what the scan finds
    bool services = true;   // read each multiplex's tables and list its services
    bool followNit = true;  // and scan the multiplexes its NIT announces
};
int runScan(const GlobalOptions& global, const ScanOptions& options);

// What a tune came to: the exit code, and the channel as it locked (or was last tried).
struct TuneOutcome {
    int code = 1;  // kNoLock
    std::string channel;
};
// Checks the channel against the frontend, tunes and reports LOCKED or NO_SIGNAL (and with AUTO
// which standard locked).
TuneOutcome tuneAndReport(
        const GlobalOptions& global,
        const ::android::sp<::android::hardware::tv::tuner::V1_0::ITuner>& tuner, uint32_t id,
        const ::android::sp<::android::hardware::tv::tuner::V1_0::IFrontend>& frontend,
        const ::android::sp<FrontendEvents>& events, const ChannelOptions& channel);
// The channel named in a channel file (--channel NAME -c FILE), in place of frequency options;
// with `service` also the entry's service id and PIDs.
int channelFromFile(const GlobalOptions& global,
                    const ::android::sp<::android::hardware::tv::tuner::V1_0::ITuner>& tuner,
                    const TuneOptions& options, ChannelOptions& channel,
                    FoundChannel* service = nullptr);

// Sets the LNB in front of a satellite frontend as the plan says (see TuneCommands.cpp).
int setUpDish(const GlobalOptions& global,
              const ::android::sp<::android::hardware::tv::tuner::V1_0::ITuner>& tuner, uint32_t id,
              const ::android::sp<::android::hardware::tv::tuner::V1_0::IFrontend>& frontend,
              const SatellitePlan& plan, const ChannelOptions& channel);

}  // namespace tunerctl
