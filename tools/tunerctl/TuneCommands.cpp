#include <chrono>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "Demux.h"
#include "FrontendEvents.h"
#include "Output.h"
#include "TunerClient.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

const std::vector<FrontendStatusType> kMonitorTypes = {FrontendStatusType::DEMOD_LOCK,
                                                       FrontendStatusType::SNR,
                                                       FrontendStatusType::BER,
                                                       FrontendStatusType::PRE_BER,
                                                       FrontendStatusType::MER,
                                                       FrontendStatusType::AGC,
                                                       FrontendStatusType::SIGNAL_QUALITY,
                                                       FrontendStatusType::PLP_ID,
                                                       FrontendStatusType::HIERARCHY};

bool readStatus(const sp<IFrontend>& frontend, std::vector<FrontendStatus>& statuses) {
    Result result = Result::UNKNOWN_ERROR;
    frontend->getStatus(hidl_vec<FrontendStatusType>(kMonitorTypes),
                        [&](Result r, const hidl_vec<FrontendStatus>& s) {
                            result = r;
                            statuses = s;
                        });
    if (result != Result::SUCCESS) std::cerr << "getStatus: " << toString(result) << "\n";
    return result == Result::SUCCESS;
}

void printStatusTable(const std::vector<FrontendStatus>& statuses) {
    for (const auto& [name, value] : statusRows(statuses)) {
        std::cout << "  " << std::left << std::setw(10) << name << value << "\n";
    }
}

void printStatusLine(const std::vector<FrontendStatus>& statuses) {
    const std::time_t now = std::time(nullptr);
    char clock[16];
    std::strftime(clock, sizeof(clock), "%H:%M:%S", std::localtime(&now));
    std::cout << clock;
    for (const auto& [name, value] : statusRows(statuses))
        std::cout << "  " << name << " " << value;
    std::cout << std::endl;
}

// Tunes and reports LOCKED or NO_SIGNAL; false when the tune was refused.
bool tuneAndReport(const GlobalOptions& global, const sp<IFrontend>& frontend,
                   const sp<FrontendEvents>& events, const ChannelOptions& channel) {
    FrontendSettings settings;
    std::string error;
    if (!buildSettings(channel, settings, error)) {
        std::cerr << error << "\n";
        return false;
    }
    frontend->setCallback(events);
    const Result result = frontend->tune(settings);
    if (result != Result::SUCCESS) {
        std::cerr << "tune: " << toString(result) << "\n";
        return false;
    }
    const std::optional<FrontendEventType> event = events->takeEvent();
    const std::string outcome = event ? toString(*event) : "no event (the driver refused the tune)";
    if (!global.json) std::cout << outcome << "\n";
    return true;
}

void watch(const sp<IFrontend>& frontend) {
    installInterruptHandler();
    while (!interrupted()) {
        std::vector<FrontendStatus> statuses;
        if (readStatus(frontend, statuses)) printStatusLine(statuses);
        for (int i = 0; i < 10 && !interrupted(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
}

// Opens the frontend, tunes it when a channel is named, then shows its signal once or until
// Ctrl-C.
int showSignal(const GlobalOptions& global, const TuneOptions& options, bool watchIt) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return std::cerr << error << "\n", 1;
    const ChannelOptions& c = options.channel;
    if (!c.dvbt.empty() || !c.dvbc.empty() || !c.dvbs.empty()) {
        sp<FrontendEvents> events = new FrontendEvents();
        if (!tuneAndReport(global, frontend, events, c)) return 1;
    }
    if (watchIt) {
        watch(frontend);
        frontend->stopTune();
        return 0;
    }
    std::vector<FrontendStatus> statuses;
    if (!readStatus(frontend, statuses)) return 1;
    if (global.json) {
        std::cout << statusJson(statuses) << "\n";
    } else {
        printStatusTable(statuses);
    }
    return 0;
}

}  // namespace

int runTune(const GlobalOptions& global, const TuneOptions& options) {
    const ChannelOptions& c = options.channel;
    if (c.dvbt.empty() && c.dvbc.empty() && c.dvbs.empty()) {
        std::cerr << "name the channel with --dvbt, --dvbc or --dvbs\n";
        return 2;
    }
    return showSignal(global, options, false);
}

int runStatus(const GlobalOptions& global, const TuneOptions& options, bool watchIt) {
    return showSignal(global, options, watchIt);
}

int runDemux(const GlobalOptions& global, const TuneOptions& options) {
    using ::android::hardware::tv::tuner::V1_0::implementation::Demux;
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return std::cerr << error << "\n", 1;

    sp<IDemux> demux;
    uint32_t demuxId = 0;
    Result result = Result::UNKNOWN_ERROR;
    tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
        result = r;
        demuxId = id;
        demux = d;
    });
    if (result != Result::SUCCESS) return std::cerr << "openDemux: " << toString(result) << "\n", 1;
    // In process the demux is the player library's object, whose input state can be read.
    const Demux* player = static_cast<const Demux*>(demux.get());
    auto input = [&] {
        return std::string(player->isFrontendInputRunning() ? "running" : "stopped") +
               " (started " + std::to_string(player->frontendInputStartCount()) + "x)";
    };
    std::cout << "demux " << demuxId << " opened\n";
    demux->setFrontendDataSource(options.id);
    std::cout << "bound to frontend " << options.id << ": input " << input() << "\n";
    sp<FrontendEvents> events = new FrontendEvents();
    if (!tuneAndReport(global, frontend, events, options.channel)) return 1;
    std::cout << "after tune: input " << input() << "\n";
    frontend->stopTune();
    std::cout << "after stopTune: input " << input() << "\n";
    demux->close();
    std::cout << "demux " << demuxId << " closed\n";
    return 0;
}

}  // namespace tunerctl
