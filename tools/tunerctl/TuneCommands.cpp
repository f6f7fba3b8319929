#include <algorithm>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

#include "ChannelFile.h"
#include "Commands.h"
#include "DataPath.h"
#include "ExitCodes.h"
#include "FrontendEvents.h"
#include "Output.h"
#include "PlpInUse.h"
#include "ServiceCalls.h"
#include "StatusFields.h"
#include "StreamHealth.h"
#include "StreamSampler.h"
#include "TunerClient.h"
#include "World.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// A watch samples this often; a stream's figures are over this long.
constexpr std::chrono::milliseconds kSamplePeriod{1000};

// What a monitor shows of one frontend: the types it lists, in display order, those of them the
// service does not measure, and the channel it watches ("DVB-T 482.000 MHz").
struct Monitor {
    std::vector<FrontendStatusType> types;
    std::set<std::string> notMeasured;
    std::string watching;
};

Monitor monitorOf(const sp<ITuner>& tuner, uint32_t id, const std::string& watching) {
    Monitor monitor;
    FrontendInfo info{};
    frontendInfo(tuner, id, info);
    monitor.types = listedInDisplayOrder(info.statusCaps);
    const ServiceDump state = serviceState(tuner, "status");
    if (const FrontendDump* frontend = state.frontend(id)) {
        monitor.notMeasured.insert(frontend->notMeasured.begin(), frontend->notMeasured.end());
    }
    // Not tuned by this command: what the driver was last tuned to, where the host's world
    // tells; else the frontend and its type.
    std::optional<std::string> tuned;
    if (watching.empty()) tuned = tunedInTheWorld(id & 0xFF);
    monitor.watching = !watching.empty() ? watching
                       : tuned           ? *tuned + " (tuned before)"
                               : "frontend " + std::to_string(id) + " (" + toString(info.type) +
                                         ", not tuned here)";
    return monitor;
}

bool readStatus(bool json, const sp<IFrontend>& frontend, const Monitor& monitor,
                std::vector<FrontendStatus>& statuses) {
    Result result = Result::UNKNOWN_ERROR;
    call("getStatus", [&] {
        return frontend->getStatus(hidl_vec<FrontendStatusType>(monitor.types),
                                   [&](Result r, const hidl_vec<FrontendStatus>& s) {
                                       result = r;
                                       statuses = s;
                                   });
    });
    if (result != Result::SUCCESS)
        reportFailure(json, kServiceError, "getStatus: " + toString(result));
    return result == Result::SUCCESS;
}

// Every listed type a row; a figure the frontend does not measure reads "not available".
void printStatusTable(const Monitor& monitor, const std::vector<FrontendStatus>& statuses) {
    std::cout << "  " << std::left << std::setw(10) << "channel" << monitor.watching << "\n";
    for (const StatusField& field : statusFields(statuses, monitor.notMeasured)) {
        std::cout << "  " << std::left << std::setw(10) << field.name << field.text << "\n";
    }
}

// The local time with its date and offset, as ISO 8601 writes it.
std::string isoTime(std::time_t when) {
    char text[40];
    std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S%z", std::localtime(&when));
    return text;
}

// One line per sample: its number, the time, the channel and the figures the frontend measures
// (the others were named once when the watch began); a JSON object per line for --json.
void printStatusLine(bool json, const Monitor& monitor, uint64_t sample,
                     const std::vector<FrontendStatus>& statuses,
                     const std::optional<StreamSampler::Sample>& figures) {
    const std::time_t now = std::time(nullptr);
    const std::vector<StatusField> fields = statusFields(statuses, monitor.notMeasured);
    if (json) {
        JsonObject o;
        o.add("sample", sample)
                .add("time", isoTime(now))
                .add("channel", monitor.watching)
                .addRaw("status", statusFieldsJson(fields));
        if (figures) o.addRaw("stream", streamHealthJson(figures->report, figures->seconds));
        std::cout << o.str() << std::endl;
        return;
    }
    char clock[16];
    std::strftime(clock, sizeof(clock), "%H:%M:%S", std::localtime(&now));
    std::cout << "#" << sample << " " << clock << "  " << monitor.watching;
    for (const StatusField& field : fields) {
        if (field.text != kNotAvailable) std::cout << "  " << field.name << " " << field.text;
    }
    if (figures) std::cout << "  " << streamHealthLine(figures->report, figures->seconds);
    std::cout << std::endl;
}

// After a lock: the PLP the frontend uses, when it is not the one asked (this driver picks the
// PLP itself; the service passes none to it).
void notePlp(const GlobalOptions& global, const sp<IFrontend>& frontend,
             const ChannelOptions& channel, const FrontendSettings& locked,
             const FrontendInfo& info) {
    const std::optional<uint32_t> asked = askedStreamId(channel);
    if (!asked) return;
    const std::optional<uint32_t> used = plpInUse(frontend, locked, info);
    if (!used || *used == *asked) return;
    const std::string text = "PLP " + std::to_string(*asked) +
                             " asked, but the frontend picks the PLP itself: it uses PLP " +
                             std::to_string(*used);
    if (global.json) {
        std::cout
                << JsonObject().add("notice", text).add("plpAsked", *asked).add("plpUsed", *used).str()
                << std::endl;
    } else {
        std::cerr << "tunerctl: " << text << std::endl;
    }
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
                     const ChannelOptions& channel, sp<ITuner>& tuner) {
    notice(global.json, "the tuner service died; waiting for a new instance");
    tuner = reconnectTuner();
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
// instance and goes on with it (frontend is then the new instance's). With a stream sampler each
// sample also reads the stream for the second before it.
int watch(const GlobalOptions& global, const TuneOptions& options, const ChannelOptions& channel,
          sp<IFrontend>& frontend, const Monitor& monitor, std::unique_ptr<StreamSampler> sampler) {
    installInterruptHandler();
    const bool stream = sampler != nullptr;
    std::vector<std::string> unmeasured;
    for (FrontendStatusType type : monitor.types) {
        if (monitor.notMeasured.count(toString(type)) != 0) unmeasured.push_back(statusName(type));
    }
    if (!unmeasured.empty()) {
        notice(global.json,
               "not measured by this frontend, so not shown: " + joined(unmeasured, ", "));
    }
    const std::vector<FrontendStatusType>& types = monitor.types;
    for (uint64_t sample = 1; !interrupted(); ++sample) {
        if (sampler) sampler->collect(kSamplePeriod);
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
            sampler.reset();  // its demux went with the service
            sp<ITuner> tuner;
            if ((frontend = rejoin(global, options, channel, tuner)) == nullptr) break;
            if (stream) {
                std::string error;
                sampler = StreamSampler::open(tuner, options.id, error);
                if (!sampler) notice(global.json, "no stream figures: " + error);
            }
            continue;
        }
        if (result == Result::SUCCESS) {
            std::optional<StreamSampler::Sample> figures;
            if (sampler) figures = sampler->sample();
            printStatusLine(global.json, monitor, sample, statuses, figures);
        } else {
            reportFailure(global.json, kServiceError, "getStatus: " + toString(result));
        }
        if (sampler) continue;
        for (int i = 0; i < 10 && !interrupted(); ++i) {
            std::this_thread::sleep_for(kSamplePeriod / 10);
        }
    }
    return kInterrupted;
}

// Whether this command may bind a demux of its own to the frontend for --stream: not when it did
// not tune and another demux is fed by it (binding would take that client's stream).
bool mayWatchStream(const GlobalOptions& global, const sp<ITuner>& tuner, uint32_t id,
                    bool tunedHere, int& code) {
    if (tunedHere) return true;
    const ServiceDump state = serviceState(tuner, "status");
    const auto bound = state.bindings.find(id);
    // A binding outlives its demux's close; only an open demux has a stream to lose.
    if (bound == state.bindings.end() || std::find(state.demuxes.begin(), state.demuxes.end(),
                                                   bound->second) == state.demuxes.end()) {
        return true;
    }
    code = reportFailure(global.json, kUsageError,
                         "frontend " + std::to_string(id) + " feeds demux " +
                                 std::to_string(bound->second) +
                                 ", which --stream would take from it: name a channel to tune");
    return false;
}

// Opens the frontend, tunes it when a channel is named, then shows its signal once or until
// Ctrl-C.
int showSignal(const GlobalOptions& global, const TuneOptions& options, bool watchIt, bool stream) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return reportFailure(global.json, kUsageError, error);
    ChannelOptions c = options.channel;
    if (!options.channelName.empty() || !options.channelFile.empty()) {
        const int read = channelFromFile(global, tuner, options, c);
        if (read != kSuccess) return read;
    }
    std::optional<TuneOutcome> tuned;
    if (!c.dvbt.empty() || !c.dvbc.empty() || !c.dvbs.empty()) {
        sp<FrontendEvents> events = new FrontendEvents();
        tuned = tuneAndReport(global, tuner, options.id, frontend, events, c);
        if (tuned->code != kSuccess && tuned->code != kNoLock) return tuned->code;
    }
    const Monitor monitor = monitorOf(tuner, options.id, tuned ? tuned->channel : "");
    std::unique_ptr<StreamSampler> sampler;
    if (stream) {
        int code = kSuccess;
        if (!mayWatchStream(global, tuner, options.id, tuned.has_value(), code)) return code;
        sampler = StreamSampler::open(tuner, options.id, error);
        if (!sampler) return reportFailure(global.json, kServiceError, error);
    }
    if (watchIt) {
        const int code = watch(global, options, c, frontend, monitor, std::move(sampler));
        if (!serviceDied()) call("stopTune", [&] { return frontend->stopTune(); });
        return code;
    }
    std::optional<StreamSampler::Sample> figures;
    if (sampler) {
        installInterruptHandler();
        sampler->collect(kSamplePeriod);
        figures = sampler->sample();
        sampler.reset();
    }
    std::vector<FrontendStatus> statuses;
    if (!readStatus(global.json, frontend, monitor, statuses)) return kServiceError;
    if (global.json) {
        JsonObject o;
        o.add("channel", monitor.watching)
                .addRaw("status", statusFieldsJson(statusFields(statuses, monitor.notMeasured)));
        if (figures) o.addRaw("stream", streamHealthJson(figures->report, figures->seconds));
        std::cout << o.str() << "\n";
    } else {
        printStatusTable(monitor, statuses);
        if (figures) std::cout << streamHealthText(figures->report, figures->seconds);
    }
    if (tuned) return tuned->code;
    // Without a tune of its own, the exit code says whether the frontend has lock now.
    const std::optional<bool> locked = demodLocked(statuses);
    if (locked) return *locked ? kSuccess : kNoLock;
    const FrontendDump* state = serviceState(tuner, "status").frontend(options.id);
    return state != nullptr && state->locked ? kSuccess : kNoLock;
}

}  // namespace

// Checks the channel against the frontend, tunes and reports LOCKED or NO_SIGNAL (and with AUTO
// which standard locked).
TuneOutcome tuneAndReport(const GlobalOptions& global, const sp<ITuner>& tuner, uint32_t id,
                          const sp<IFrontend>& frontend, const sp<FrontendEvents>& events,
                          const ChannelOptions& channel) {
    FrontendSettings settings;
    FrontendInfo info{};
    std::string error;
    std::optional<SatellitePlan> plan;
    TuneOutcome outcome;
    if (!buildSettings(channel, settings, error, &plan) || !frontendInfo(tuner, id, info) ||
        !checkAgainstFrontend(info, id, settings, error)) {
        outcome.code = reportFailure(global.json, kUsageError, error);
        return outcome;
    }
    if (plan) {
        outcome.code = setUpDish(global, tuner, id, frontend, *plan, channel);
        if (outcome.code != kSuccess) return outcome;
    }
    // A scan a client left running (one that died, say) would go on moving the tuner.
    call("stopScan", [&] { return frontend->stopScan(); });
    call("setCallback", [&] { return frontend->setCallback(events); });
    const std::vector<StandardAttempt> attempts = standardAttempts(settings, info);
    for (const StandardAttempt& attempt : attempts) {
        const Result result = call("tune", [&] { return frontend->tune(attempt.settings); });
        if (result != Result::SUCCESS) {
            outcome.code = reportFailure(global.json, kServiceError, "tune: " + toString(result));
            return outcome;
        }
        const std::optional<FrontendEventType> event = events->takeEvent();
        if (!event && takenByAnotherClient(serviceState(tuner, "tune"), id)) {
            outcome.code =
                    reportFailure(global.json, kServiceError,
                                  "frontend " + std::to_string(id) +
                                          " was taken by another client (its events go there now)");
            return outcome;
        }
        if (!event) {
            outcome.code = reportFailure(global.json, kServiceError,
                                         "tune: no event (the driver refused the tune)");
            return outcome;
        }
        outcome.channel = channelLabel(attempt.settings);
        if (global.json) {
            std::cout << JsonObject()
                                 .add("event", toString(*event))
                                 .add("standard", attempt.standard)
                                 .add("channel", outcome.channel)
                                 .str()
                      << std::endl;
        } else {
            std::cout << toString(*event)
                      << (attempts.size() > 1 ? " (" + attempt.standard + ")" : "") << "\n";
        }
        if (*event == FrontendEventType::LOCKED) {
            notePlp(global, frontend, channel, attempt.settings, info);
            outcome.code = kSuccess;
            return outcome;
        }
    }
    return outcome;
}

// The channel named in a channel file, in place of frequency options.
int channelFromFile(const GlobalOptions& global, const sp<ITuner>& tuner,
                    const TuneOptions& options, ChannelOptions& channel, FoundChannel* service) {
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
                     options.channelName, fromFile, error, service)) {
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
    return showSignal(global, options, false, false);
}

int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watchIt, bool stream) {
    return showSignal(global, options, watchIt, stream);
}

int runDemux(const GlobalOptions& global, const TuneOptions& options) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return reportFailure(global.json, kUsageError, error);

    std::unique_ptr<DemuxSession> session = DemuxSession::open(tuner, error);
    if (!session) return reportFailure(global.json, kServiceError, error);
    const uint32_t demuxId = session->id();
    // One line per step, with the binding the service's dump shows; for --json a JSON object
    // per line.
    auto step = [&](const std::string& what) {
        const ServiceDump state = serviceState(tuner, "demux");
        const auto bound = state.bindings.find(options.id);
        const bool ours = bound != state.bindings.end() && bound->second == demuxId;
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
    call("setFrontendDataSource",
         [&] { return session->demux()->setFrontendDataSource(options.id); });
    step("bound to frontend " + std::to_string(options.id));
    sp<FrontendEvents> events = new FrontendEvents();
    const int outcome =
            tuneAndReport(global, tuner, options.id, frontend, events, options.channel).code;
    if (outcome == kSuccess || outcome == kNoLock) {
        step("after tune");
        call("stopTune", [&] { return frontend->stopTune(); });
        step("after stopTune");
    }
    session.reset();  // closes it
    if (!global.json) std::cout << "demux " << demuxId << " closed\n";
    return outcome;
}

}  // namespace tunerctl
