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
#include "ScanResults.h"
#include "ServiceCalls.h"
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

// The multiplexes found, as channels of a dvbv5 file, named by their frequency.
bool writeFound(const GlobalOptions& global, const std::string& file, const ChannelOptions& scanned,
                const std::optional<SatellitePlan>& plan, const std::vector<Multiplex>& found) {
    std::vector<FoundChannel> channels;
    for (const Multiplex& m : found) {
        FoundChannel c{};
        char name[32];
        std::snprintf(name, sizeof(name), "%.3f MHz", m.centreHz() / 1e6);
        c.name = name;
        c.options = scanned;
        const std::string hz = std::to_string(m.centreHz()) + "Hz";
        if (!scanned.dvbt.empty()) c.options.dvbt = hz;
        if (!scanned.dvbc.empty()) {
            // A cable scan tunes 256-QAM, annex A: that is what locked.
            c.options.dvbc = hz;
            c.options.modulation = "256QAM";
            c.options.annex = "A";
        }
        if (!scanned.dvbs.empty()) {
            // A satellite scan tries one frequency: through a dish the file keeps its downlink,
            // else the frequency at the LNB output.
            c.options.dvbs = plan ? std::to_string(plan->downlinkKHz) + "kHz"
                                  : std::to_string(m.centreHz() / 1000) + "kHz";
        }
        channels.push_back(c);
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

int runScan(const GlobalOptions& global, const ScanOptions& options) {
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return reportFailure(global.json, kUsageError, error);
    // A cable scan tries the symbol rate the service would choose when none is given.
    ChannelOptions channel = options.channel;
    if (!channel.dvbc.empty() && channel.symbolRate.empty()) channel.symbolRate = "6875000";
    FrontendSettings settings;
    FrontendInfo info{};
    std::optional<SatellitePlan> plan;
    if (!buildSettings(channel, settings, error, &plan) || !frontendInfo(tuner, options.id, info) ||
        !checkAgainstFrontend(info, options.id, settings, error)) {
        return reportFailure(global.json, kUsageError, error);
    }

    if (plan) {
        const int dish = setUpDish(global, tuner, options.id, frontend, *plan, channel);
        if (dish != kSuccess) return dish;
    }
    sp<FrontendEvents> events = new FrontendEvents();
    // A scan a client left running (one that died, say) would report into this one.
    call("stopScan", [&] { return frontend->stopScan(); });
    call("setCallback", [&] { return frontend->setCallback(events); });
    installInterruptHandler();
    const auto type = options.blind ? FrontendScanType::SCAN_BLIND : FrontendScanType::SCAN_AUTO;
    const Result result = call("scan", [&] { return frontend->scan(settings, type); });
    if (result != Result::SUCCESS) {
        return reportFailure(global.json, kServiceError, "scan: " + toString(result));
    }

    // The service's dump tells when the scan has ended; it is read when no message is waiting.
    ScanReport report;
    report.json = global.json;
    report.bar = !global.json && isatty(STDERR_FILENO);
    report.sweep = options.blind && !channel.dvbc.empty();
    using D = FrontendSettings::hidl_discriminator;
    report.startHz = settings.getDiscriminator() == D::dvbc   ? settings.dvbc().frequency
                     : settings.getDiscriminator() == D::dvbt ? settings.dvbt().frequency
                                                              : settings.dvbs().frequency;
    bool stopped = false;
    while (true) {
        if (interrupted() && !stopped) {
            call("stopScan", [&] { return frontend->stopScan(); });
            stopped = true;
        }
        if (serviceDied()) serviceLost("the scan");
        auto message = events->takeScanMessage(std::chrono::milliseconds(100));
        if (message) {
            report.take(message->first, message->second);
            continue;
        }
        // The service's dump tells whether the scan still runs, and for whom.
        const std::string dump = serviceDump(tuner);
        if (takenByAnotherClient(dump, options.id)) {
            report.clearBar();
            return reportFailure(global.json, kServiceError,
                                 "frontend " + std::to_string(options.id) +
                                         " was taken by another client (its scan messages go "
                                         "there now)");
        } else if (!scanRunning(dump, options.id)) {
            // The scan's last messages were sent before it ended; being oneway calls they may
            // still be on their way to this process's pool.
            while ((message = events->takeScanMessage(std::chrono::milliseconds(200)))) {
                report.take(message->first, message->second);
            }
            break;
        }
    }
    report.clearBar();
    if (!stopped) call("stopScan", [&] { return frontend->stopScan(); });

    const std::vector<Multiplex> multiplexes = mergeLocks(report.found, kSweepStepHz);
    if (!options.output.empty() && !writeFound(global, options.output, channel, plan, multiplexes)) {
        return kServiceError;
    }
    if (global.json) {
        std::vector<std::string> found;
        for (const Multiplex& m : multiplexes) found.push_back(multiplexJson(m));
        JsonObject summary;
        summary.addRaw("found", jsonArray(found)).add("stopped", stopped);
        if (!report.found.empty() && !stopped) summary.add("leftOn", report.found.back());
        std::cout << summary.str() << std::endl;
        return scanOutcome(stopped, report.found.empty());
    }
    std::cout << (stopped ? "scan stopped" : "scan finished") << "\n";
    std::cout << "found " << multiplexes.size()
              << (multiplexes.size() == 1 ? " multiplex\n" : " multiplexes\n");
    for (const Multiplex& m : multiplexes) std::cout << multiplexText(m) << "\n";
    if (!report.found.empty() && !stopped) {
        std::cout << "tuner left on " << report.found.back() << " Hz\n";
    }
    return scanOutcome(stopped, report.found.empty());
}

}  // namespace tunerctl
