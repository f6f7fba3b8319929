#include <chrono>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <thread>

#include "ChannelFile.h"
#include "Commands.h"
#include "ExitCodes.h"
#include "FrontendEvents.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// The status types a monitor shows, in this order; it asks only for those the frontend reports.
const FrontendStatusType kMonitorTypes[] = {FrontendStatusType::DEMOD_LOCK,
                                            FrontendStatusType::RF_LOCK,
                                            FrontendStatusType::SIGNAL_STRENGTH,
                                            FrontendStatusType::SIGNAL_QUALITY,
                                            FrontendStatusType::SNR,
                                            FrontendStatusType::MER,
                                            FrontendStatusType::BER,
                                            FrontendStatusType::PRE_BER,
                                            FrontendStatusType::AGC,
                                            FrontendStatusType::PLP_ID,
                                            FrontendStatusType::HIERARCHY};

std::vector<FrontendStatusType> monitorTypes(const FrontendInfo& info) {
    std::vector<FrontendStatusType> types;
    for (FrontendStatusType type : kMonitorTypes) {
        for (FrontendStatusType cap : info.statusCaps) {
            if (cap == type) {
                types.push_back(type);
                break;
            }
        }
    }
    return types;
}

bool readStatus(bool json, const sp<IFrontend>& frontend,
                const std::vector<FrontendStatusType>& types,
                std::vector<FrontendStatus>& statuses) {
    Result result = Result::UNKNOWN_ERROR;
    call("getStatus", [&] {
        return frontend->getStatus(hidl_vec<FrontendStatusType>(types),
                                   [&](Result r, const hidl_vec<FrontendStatus>& s) {
                                       result = r;
                                       statuses = s;
                                   });
    });
    if (result != Result::SUCCESS)
        reportFailure(json, kServiceError, "getStatus: " + toString(result));
    return result == Result::SUCCESS;
}

void printStatusTable(const std::vector<FrontendStatus>& statuses) {
    for (const auto& [name, value] : statusRows(statuses)) {
        std::cout << "  " << std::left << std::setw(10) << name << value << "\n";
    }
}

// One line per sample: its number, the time and the figures; a JSON object per line for --json.
void printStatusLine(bool json, uint64_t sample, const std::vector<FrontendStatus>& statuses) {
    const std::time_t now = std::time(nullptr);
    char clock[16];
    std::strftime(clock, sizeof(clock), "%H:%M:%S", std::localtime(&now));
    if (json) {
        std::cout << JsonObject()
                             .add("sample", sample)
                             .add("time", clock)
                             .addRaw("status", statusJson(statuses))
                             .str()
                  << std::endl;
        return;
    }
    std::cout << "#" << sample << " " << clock;
    for (const auto& [name, value] : statusRows(statuses))
        std::cout << "  " << name << " " << value;
    std::cout << std::endl;
}

// The service tunes one standard at a time; AUTO means trying each the frontend has, the newer
// generation last for terrestrial (T, then T2) and first for satellite (S2, then S). Other
// settings are tried as they are, unnamed.
std::vector<std::pair<std::string, FrontendSettings>> automaticAttempts(
        const FrontendSettings& settings, const FrontendInfo& info) {
    using D = FrontendSettings::hidl_discriminator;
    using CD = FrontendInfo::FrontendCapabilities::hidl_discriminator;
    std::vector<std::pair<std::string, FrontendSettings>> attempts;
    if (settings.getDiscriminator() == D::dvbt &&
        settings.dvbt().standard == FrontendDvbtStandard::AUTO) {
        for (FrontendDvbtStandard standard : {FrontendDvbtStandard::T, FrontendDvbtStandard::T2}) {
            if (standard == FrontendDvbtStandard::T2 &&
                (info.frontendCaps.getDiscriminator() != CD::dvbtCaps ||
                 !info.frontendCaps.dvbtCaps().isT2Supported)) {
                continue;
            }
            FrontendSettings one = settings;
            one.dvbt().standard = standard;
            attempts.emplace_back(toString(standard), one);
        }
    } else if (settings.getDiscriminator() == D::dvbs &&
               settings.dvbs().standard == FrontendDvbsStandard::AUTO) {
        for (FrontendDvbsStandard standard : {FrontendDvbsStandard::S2, FrontendDvbsStandard::S}) {
            FrontendSettings one = settings;
            one.dvbs().standard = standard;
            attempts.emplace_back(toString(standard), one);
        }
    } else {
        attempts.emplace_back("", settings);
    }
    return attempts;
}

// Checks the channel against the frontend, tunes and reports LOCKED or NO_SIGNAL. The exit
// code: success on lock.
int tuneAndReport(const GlobalOptions& global, const sp<ITuner>& tuner, uint32_t id,
                  const sp<IFrontend>& frontend, const sp<FrontendEvents>& events,
                  const ChannelOptions& channel) {
    FrontendSettings settings;
    FrontendInfo info{};
    std::string error;
    std::optional<SatellitePlan> plan;
    if (!buildSettings(channel, settings, error, &plan) || !frontendInfo(tuner, id, info) ||
        !checkAgainstFrontend(info, id, settings, error)) {
        return reportFailure(global.json, kUsageError, error);
    }
    if (plan) {
        const int dish = setUpDish(global, tuner, id, frontend, *plan, channel);
        if (dish != kSuccess) return dish;
    }
    // A scan a client left running (one that died, say) would go on moving the tuner.
    call("stopScan", [&] { return frontend->stopScan(); });
    call("setCallback", [&] { return frontend->setCallback(events); });
    const std::vector<std::pair<std::string, FrontendSettings>> attempts =
            automaticAttempts(settings, info);
    for (const auto& [standard, attempt] : attempts) {
        const FrontendSettings& tried = attempt;  // a lambda cannot capture a structured binding
        const Result result = call("tune", [&] { return frontend->tune(tried); });
        if (result != Result::SUCCESS) {
            return reportFailure(global.json, kServiceError, "tune: " + toString(result));
        }
        const std::optional<FrontendEventType> event = events->takeEvent();
        if (!event && takenByAnotherClient(serviceDump(tuner, "tune"), id)) {
            return reportFailure(global.json, kServiceError,
                                 "frontend " + std::to_string(id) +
                                         " was taken by another client (its events go there now)");
        }
        if (!event) {
            return reportFailure(global.json, kServiceError,
                                 "tune: no event (the driver refused the tune)");
        }
        if (!global.json) {
            std::cout << toString(*event) << (standard.empty() ? "" : " (" + standard + ")") << "\n";
        }
        if (*event == FrontendEventType::LOCKED) return kSuccess;
    }
    return kNoLock;
}

// A line about the watch itself, beside its samples: on stderr, or a JSON object for --json.
void notice(bool json, const std::string& text) {
    if (json) {
        std::cout << JsonObject().add("notice", text).str() << std::endl;
    } else {
        std::cerr << "tunerctl: " << text << std::endl;
    }
}

// After the service died: the frontend of a new instance, tuned again to the channel the watch
// was given; null if Ctrl-C came first.
sp<IFrontend> rejoin(const GlobalOptions& global, const TuneOptions& options,
                     const ChannelOptions& channel) {
    notice(global.json, "the tuner service died; waiting for a new instance");
    sp<ITuner> tuner = reconnectTuner();
    if (tuner == nullptr) return nullptr;
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) {
        reportFailure(global.json, kServiceError, error);
        exit(kServiceError);
    }
    notice(global.json, "the tuner service is back");
    if (!channel.dvbt.empty() || !channel.dvbc.empty() || !channel.dvbs.empty()) {
        sp<FrontendEvents> events = new FrontendEvents();
        tuneAndReport(global, tuner, options.id, frontend, events, channel);
    }
    return frontend;
}

// Until Ctrl-C, which is how a watch ends. A watch outlives the service: it waits for a new
// instance and goes on with it (frontend is then the new instance's).
int watch(const GlobalOptions& global, const TuneOptions& options, const ChannelOptions& channel,
          sp<IFrontend>& frontend, const std::vector<FrontendStatusType>& types) {
    installInterruptHandler();
    for (uint64_t sample = 1; !interrupted(); ++sample) {
        std::vector<FrontendStatus> statuses;
        Result result = Result::UNKNOWN_ERROR;
        bool answered = false;
        {
            CallDeadline deadline("getStatus");
            answered = frontend->getStatus(hidl_vec<FrontendStatusType>(types),
                                           [&](Result r, const hidl_vec<FrontendStatus>& s) {
                                               result = r;
                                               statuses = s;
                                           })
                               .isOk();
        }
        if (!answered || serviceDied()) {
            if ((frontend = rejoin(global, options, channel)) == nullptr) break;
            continue;
        }
        if (result == Result::SUCCESS) {
            printStatusLine(global.json, sample, statuses);
        } else {
            reportFailure(global.json, kServiceError, "getStatus: " + toString(result));
        }
        for (int i = 0; i < 10 && !interrupted(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    return kInterrupted;
}

// The channel named in a channel file, in place of frequency options.
int channelFromFile(const GlobalOptions& global, const sp<ITuner>& tuner,
                    const TuneOptions& options, ChannelOptions& channel) {
    if (options.channelName.empty() || options.channelFile.empty()) {
        return reportFailure(global.json, kUsageError, "--channel and -c FILE go together");
    }
    const ChannelOptions& given = options.channel;
    if (!given.dvbt.empty() || !given.dvbc.empty() || !given.dvbs.empty()) {
        return reportFailure(global.json, kUsageError,
                             "name the channel either with --channel or with a frequency");
    }
    FrontendInfo info{};
    frontendInfo(tuner, options.id, info);
    std::string error;
    ChannelOptions fromFile;
    if (!readChannel(options.channelFile, options.channelFormat, toString(info.type),
                     options.channelName, fromFile, error)) {
        return reportFailure(global.json, kUsageError, error);
    }
    // What the file does not say, the command line may: the LNB and its switch input.
    if (fromFile.lnb.empty()) fromFile.lnb = given.lnb;
    if (fromFile.satellite.empty()) fromFile.satellite = given.satellite;
    if (fromFile.polarisation.empty()) fromFile.polarisation = given.polarisation;
    fromFile.lnbId = given.lnbId;
    channel = fromFile;
    return kSuccess;
}

// Opens the frontend, tunes it when a channel is named, then shows its signal once or until
// Ctrl-C.
int showSignal(const GlobalOptions& global, const TuneOptions& options, bool watchIt) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return reportFailure(global.json, kUsageError, error);
    ChannelOptions c = options.channel;
    if (!options.channelName.empty() || !options.channelFile.empty()) {
        const int read = channelFromFile(global, tuner, options, c);
        if (read != kSuccess) return read;
    }
    int outcome = kSuccess;
    if (!c.dvbt.empty() || !c.dvbc.empty() || !c.dvbs.empty()) {
        sp<FrontendEvents> events = new FrontendEvents();
        outcome = tuneAndReport(global, tuner, options.id, frontend, events, c);
        if (outcome != kSuccess && outcome != kNoLock) return outcome;
    }
    FrontendInfo info{};
    frontendInfo(tuner, options.id, info);
    const std::vector<FrontendStatusType> types = monitorTypes(info);
    if (watchIt) {
        const int code = watch(global, options, c, frontend, types);
        if (!serviceDied()) call("stopTune", [&] { return frontend->stopTune(); });
        return code;
    }
    std::vector<FrontendStatus> statuses;
    if (!readStatus(global.json, frontend, types, statuses)) return kServiceError;
    if (global.json) {
        std::cout << statusJson(statuses) << "\n";
    } else {
        printStatusTable(statuses);
    }
    return outcome;
}

}  // namespace

// Sets the LNB in front of the frontend for the plan, step by step with the settling time the DVB
// tools leave between LNB commands (15 ms): voltage, tone off, the switch command and tone burst
// of the satellite, and the tone of the band.
int setUpDish(const GlobalOptions& global, const sp<ITuner>& tuner, uint32_t id,
              const sp<IFrontend>& frontend, const SatellitePlan& plan,
              const ChannelOptions& channel) {
    const std::optional<uint32_t> lnbId = channel.lnbId ? channel.lnbId : defaultLnbOf(tuner, id);
    sp<ILnb> lnb;
    if (lnbId) {
        call("openLnbById", [&] {
            return tuner->openLnbById(*lnbId, [&](Result, const sp<ILnb>& l) { lnb = l; });
        });
    }
    if (lnb == nullptr) {
        return reportFailure(global.json, kUsageError,
                             "frontend " + std::to_string(id) + " has no LNB" +
                                     (lnbId ? " " + std::to_string(*lnbId) : std::string()));
    }
    const std::optional<int> satellite = channel.satellite.empty()
                                                 ? std::nullopt
                                                 : std::optional<int>(std::stoi(channel.satellite));
    auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(15)); };
    call("setLnb", [&] { return frontend->setLnb(*lnbId); });
    call("setVoltage", [&] {
        return lnb->setVoltage(plan.horizontal ? LnbVoltage::VOLTAGE_18V : LnbVoltage::VOLTAGE_13V);
    });
    settle();
    call("setTone", [&] { return lnb->setTone(LnbTone::NONE); });
    settle();
    if (satellite) {
        call("sendDiseqcMessage", [&] {
            return lnb->sendDiseqcMessage(
                    committedSwitch(*satellite, plan.horizontal, plan.highBand));
        });
        settle();
        call("setSatellitePosition", [&] {
            return lnb->setSatellitePosition(*satellite % 2 ? LnbPosition::POSITION_B
                                                            : LnbPosition::POSITION_A);
        });
        settle();
    }
    call("setTone",
         [&] { return lnb->setTone(plan.highBand ? LnbTone::CONTINUOUS : LnbTone::NONE); });
    settle();
    if (global.json) {
        std::cout << JsonObject()
                             .add("downlinkKHz", plan.downlinkKHz)
                             .add("frequency", plan.ifHz)
                             .add("lnb", plan.lnb)
                             .add("lnbId", *lnbId)
                             .add("polarisation", plan.horizontal ? "H" : "V")
                             .add("band", plan.highBand ? "high" : "low")
                             .str()
                  << std::endl;
    } else {
        std::cout << describePlan(plan, satellite) << "\n";
    }
    return kSuccess;
}

int runTune(const GlobalOptions& global, const TuneOptions& options) {
    const ChannelOptions& c = options.channel;
    if (c.dvbt.empty() && c.dvbc.empty() && c.dvbs.empty() && options.channelName.empty()) {
        return reportFailure(global.json, kUsageError,
                             "name the channel with --dvbt, --dvbc, --dvbs or --channel");
    }
    return showSignal(global, options, false);
}

int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watchIt) {
    return showSignal(global, options, watchIt);
}

int runDemux(const GlobalOptions& global, const TuneOptions& options) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return reportFailure(global.json, kUsageError, error);

    sp<IDemux> demux;
    uint32_t demuxId = 0;
    Result result = Result::UNKNOWN_ERROR;
    call("openDemux", [&] {
        return tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
            result = r;
            demuxId = id;
            demux = d;
        });
    });
    if (result != Result::SUCCESS) {
        return reportFailure(global.json, kServiceError, "openDemux: " + toString(result));
    }
    // One line per step, with the binding the service's dump shows; for --json a JSON object
    // per line.
    auto step = [&](const std::string& what) {
        const std::optional<uint32_t> bound = boundDemux(tuner, options.id);
        const bool ours = bound && *bound == demuxId;
        if (global.json) {
            std::cout << JsonObject()
                                 .add("demux", demuxId)
                                 .add("step", what)
                                 .add("frontendBound", ours)
                                 .str()
                      << "\n";
        } else {
            std::cout << what << ": frontend " << options.id
                      << (ours ? " feeds demux " : " does not feed demux ") << demuxId << "\n";
        }
    };
    if (!global.json) std::cout << "demux " << demuxId << " opened\n";
    call("setFrontendDataSource", [&] { return demux->setFrontendDataSource(options.id); });
    step("bound to frontend " + std::to_string(options.id));
    sp<FrontendEvents> events = new FrontendEvents();
    const int outcome = tuneAndReport(global, tuner, options.id, frontend, events, options.channel);
    if (outcome == kSuccess || outcome == kNoLock) {
        step("after tune");
        call("stopTune", [&] { return frontend->stopTune(); });
        step("after stopTune");
    }
    call("close", [&] { return demux->close(); });
    if (!global.json) std::cout << "demux " << demuxId << " closed\n";
    return outcome;
}

}  // namespace tunerctl
