#include "ServiceScan.h"

#include <cmath>
#include <cstdio>
#include <iostream>

#include "Commands.h"
#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"
#include "ValueParsing.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

std::string pidList(const std::vector<uint16_t>& pids) {
    std::string text;
    for (uint16_t pid : pids) text += (text.empty() ? "" : " ") + hex4(pid);
    return text;
}

std::string serviceText(const FoundService& s) {
    char kind[8];
    std::snprintf(kind, sizeof kind, "%-5s", s.kind.c_str());
    std::string text = "  " + hex4(s.id) + " " + kind + " \"" + s.name + "\"";
    if (!s.provider.empty()) text += " (" + s.provider + ")";
    text += ", PMT " + hex4(s.pmtPid);
    if (s.pcrPid != 0 && s.pcrPid != 0x1FFF) text += ", PCR " + hex4(s.pcrPid);
    if (!s.videoPids.empty()) text += ", video " + pidList(s.videoPids);
    if (!s.audioPids.empty()) text += ", audio " + pidList(s.audioPids);
    if (!s.otherPids.empty()) text += ", other " + pidList(s.otherPids);
    if (s.scrambled) text += ", scrambled";
    return text;
}

std::string pidsJson(const std::vector<uint16_t>& pids) {
    std::vector<std::string> values;
    for (uint16_t pid : pids) values.push_back(std::to_string(pid));
    return jsonArray(values);
}

std::string serviceJson(const FoundService& s) {
    return JsonObject()
            .add("serviceId", uint32_t{s.id})
            .add("name", s.name)
            .add("provider", s.provider)
            .add("serviceType", uint32_t{s.type})
            .add("kind", s.kind)
            .add("scrambled", s.scrambled)
            .add("pmtPid", uint32_t{s.pmtPid})
            .add("pcrPid", uint32_t{s.pcrPid})
            .addRaw("videoPids", pidsJson(s.videoPids))
            .addRaw("audioPids", pidsJson(s.audioPids))
            .addRaw("otherPids", pidsJson(s.otherPids))
            .str();
}

void report(const ServiceScanJob& job, const ScannedMultiplex& m) {
    if (job.json) {
        std::vector<std::string> services;
        for (const FoundService& s : m.services) services.push_back(serviceJson(s));
        JsonObject line;
        line.add("type", "MULTIPLEX").add("channel", m.label).add("throughNit", m.throughNit);
        line.add("locked", m.locked);
        if (m.locked) {
            line.add("transportStreamId", uint32_t{m.transportStreamId})
                    .add("networkId", uint32_t{m.networkId})
                    .add("network", m.network)
                    .addRaw("services", jsonArray(services))
                    .addRaw("missing", jsonArray(jsonStrings(m.missing)));
        }
        std::cout << line.str() << std::endl;
        return;
    }
    std::string head = "multiplex " + m.label + (m.throughNit ? " (from the NIT)" : "");
    if (!m.locked) {
        std::cout << head << ": no lock" << std::endl;
        return;
    }
    head += ": transport stream " + hex4(m.transportStreamId);
    if (m.networkId != 0 || !m.network.empty()) {
        head += ", network \"" + m.network + "\" (" + hex4(m.networkId) + ")";
    }
    std::cout << head << "\n";
    for (const FoundService& s : m.services) std::cout << serviceText(s) << "\n";
    if (!m.missing.empty()) {
        std::cout << "  not whole in time: " << joined(m.missing, ", ") << "\n";
    }
    std::cout << std::flush;
}

// Tunes quietly (the scan reports the multiplex itself); whether it locked, or the exit code of
// a failure in `code`.
bool tuneQuietly(const ServiceScanJob& job, const ChannelOptions& channel, std::string& label,
                 int& code) {
    FrontendSettings settings;
    std::optional<SatellitePlan> plan;
    std::string error;
    code = kSuccess;
    if (!buildSettings(channel, settings, error, &plan) ||
        !checkAgainstFrontend(job.info, job.frontendId, settings, error)) {
        // A NIT may announce what this frontend cannot tune: that multiplex is left out.
        label = error;
        return false;
    }
    if (plan) {
        code = setUpDish(GlobalOptions{job.json}, job.tuner, job.frontendId, job.frontend, *plan,
                         channel);
        if (code != kSuccess) return false;
    }
    while (job.events->takeEvent(std::chrono::milliseconds(0))) {
    }
    for (const StandardAttempt& attempt : standardAttempts(settings, job.info)) {
        label = channelLabel(attempt.settings);
        const Result r = call("tune", [&] { return job.frontend->tune(attempt.settings); });
        if (r != Result::SUCCESS) {
            code = reportFailure(job.json, kServiceError, "tune: " + toString(r));
            return false;
        }
        const std::optional<FrontendEventType> event = job.events->takeEvent();
        if (event && *event == FrontendEventType::LOCKED) return true;
    }
    return false;
}

bool sameMultiplex(const ChannelOptions& a, const ChannelOptions& b) {
    auto hz = [](const ChannelOptions& o) -> double {
        if (!o.dvbt.empty()) return double(parseFrequencyHz(o.dvbt).value_or(0));
        if (!o.dvbc.empty()) return double(parseFrequencyHz(o.dvbc).value_or(0));
        return double(parseFrequencyKHz(o.dvbs).value_or(0)) * 1000;
    };
    // Within 1 MHz (a cable sweep's lock and a NIT's frequency differ by the sweep's step).
    return a.dvbt.empty() == b.dvbt.empty() && a.dvbc.empty() == b.dvbc.empty() &&
           a.polarisation == b.polarisation && std::fabs(hz(a) - hz(b)) < 1e6;
}

}  // namespace

bool channelFromNit(const sc::TransportStreamInfo& ts, FrontendType type,
                    const ChannelOptions& scanned, ChannelOptions& out) {
    out = ChannelOptions{};
    auto bandwidth = [](uint32_t hz) {
        char text[16];
        std::snprintf(text, sizeof text, "%gMHz", hz / 1e6);
        return std::string(text);
    };
    if (type == FrontendType::DVBT && ts.terrestrial && ts.terrestrial->centreFrequencyHz > 0) {
        out.dvbt = std::to_string(ts.terrestrial->centreFrequencyHz) + "Hz";
        out.standard = "T";
        if (ts.terrestrial->bandwidthHz != 0)
            out.bandwidth = bandwidth(ts.terrestrial->bandwidthHz);
        return true;
    }
    if (type == FrontendType::DVBT && ts.t2 && !ts.t2->centreFrequenciesHz.empty()) {
        out.dvbt = std::to_string(ts.t2->centreFrequenciesHz.front()) + "Hz";
        out.standard = "T2";
        out.plp = std::to_string(ts.t2->plpId);
        if (ts.t2->bandwidthHz != 0) out.bandwidth = bandwidth(ts.t2->bandwidthHz);
        return true;
    }
    if (type == FrontendType::DVBC && ts.cable && ts.cable->frequencyHz > 0) {
        out.dvbc = std::to_string(ts.cable->frequencyHz) + "Hz";
        out.symbolRate = std::to_string(ts.cable->symbolRate);
        out.modulation = ts.cable->modulation;
        out.annex = "A";
        return true;
    }
    if (type == FrontendType::DVBS && ts.satellite && ts.satellite->frequencyKHz > 0 &&
        !scanned.lnb.empty()) {
        // Only through a dish: the descriptor gives the downlink, which the LNB turns into IF.
        out.dvbs = std::to_string(ts.satellite->frequencyKHz) + "kHz";
        out.symbolRate = std::to_string(ts.satellite->symbolRate);
        out.standard = ts.satellite->modulationSystem == "DVB-S" ? "S" : "S2";
        out.polarisation = ts.satellite->polarisation;
        out.lnb = scanned.lnb;
        out.satellite = scanned.satellite;
        out.lnbId = scanned.lnbId;
        return true;
    }
    return false;
}

int scanServices(const ServiceScanJob& job, const std::vector<ChannelOptions>& found,
                 std::vector<ScannedMultiplex>& out) {
    std::vector<std::pair<ChannelOptions, bool>> pending;  // channel, through the NIT
    for (const ChannelOptions& c : found) pending.emplace_back(c, false);
    std::vector<ChannelOptions> visited;
    std::string error;
    std::unique_ptr<DemuxSession> session = DemuxSession::open(job.tuner, error);
    if (!session) return reportFailure(job.json, kServiceError, error);
    if (!session->bindFrontend(job.frontendId, error)) {
        return reportFailure(job.json, kServiceError, error);
    }
    const bool terrestrial = job.info.type == FrontendType::DVBT;
    for (size_t next = 0; next < pending.size() && !interrupted(); ++next) {
        const auto [channel, throughNit] = pending[next];
        bool seen = false;
        for (const ChannelOptions& v : visited) seen = seen || sameMultiplex(v, channel);
        if (seen) continue;
        visited.push_back(channel);

        ScannedMultiplex m;
        m.channel = channel;
        m.throughNit = throughNit;
        int code = kSuccess;
        m.locked = tuneQuietly(job, channel, m.label, code);
        if (code != kSuccess) return code;
        if (m.locked) {
            MultiplexTables read = readMultiplexTables(session->demux(), timeoutsFor(terrestrial),
                                                       true, interrupted, error);
            if (!error.empty()) return reportFailure(job.json, kServiceError, error);
            m.missing = read.missing;
            m.services = servicesOf(read.tables);
            if (read.tables.pat) m.transportStreamId = read.tables.pat->transportStreamId;
            if (read.tables.nitActual) {
                m.networkId = read.tables.nitActual->networkId;
                m.network = read.tables.nitActual->name;
                for (const auto& [tsid, ts] : read.tables.nitActual->transportStreams) {
                    ChannelOptions announced;
                    if (job.followNit && channelFromNit(ts, job.info.type, channel, announced)) {
                        pending.emplace_back(announced, true);
                    }
                }
            }
        }
        report(job, m);
        out.push_back(std::move(m));
    }
    call("stopTune", [&] { return job.frontend->stopTune(); });
    return kSuccess;
}

}  // namespace tunerctl
