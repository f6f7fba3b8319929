#include <unistd.h>

#include <iostream>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "FrontendEvents.h"
#include "Output.h"
#include "TunerClient.h"
#include "frontend/Frontend.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

constexpr int kBarWidth = 40;

void drawProgress(int percent) {
    const int filled = percent * kBarWidth / 100;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(kBarWidth - filled, ' ') << "] "
              << percent << "%" << std::flush;
}

// Prints one scan message as it arrives and keeps what the summary needs.
struct ScanReport {
    bool json = false;
    bool progressShown = false;
    uint32_t lastFrequency = 0;
    std::vector<uint32_t> found;
    std::vector<std::string> jsonMessages;

    void line(const std::string& text) {
        if (progressShown) std::cerr << "\n";
        progressShown = false;
        std::cout << text << std::endl;
    }

    void take(FrontendScanMessageType type, const FrontendScanMessage& message) {
        JsonObject entry;
        entry.add("type", toString(type));
        switch (type) {
            case FrontendScanMessageType::PROGRESS_PERCENT:
                entry.add("percent", uint32_t{message.progressPercent()});
                // The bar redraws in place, which only a terminal shows as such.
                if (!json && isatty(STDERR_FILENO)) {
                    drawProgress(message.progressPercent());
                    progressShown = true;
                }
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
        jsonMessages.push_back(entry.str());
    }
};

int scanOutcome(bool interrupted, bool nothingFound) {
    return interrupted ? kInterrupted : nothingFound ? kNoLock : kSuccess;
}

}  // namespace

int runScan(const GlobalOptions& global, const ScanOptions& options) {
    using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;
    sp<ITuner> tuner = connectTuner();
    std::string error;
    sp<IFrontend> frontend = openFrontend(tuner, options.id, error);
    if (frontend == nullptr) return std::cerr << error << "\n", kUsageError;
    // A cable scan tries the symbol rate the service would choose when none is given.
    ChannelOptions channel = options.channel;
    if (!channel.dvbc.empty() && channel.symbolRate.empty()) channel.symbolRate = "6875000";
    FrontendSettings settings;
    FrontendInfo info{};
    if (!buildSettings(channel, settings, error) || !frontendInfo(tuner, options.id, info) ||
        !checkAgainstFrontend(info, options.id, settings, error)) {
        return std::cerr << error << "\n", kUsageError;
    }

    sp<FrontendEvents> events = new FrontendEvents();
    frontend->setCallback(events);
    installInterruptHandler();
    const auto type = options.blind ? FrontendScanType::SCAN_BLIND : FrontendScanType::SCAN_AUTO;
    const Result result = frontend->scan(settings, type);
    if (result != Result::SUCCESS) {
        return std::cerr << "scan: " << toString(result) << "\n", kServiceError;
    }

    // In process the frontend is the service's object: it tells when its scan thread is done.
    const Frontend* service = static_cast<const Frontend*>(frontend.get());
    ScanReport report;
    report.json = global.json;
    bool stopped = false;
    while (true) {
        if (interrupted() && !stopped) {
            frontend->stopScan();
            stopped = true;
        }
        auto message = events->takeScanMessage(std::chrono::milliseconds(100));
        if (message) {
            report.take(message->first, message->second);
        } else if (!service->isScanRunning()) {
            break;
        }
    }
    if (!stopped) frontend->stopScan();

    if (global.json) {
        std::vector<std::string> found;
        for (uint32_t f : report.found) found.push_back(std::to_string(f));
        JsonObject summary;
        summary.addRaw("messages", jsonArray(report.jsonMessages))
                .addRaw("found", jsonArray(found))
                .add("stopped", stopped);
        if (!report.found.empty()) summary.add("leftOn", report.found.back());
        std::cout << summary.str() << "\n";
        return scanOutcome(stopped, report.found.empty());
    }
    report.line(stopped ? "scan stopped" : "scan finished");
    std::cout << "found " << report.found.size() << " locked frequencies\n";
    for (uint32_t f : report.found) std::cout << "  " << f << " Hz\n";
    if (!report.found.empty() && !stopped) {
        std::cout << "tuner left on " << report.found.back() << " Hz\n";
    }
    return scanOutcome(stopped, report.found.empty());
}

}  // namespace tunerctl
