#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>

#include "ChannelFile.h"
#include "Commands.h"
#include "ExitCodes.h"
#include "FrontendEvents.h"
#include "Output.h"
#include "PlpInUse.h"
#include "ScanResults.h"
#include "ServiceCalls.h"
#include "ServiceScan.h"
#include "TunerClient.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// The cable sweep's step: locks this close together are one multiplex.
constexpr uint32_t kSweepStepHz = 50000;

int terminalWidth() {
    struct winsize size {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

// Prints each scan message as it arrives (a JSON object per line for --json) and keeps what the
// summary needs. On a terminal the progress redraws one line on stderr; in a pipe it stays out.
struct ScanReport {
    bool json = false;
    bool bar = false;
    bool sweep = false;  // a blind cable sweep, whose progress says which frequency it tries
    uint32_t startHz = 0;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    bool progressShown = false;
    uint32_t lastFrequency = 0;
    std::vector<uint32_t> found;

    void clearBar() {
        if (progressShown) std::cerr << "\r\x1b[K" << std::flush;
        progressShown = false;
    }

    void line(const std::string& text) {
        clearBar();
        std::cout << text << std::endl;
    }

    void drawProgress(int percent) {
        const double elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const double left = percent > 0 ? elapsed * (100 - percent) / percent : 0;
        const uint32_t current =
                sweep && percent > 0 ? startHz + static_cast<uint32_t>(percent - 1) * kSweepStepHz
                                     : startHz;
        // Three columns stay free: the terminal echoes a Ctrl-C as "^C" after the bar, and the
        // line must not wrap, so that the next redraw or clear takes all of it.
        std::cerr << "\r" << progressLine(percent, current, left, terminalWidth() - 3) << "\x1b[K"
                  << std::flush;
        progressShown = true;
    }

    // The standard the next attempt scans, when AUTO tries more than one.
    void standard(const std::string& name) {
        if (json) {
            std::cout << JsonObject().add("type", "STANDARD").add("standard", name).str()
                      << std::endl;
        } else {
            line("STANDARD " + name);
        }
    }

    void take(FrontendScanMessageType type, const FrontendScanMessage& message) {
        JsonObject entry;
        entry.add("type", toString(type));
        switch (type) {
            case FrontendScanMessageType::PROGRESS_PERCENT:
                entry.add("percent", uint32_t{message.progressPercent()});
                if (bar) drawProgress(message.progressPercent());
                break;
            case FrontendScanMessageType::FREQUENCY:
                lastFrequency = message.frequencies().size() > 0 ? message.frequencies()[0] : 0;
                entry.add("frequency", lastFrequency);
                if (!json) line("FREQUENCY " + std::to_string(lastFrequency) + " Hz");
                break;
            case FrontendScanMessageType::LOCKED:
                found.push_back(lastFrequency);
                if (!json) line("LOCKED");
                break;
            case FrontendScanMessageType::END:
                if (!json) line("END");
                break;
            default:
                break;
        }
        if (json) std::cout << entry.str() << std::endl;
    }
};

std::string multiplexJson(const Multiplex& m) {
    return JsonObject()
            .add("frequency", m.centreHz())
            .add("first", m.firstHz)
            .add("last", m.lastHz)
            .add("steps", m.steps)
            .str();
}

std::string multiplexText(const Multiplex& m) {
    std::string text = "  " + std::to_string(m.centreHz()) + " Hz";
    if (m.steps > 1) {
        text += " (" + std::to_string(m.firstHz) + " .. " + std::to_string(m.lastHz) + " Hz, " +
                std::to_string(m.steps) + " steps)";
    }
    return text;
}

// A multiplex's name in the file: its frequency; through a dish the downlink with its
// polarisation and satellite, which tell apart two satellites' transponders of one frequency.
std::string channelName(const Multiplex& m, const ChannelOptions& scanned,
                        const std::optional<SatellitePlan>& plan) {
    char name[64];
    if (!plan) {
        std::snprintf(name, sizeof(name), "%.3f MHz", m.centreHz() / 1e6);
        return name;
    }
    std::snprintf(name, sizeof(name), "%.3f MHz %s", plan->downlinkKHz / 1e3,
                  plan->horizontal ? "H" : "V");
    std::string text = name;
    if (!scanned.satellite.empty()) {
        text += std::string(" sat ") + static_cast<char>('A' + std::stoi(scanned.satellite));
    }
    return text;
}

// The channel that tunes a multiplex the scan found.
ChannelOptions foundChannel(const Multiplex& m, const ChannelOptions& scanned,
                            const std::optional<SatellitePlan>& plan) {
    ChannelOptions options = scanned;
    const std::string hz = std::to_string(m.centreHz()) + "Hz";
    if (!scanned.dvbt.empty()) options.dvbt = hz;
    if (!scanned.dvbc.empty()) {
        // A cable scan tunes 256-QAM, annex A: that is what locked.
        options.dvbc = hz;
        options.modulation = "256QAM";
        options.annex = "A";
    }
    if (!scanned.dvbs.empty()) {
        // A satellite scan tries one frequency: through a dish the file keeps its downlink,
        // else the frequency at the LNB output.
        options.dvbs = plan ? std::to_string(plan->downlinkKHz) + "kHz"
                            : std::to_string(m.centreHz() / 1000) + "kHz";
    }
    return options;
}

// A name no earlier channel of the file has: a second service of the same name gets its
// multiplex's frequency, as a user tells them apart.
std::string uniqueName(const std::string& name, const std::string& multiplex,
                       const std::vector<FoundChannel>& channels) {
    auto taken = [&](const std::string& n) {
        for (const FoundChannel& c : channels) {
            if (c.name == n) return true;
        }
        return false;
    };
    if (!taken(name)) return name;
    std::string candidate = name + " (" + multiplex + ")";
    for (int n = 2; taken(candidate); ++n) candidate = name + " (" + std::to_string(n) + ")";
    return candidate;
}

// What the scan found as channels of a dvbv5 file: a channel per multiplex found and per service
// the tables named.
bool writeFound(const GlobalOptions& global, const std::string& file, const ChannelOptions& scanned,
                const std::optional<SatellitePlan>& plan, const std::vector<Multiplex>& found,
                const std::vector<ScannedMultiplex>& scannedServices) {
    // Each multiplex under its frequency, as a frequency scan writes it, then its services.
    std::vector<FoundChannel> channels;
    for (const Multiplex& m : found) {
        FoundChannel c{};
        c.name = channelName(m, scanned, plan);
        c.options = foundChannel(m, scanned, plan);
        channels.push_back(c);
    }
    for (const ScannedMultiplex& m : scannedServices) {
        for (const FoundService& s : m.services) {
            FoundChannel c{};
            c.name = uniqueName(s.name, m.label, channels);
            c.options = m.channel;
            c.provider = s.provider;
            c.serviceId = s.id;
            c.videoPids = s.videoPids;
            c.audioPids = s.audioPids;
            c.otherPids = s.otherPids;
            c.pmtPid = s.pmtPid;
            channels.push_back(c);
        }
    }
    std::string error;
    if (!writeChannels(file, channels, error)) {
        reportFailure(global.json, kServiceError, error);
        return false;
    }
    return true;
}

int scanOutcome(bool interrupted, bool nothingFound) {
    return interrupted ? kInterrupted : nothingFound ? kNoLock : kSuccess;
}

}  // namespace

namespace {

// What a scan works on, once the command line has been checked against the frontend.
struct ScanJob {
    sp<ITuner> tuner;
    sp<IFrontend> frontend;
    FrontendInfo info{};
    ChannelOptions channel;
    FrontendSettings settings;
    std::optional<SatellitePlan> plan;
};

// Opens the frontend and turns the options into settings it can scan (and sets the dish up for
// a satellite downlink); the exit code of a refusal, or kSuccess.
int prepareScan(const GlobalOptions& global, const ScanOptions& options, ScanJob& job) {
    job.tuner = connectTuner();
    std::string error;
    job.frontend = openFrontend(job.tuner, options.id, error);
    if (job.frontend == nullptr) return reportFailure(global.json, kUsageError, error);
    // A cable scan tries the symbol rate the service would choose when none is given.
    job.channel = options.channel;
    if (!job.channel.dvbc.empty() && job.channel.symbolRate.empty()) {
        job.channel.symbolRate = "6875000";
    }
    if (!buildSettings(job.channel, job.settings, error, &job.plan) ||
        !frontendInfo(job.tuner, options.id, job.info) ||
        !checkAgainstFrontend(job.info, options.id, job.settings, error)) {
        return reportFailure(global.json, kUsageError, error);
    }
    if (!job.plan) return kSuccess;
    return setUpDish(global, job.tuner, options.id, job.frontend, *job.plan, job.channel);
}

uint32_t startFrequency(const FrontendSettings& settings) {
    using D = FrontendSettings::hidl_discriminator;
    return settings.getDiscriminator() == D::dvbc   ? settings.dvbc().frequency
           : settings.getDiscriminator() == D::dvbt ? settings.dvbt().frequency
                                                    : settings.dvbs().frequency;
}

// Reports each message until the scan ends (the service's state tells when, read whenever no
// message is waiting) or Ctrl-C stops it; whether it was stopped, or the exit code of a scan
// another client took over.
std::optional<int> followScan(const GlobalOptions& global, const ScanOptions& options,
                              const ScanJob& job, FrontendEvents& events, ScanReport& report,
                              bool& stopped) {
    for (;;) {
        if (interrupted() && !stopped) {
            call("stopScan", [&] { return job.frontend->stopScan(); });
            stopped = true;
        }
        if (serviceDied()) serviceLost("scan");
        auto message = events.takeScanMessage(std::chrono::milliseconds(100));
        if (message) {
            report.take(message->first, message->second);
            continue;
        }
        const ServiceDump state = serviceState(job.tuner, "scan");
        if (takenByAnotherClient(state, options.id)) {
            report.clearBar();
            return reportFailure(global.json, kServiceError,
                                 "frontend " + std::to_string(options.id) +
                                         " was taken by another client (its scan messages go "
                                         "there now)");
        }
        const FrontendDump* frontend = state.frontend(options.id);
        if (frontend == nullptr || !frontend->scanRunning) {
            // The scan's last messages were sent before it ended; being oneway calls they may
            // still be on their way to this process's pool.
            while ((message = events.takeScanMessage(std::chrono::milliseconds(200)))) {
                report.take(message->first, message->second);
            }
            return std::nullopt;
        }
    }
}

// What the scan found: the multiplexes, and the frequency the tuner was left on.
int summarise(const GlobalOptions& global, const ScanOptions& options, const ScanJob& job,
              const ScanReport& report, bool stopped,
              const std::vector<ScannedMultiplex>& scannedServices) {
    const std::vector<Multiplex> multiplexes = mergeLocks(report.found, kSweepStepHz);
    // A scan that found nothing leaves the file as it was; one stopped half way writes what it
    // found, a whole file.
    if (!options.output.empty() && !multiplexes.empty() &&
        !writeFound(global, options.output, job.channel, job.plan, multiplexes, scannedServices)) {
        return kServiceError;
    }
    const bool leftOn = !report.found.empty() && !stopped;
    if (global.json) {
        std::vector<std::string> found;
        for (const Multiplex& m : multiplexes) found.push_back(multiplexJson(m));
        JsonObject summary;
        summary.addRaw("found", jsonArray(found)).add("stopped", stopped);
        // Every key every time: null where the tuner was left on nothing.
        if (leftOn) {
            summary.add("leftOn", report.found.back());
        } else {
            summary.addRaw("leftOn", "null");
        }
        std::cout << summary.str() << std::endl;
        return scanOutcome(stopped, report.found.empty());
    }
    std::cout << (stopped ? "scan stopped" : "scan finished") << "\n";
    std::cout << "found " << multiplexes.size()
              << (multiplexes.size() == 1 ? " multiplex\n" : " multiplexes\n");
    for (const Multiplex& m : multiplexes) std::cout << multiplexText(m) << "\n";
    if (options.services && !scannedServices.empty()) {
        size_t services = 0;
        size_t throughNit = 0;
        for (const ScannedMultiplex& m : scannedServices) {
            services += m.services.size();
            throughNit += m.throughNit && m.locked ? 1 : 0;
        }
        std::cout << "found " << services << (services == 1 ? " service" : " services");
        if (throughNit > 0) {
            std::cout << " (with " << throughNit
                      << (throughNit == 1 ? " multiplex" : " multiplexes") << " the NIT announced)";
        }
        std::cout << "\n";
    }
    if (leftOn) std::cout << "tuner left on " << report.found.back() << " Hz\n";
    return scanOutcome(stopped, report.found.empty());
}

}  // namespace

int runScan(const GlobalOptions& global, const ScanOptions& options) {
    ScanJob job;
    const int prepared = prepareScan(global, options, job);
    if (prepared != kSuccess) return prepared;
    sp<FrontendEvents> events = new FrontendEvents();
    // A scan a client left running (one that died, say) would report into this one.
    call("stopScan", [&] { return job.frontend->stopScan(); });
    call("setCallback", [&] { return job.frontend->setCallback(events); });
    installInterruptHandler();
    const auto type = options.blind ? FrontendScanType::SCAN_BLIND : FrontendScanType::SCAN_AUTO;
    ScanReport report;
    report.json = global.json;
    report.bar = !global.json && isatty(STDERR_FILENO);
    report.sweep = options.blind && !job.channel.dvbc.empty();
    report.startHz = startFrequency(job.settings);
    bool stopped = false;
    // The driver locks only on the standard it is given: AUTO scans each in turn, as tune does.
    const std::vector<StandardAttempt> attempts = standardAttempts(job.settings, job.info);
    for (const StandardAttempt& attempt : attempts) {
        if (attempts.size() > 1) {
            report.standard(attempt.standard);
        }
        job.settings = attempt.settings;
        job.channel.standard = attempt.standard;
        const Result result =
                call("scan", [&] { return job.frontend->scan(attempt.settings, type); });
        if (result != Result::SUCCESS) {
            return reportFailure(global.json, kServiceError, "scan: " + toString(result));
        }
        const std::optional<int> takenOver =
                followScan(global, options, job, *events, report, stopped);
        if (takenOver) return *takenOver;
        if (stopped || !report.found.empty()) break;
        // Each attempt's scan is ended before the next begins.
        call("stopScan", [&] { return job.frontend->stopScan(); });
    }
    report.clearBar();
    // The PLP is read while the tuner is still on the multiplex: stopScan releases it.
    if (!report.found.empty() && !stopped) {
        if (const std::optional<uint32_t> plp = plpInUse(job.frontend, job.settings, job.info)) {
            job.channel.plp = std::to_string(*plp);
        }
    }
    if (!stopped) call("stopScan", [&] { return job.frontend->stopScan(); });
    // Then each multiplex found is tuned again and its tables read.
    std::vector<ScannedMultiplex> services;
    if (options.services && !stopped && !report.found.empty()) {
        ServiceScanJob serviceJob;
        serviceJob.tuner = job.tuner;
        serviceJob.frontend = job.frontend;
        serviceJob.events = events;
        serviceJob.frontendId = options.id;
        serviceJob.info = job.info;
        serviceJob.json = global.json;
        serviceJob.followNit = options.followNit;
        std::vector<ChannelOptions> found;
        for (const Multiplex& m : mergeLocks(report.found, kSweepStepHz)) {
            found.push_back(foundChannel(m, job.channel, job.plan));
        }
        const int code = scanServices(serviceJob, found, services);
        if (code != kSuccess) return code;
        stopped = interrupted();
    }
    return summarise(global, options, job, report, stopped, services);
}

}  // namespace tunerctl
