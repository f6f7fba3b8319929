// record, play, sections and epg: what comes after a lock, through a demux of this client.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <thread>

#include "ChannelFile.h"
#include "Commands.h"
#include "DataPath.h"
#include "ExitCodes.h"
#include "FrontendEvents.h"
#include "MultiplexTables.h"
#include "Output.h"
#include "PlayedFile.h"
#include "ServiceCalls.h"
#include "ServicePat.h"
#include "StatusFields.h"
#include "StreamHealth.h"
#include "TunerClient.h"
#include "ValueParsing.h"
#include "streamcheck/DvbTime.h"
#include "streamcheck/StreamChecker.h"
#include "streamcheck/TableStore.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint16_t kSdtPid = 0x0011;
constexpr uint16_t kEitPid = 0x0012;
constexpr uint8_t kEitPresentFollowingActual = 0x4E;
// A progress line is redrawn this often.
constexpr auto kProgressEvery = std::chrono::milliseconds(500);
// A recording that gets no packet for this long reports the gap as lost stream.
constexpr auto kGap = std::chrono::milliseconds(300);

// A frontend tuned by this client with a demux bound to it.
struct Tuned {
    sp<ITuner> tuner;
    sp<IFrontend> frontend;
    sp<FrontendEvents> events = new FrontendEvents();
    std::unique_ptr<DemuxSession> session;
    FoundChannel service;  // the channel file's entry, when a channel was named
    int code = kSuccess;

    ~Tuned() {
        session.reset();
        if (frontend != nullptr && !serviceDied()) {
            call("stopTune", [&] { return frontend->stopTune(); });
        }
    }
};

void tuneForData(const GlobalOptions& global, const TuneOptions& options, Tuned& t) {
    t.tuner = connectTuner();
    std::string error;
    t.frontend = openFrontend(t.tuner, options.id, error);
    if (t.frontend == nullptr) {
        t.code = reportFailure(global.json, kUsageError, error);
        return;
    }
    ChannelOptions channel = options.channel;
    if (!options.channelName.empty() || !options.channelFile.empty()) {
        t.code = channelFromFile(global, t.tuner, options, channel, &t.service);
        if (t.code != kSuccess) return;
    }
    if (channel.dvbt.empty() && channel.dvbc.empty() && channel.dvbs.empty()) {
        t.code = reportFailure(global.json, kUsageError,
                               "name the channel with --dvbt, --dvbc, --dvbs or --channel");
        return;
    }
    t.session = DemuxSession::open(t.tuner, error);
    if (!t.session || !t.session->bindFrontend(options.id, error)) {
        t.code = reportFailure(global.json, kServiceError, error);
        return;
    }
    t.code = tuneAndReport(global, t.tuner, options.id, t.frontend, t.events, channel).code;
}

// Whether the frontend's demodulator holds its lock now (nullopt: it does not say).
std::optional<bool> lockedNow(const sp<IFrontend>& frontend) {
    std::optional<bool> locked;
    call("getStatus", [&] {
        return frontend->getStatus({FrontendStatusType::DEMOD_LOCK},
                                   [&](Result r, const hidl_vec<FrontendStatus>& s) {
                                       if (r == Result::SUCCESS) locked = demodLocked(s);
                                   });
    });
    return locked;
}

// The service's PIDs on the tuned multiplex, from its PAT and PMT.
bool findService(const GlobalOptions& global, const sp<IDemux>& demux, uint16_t serviceId,
                 FoundService& found, uint16_t& transportStreamId, int& code) {
    std::string error;
    TableTimeouts timeouts;
    const MultiplexTables read = readMultiplexTables(demux, timeouts, false, interrupted, error);
    if (!error.empty()) {
        code = reportFailure(global.json, kServiceError, error);
        return false;
    }
    std::string known;
    for (const FoundService& s : servicesOf(read.tables)) {
        if (s.id == serviceId) {
            found = s;
            transportStreamId = read.tables.pat ? read.tables.pat->transportStreamId : 0;
            return true;
        }
        known += (known.empty() ? "" : ", ") + hex4(s.id) + " " + s.name;
    }
    code = reportFailure(global.json, kUsageError,
                         "no service " + hex4(serviceId) + " on this multiplex" +
                                 (known.empty() ? " (no PAT came)" : " (it has " + known + ")"));
    return false;
}

// The service asked for: --service, else the channel file's entry; 0 for none (the whole
// multiplex), as 0 is no programme's number.
uint16_t chosenService(const std::optional<uint16_t>& asked, const FoundChannel& fromFile) {
    return asked.value_or(fromFile.serviceId);
}

std::string megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", double(bytes) / 1e6);
    return text;
}

// A recording's running counts, its progress line and its summary.
struct RecordingReport {
    bool json = false;
    bool bar = false;
    std::optional<std::chrono::milliseconds> duration;
    Clock::time_point started = Clock::now();
    Clock::time_point lastData = Clock::now();
    Clock::time_point lastProgress = Clock::now();
    uint64_t bytes = 0;
    double gapSeconds = 0;  // time without packets, beyond the normal pace
    bool lostLock = false;
    double lostLockAt = 0;
    mox::streamcheck::StreamChecker checker;

    double elapsed() const { return std::chrono::duration<double>(Clock::now() - started).count(); }

    void data(const uint8_t* packets, size_t size) {
        idle();
        lastData = Clock::now();
        bytes += size;
        checker.packets(packets, size);
    }
    // A stretch without packets longer than kGap counts as lost stream.
    void idle() {
        const Clock::time_point now = Clock::now();
        if (now - lastData > kGap) {
            gapSeconds += std::chrono::duration<double>(now - lastData).count();
            lastData = now;
        }
    }
    void progress() {
        if (!bar || Clock::now() - lastProgress < kProgressEvery) return;
        lastProgress = Clock::now();
        const mox::streamcheck::StreamReport r = checker.report();
        const double s = elapsed();
        char line[200];
        std::snprintf(line, sizeof line,
                      "\r%s  %.2f Mbit/s  continuity errors %llu  transport errors %llu",
                      megabytes(bytes).c_str(), s > 0 ? double(bytes) * 8 / s / 1e6 : 0.0,
                      static_cast<unsigned long long>(r.first.continuityCountError),
                      static_cast<unsigned long long>(r.second.transportError));
        std::string text = line;
        if (duration) {
            const double left = std::max(0.0, double(duration->count()) / 1000 - s);
            std::snprintf(line, sizeof line, "  %.0f s left", left);
            text += line;
        }
        std::cerr << text << "\x1b[K" << std::flush;
    }
    int summary(const std::string& file, bool stopped, uint64_t overflows) {
        if (bar) std::cerr << "\r\x1b[K" << std::flush;
        idle();
        const mox::streamcheck::StreamReport r = checker.report();
        const double s = elapsed();
        const uint64_t packets = bytes / kTsPacket;
        if (json) {
            JsonObject o;
            o.add("file", file)
                    .add("milliseconds", uint64_t(s * 1000))
                    .add("bytes", bytes)
                    .add("packets", packets)
                    .add("bitRate", uint64_t(s > 0 ? double(bytes) * 8 / s : 0))
                    .add("continuityErrors", r.first.continuityCountError)
                    .add("transportErrors", r.second.transportError)
                    .add("lostMilliseconds", uint64_t(gapSeconds * 1000))
                    .add("lostLock", lostLock)
                    .add("overflows", overflows)
                    .add("stopped", stopped);
            std::cout << o.str() << std::endl;
        } else {
            char line[240];
            std::snprintf(line, sizeof line,
                          "recorded %.1f s to %s: %llu packets, %s, %.2f Mbit/s; continuity "
                          "errors %llu, transport errors %llu",
                          s, file.c_str(), static_cast<unsigned long long>(packets),
                          megabytes(bytes).c_str(), s > 0 ? double(bytes) * 8 / s / 1e6 : 0.0,
                          static_cast<unsigned long long>(r.first.continuityCountError),
                          static_cast<unsigned long long>(r.second.transportError));
            std::cout << line << "\n";
            if (lostLock) {
                std::snprintf(line, sizeof line, "lost lock after %.1f s", lostLockAt);
                std::cout << line << "\n";
            }
            if (gapSeconds > 0) {
                std::snprintf(line, sizeof line, "lost %.1f s of stream: no packets came",
                              gapSeconds);
                std::cout << line << "\n";
            }
            if (overflows > 0) {
                std::cout << "the DVR overflowed " << overflows
                          << " times: packets were dropped before they were read\n";
            }
            if (stopped) std::cout << "stopped by Ctrl-C\n";
            std::cout << std::flush;
        }
        return stopped ? kInterrupted : (packets == 0 ? kNoLock : kSuccess);
    }
};

class OutputFile {
  public:
    explicit OutputFile(const std::string& path)
        : mFd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
    ~OutputFile() {
        if (mFd >= 0) close(mFd);
    }
    bool ok() const { return mFd >= 0; }
    bool write(const uint8_t* data, size_t size) {
        while (size > 0) {
            const ssize_t n = ::write(mFd, data, size);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            data += n;
            size -= static_cast<size_t>(n);
        }
        return true;
    }

  private:
    int mFd;
};

}  // namespace

int runRecord(const GlobalOptions& global, const RecordOptions& options) {
    std::optional<std::chrono::milliseconds> duration;
    if (!options.duration.empty()) {
        duration = parseDuration(options.duration);
        if (!duration) {
            return reportFailure(global.json, kUsageError,
                                 "duration '" + options.duration + "' has no unit: write e.g. 30s");
        }
    }
    Tuned t;
    tuneForData(global, options.tune, t);
    if (t.code != kSuccess) return t.code;
    installInterruptHandler();

    const uint16_t serviceId = chosenService(options.service, t.service);
    std::vector<uint16_t> pids = {kWholeStream};
    std::optional<ServicePat> pat;
    uint16_t pmtPid = 0;
    if (serviceId != 0) {
        FoundService s;
        uint16_t tsid = 0;
        int code = kSuccess;
        if (!findService(global, t.session->demux(), serviceId, s, tsid, code)) return code;
        pmtPid = s.pmtPid;
        pids = {s.pmtPid, kSdtPid};
        if (s.pcrPid != 0x1FFF && s.pcrPid != 0) pids.push_back(s.pcrPid);
        for (const auto* list : {&s.videoPids, &s.audioPids, &s.otherPids}) {
            for (uint16_t pid : *list) {
                if (std::find(pids.begin(), pids.end(), pid) == pids.end()) pids.push_back(pid);
            }
        }
        pat.emplace(tsid, serviceId, s.pmtPid);
    }
    OutputFile out(options.output);
    if (!out.ok()) {
        return reportFailure(global.json, kUsageError,
                             "cannot write " + options.output + ": " + std::strerror(errno));
    }
    std::string error;
    std::unique_ptr<Recorder> recorder = Recorder::start(t.session->demux(), pids, error);
    if (!recorder) return reportFailure(global.json, kServiceError, error);

    RecordingReport report;
    report.json = global.json;
    report.bar = !global.json && isatty(STDERR_FILENO);
    report.duration = duration;
    bool writeFailed = false;
    std::vector<uint8_t> withPat;
    auto take = [&](const uint8_t* data, size_t size) {
        if (!pat) {
            writeFailed = writeFailed || !out.write(data, size);
            report.data(data, size);
            return;
        }
        // Each PMT that starts here is preceded by the service's own PAT.
        withPat.clear();
        for (size_t at = 0; at + kTsPacket <= size; at += kTsPacket) {
            const uint8_t* p = data + at;
            const uint16_t pid = static_cast<uint16_t>((p[1] & 0x1F) << 8 | p[2]);
            if (pid == pmtPid && (p[1] & 0x40) != 0) {
                const auto& patPacket = pat->packet();
                withPat.insert(withPat.end(), patPacket.begin(), patPacket.end());
            }
            withPat.insert(withPat.end(), p, p + kTsPacket);
        }
        writeFailed = writeFailed || !out.write(withPat.data(), withPat.size());
        report.data(withPat.data(), withPat.size());
    };
    Clock::time_point nextLockLook = Clock::now();
    while (!interrupted() && !writeFailed &&
           (!duration || Clock::now() - report.started < *duration)) {
        if (recorder->pump(std::chrono::milliseconds(50), take) == 0) report.idle();
        if (Clock::now() >= nextLockLook) {
            nextLockLook = Clock::now() + kProgressEvery;
            if (!report.lostLock && lockedNow(t.frontend) == false) {
                report.lostLock = true;
                report.lostLockAt = report.elapsed();
            }
        }
        report.progress();
    }
    recorder->stop();
    if (writeFailed) {
        return reportFailure(global.json, kUsageError,
                             "cannot write " + options.output + ": " + std::strerror(errno));
    }
    return report.summary(options.output, interrupted(), recorder->overflows());
}

namespace {

// A stream read whole through a recording DVR into a checker, until `enough` says so or the
// time is up.
void watchStream(Recorder& recorder, mox::streamcheck::StreamChecker& checker,
                 std::chrono::milliseconds limit,
                 const std::function<bool(const mox::streamcheck::StreamReport&)>& enough) {
    const Clock::time_point end = Clock::now() + limit;
    Clock::time_point nextLook = Clock::now();
    while (!interrupted() && Clock::now() < end) {
        recorder.pump(std::chrono::milliseconds(50),
                      [&](const uint8_t* data, size_t size) { checker.packets(data, size); });
        if (Clock::now() >= nextLook) {
            nextLook = Clock::now() + std::chrono::milliseconds(250);
            if (enough(checker.report())) return;
        }
    }
}

std::string timeText(int64_t utc) {
    return mox::streamcheck::formatUtc(utc);
}

std::string eventText(const char* when, const mox::streamcheck::Event& e) {
    std::string text = std::string(when) + "  ";
    if (e.startKnown) {
        text += timeText(e.startUtc) + " +" + std::to_string(e.durationSeconds / 60) + " min  ";
    }
    text += "\"" + e.name + "\"";
    if (!e.text.empty()) text += ": " + e.text;
    return text;
}

std::string eventJson(const mox::streamcheck::Event& e) {
    JsonObject o;
    o.add("eventId", uint32_t{e.id}).add("name", e.name).add("text", e.text);
    if (e.startKnown) {
        o.add("start", timeText(e.startUtc)).add("durationSeconds", e.durationSeconds);
    }
    return o.str();
}

// The decoded tables, one block per table, as a person reads them.
void printTables(const mox::streamcheck::Tables& t) {
    if (t.pat) {
        std::cout << "PAT: transport stream " << hex4(t.pat->transportStreamId) << ", version "
                  << int(t.pat->version) << "\n";
        for (const auto& [program, pid] : t.pat->programs) {
            std::cout << "  program " << hex4(program) << " -> " << (program == 0 ? "NIT " : "PMT ")
                      << hex4(pid) << "\n";
        }
    }
    for (const auto& [program, pmt] : t.pmts) {
        std::cout << "PMT " << hex4(pmt.pid) << ": program " << hex4(program) << ", version "
                  << int(pmt.version) << ", PCR " << hex4(pmt.pcrPid) << "\n";
        for (const auto& es : pmt.streams) {
            char line[80];
            std::snprintf(line, sizeof line, "  stream type 0x%02X on %s", es.type,
                          hex4(es.pid).c_str());
            std::cout << line << (es.language.empty() ? "" : " (" + es.language + ")") << "\n";
        }
    }
    if (t.sdtActual) {
        std::cout << "SDT actual: transport stream " << hex4(t.sdtActual->transportStreamId)
                  << ", original network " << hex4(t.sdtActual->originalNetworkId) << ", version "
                  << int(t.sdtActual->version) << "\n";
        for (const auto& [id, s] : t.sdtActual->services) {
            std::cout << "  service " << hex4(id) << " \"" << s.name << "\" (" << s.provider
                      << "), type " << hex4(s.type) << " " << serviceKind(s.type)
                      << (s.freeCaMode ? ", scrambled" : "") << "\n";
        }
    }
    if (t.nitActual) {
        std::cout << "NIT actual: network " << hex4(t.nitActual->networkId) << " \""
                  << t.nitActual->name << "\", version " << int(t.nitActual->version) << "\n";
        for (const auto& [tsid, ts] : t.nitActual->transportStreams) {
            std::cout << "  transport stream " << hex4(tsid);
            if (ts.terrestrial)
                std::cout << ", DVB-T " << ts.terrestrial->centreFrequencyHz << " Hz";
            if (ts.t2 && !ts.t2->centreFrequenciesHz.empty()) {
                std::cout << ", DVB-T2 " << ts.t2->centreFrequenciesHz.front() << " Hz PLP "
                          << int(ts.t2->plpId);
            }
            if (ts.cable) {
                std::cout << ", DVB-C " << ts.cable->frequencyHz << " Hz " << ts.cable->modulation
                          << " " << ts.cable->symbolRate << " Bd";
            }
            if (ts.satellite) {
                std::cout << ", " << ts.satellite->modulationSystem << " "
                          << ts.satellite->frequencyKHz << " kHz " << ts.satellite->polarisation
                          << " " << ts.satellite->symbolRate << " Bd";
            }
            std::cout << ", " << ts.services.size() << " services\n";
        }
    }
    for (const auto& [id, pf] : t.eitPresentFollowingActual) {
        std::cout << "EIT p/f actual: service " << hex4(id) << ", version " << int(pf.version)
                  << "\n";
        if (pf.present) std::cout << "  " << eventText("now ", *pf.present) << "\n";
        if (pf.following) std::cout << "  " << eventText("next", *pf.following) << "\n";
    }
    if (t.tdtUtc) std::cout << "TDT: " << timeText(*t.tdtUtc) << "\n";
    if (t.totUtc) std::cout << "TOT: " << timeText(*t.totUtc) << "\n";
    std::cout << std::flush;
}

std::string tablesJson(const mox::streamcheck::Tables& t) {
    JsonObject o;
    if (t.pat) {
        std::vector<std::string> programs;
        for (const auto& [program, pid] : t.pat->programs) {
            programs.push_back(
                    JsonObject().add("program", uint32_t{program}).add("pid", uint32_t{pid}).str());
        }
        o.addRaw("pat", JsonObject()
                                .add("transportStreamId", uint32_t{t.pat->transportStreamId})
                                .add("version", uint32_t{t.pat->version})
                                .addRaw("programs", jsonArray(programs))
                                .str());
    }
    std::vector<std::string> pmts;
    for (const auto& [program, pmt] : t.pmts) {
        std::vector<std::string> streams;
        for (const auto& es : pmt.streams) {
            streams.push_back(JsonObject()
                                      .add("streamType", uint32_t{es.type})
                                      .add("pid", uint32_t{es.pid})
                                      .add("language", es.language)
                                      .str());
        }
        pmts.push_back(JsonObject()
                               .add("program", uint32_t{program})
                               .add("pid", uint32_t{pmt.pid})
                               .add("pcrPid", uint32_t{pmt.pcrPid})
                               .addRaw("streams", jsonArray(streams))
                               .str());
    }
    o.addRaw("pmts", jsonArray(pmts));
    if (t.sdtActual) {
        std::vector<std::string> services;
        for (const auto& [id, s] : t.sdtActual->services) {
            services.push_back(JsonObject()
                                       .add("serviceId", uint32_t{id})
                                       .add("name", s.name)
                                       .add("provider", s.provider)
                                       .add("serviceType", uint32_t{s.type})
                                       .add("scrambled", s.freeCaMode)
                                       .str());
        }
        o.addRaw("sdt", JsonObject()
                                .add("transportStreamId", uint32_t{t.sdtActual->transportStreamId})
                                .add("originalNetworkId", uint32_t{t.sdtActual->originalNetworkId})
                                .addRaw("services", jsonArray(services))
                                .str());
    }
    if (t.nitActual) {
        std::vector<std::string> streams;
        for (const auto& [tsid, ts] : t.nitActual->transportStreams) {
            streams.push_back(JsonObject().add("transportStreamId", uint32_t{tsid}).str());
        }
        o.addRaw("nit", JsonObject()
                                .add("networkId", uint32_t{t.nitActual->networkId})
                                .add("name", t.nitActual->name)
                                .addRaw("transportStreams", jsonArray(streams))
                                .str());
    }
    std::vector<std::string> eits;
    for (const auto& [id, pf] : t.eitPresentFollowingActual) {
        JsonObject e;
        e.add("serviceId", uint32_t{id});
        e.addRaw("present", pf.present ? eventJson(*pf.present) : "null");
        e.addRaw("following", pf.following ? eventJson(*pf.following) : "null");
        eits.push_back(e.str());
    }
    o.addRaw("eit", jsonArray(eits));
    if (t.tdtUtc) o.add("tdt", timeText(*t.tdtUtc));
    if (t.totUtc) o.add("tot", timeText(*t.totUtc));
    return o.str();
}

// Every table the stream sends has come: PAT, a PMT per program, SDT, NIT, EIT p/f per service
// the SDT says has one, TDT.
bool allTables(const mox::streamcheck::StreamReport& r) {
    const auto& t = r.tables;
    if (!t.pat || !t.sdtActual || !t.nitActual || !t.tdtUtc) return false;
    for (const auto& [program, pid] : t.pat->programs) {
        if (program != 0 && t.pmts.count(program) == 0) return false;
    }
    for (const auto& [id, s] : t.sdtActual->services) {
        if (s.eitPresentFollowing && t.eitPresentFollowingActual.count(id) == 0) return false;
    }
    return true;
}

std::optional<unsigned> parseHex(const std::string& text, unsigned limit) {
    if (text.empty()) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > limit) return std::nullopt;
    return static_cast<unsigned>(value);
}

void printSectionHex(uint16_t pid, const std::vector<uint8_t>& s, bool json) {
    std::string hex;
    char byte[4];
    for (size_t i = 0; i < s.size(); ++i) {
        std::snprintf(byte, sizeof byte, "%02X", s[i]);
        if (!json && i % 16 == 0)
            hex += i == 0 ? "  " : "\n  ";
        else if (!json)
            hex += " ";
        hex += byte;
    }
    if (json) {
        std::cout << JsonObject()
                             .add("pid", uint32_t{pid})
                             .add("tableId", uint32_t{s.empty() ? 0u : s[0]})
                             .add("length", uint64_t{s.size()})
                             .add("bytes", hex)
                             .str()
                  << std::endl;
        return;
    }
    char head[80];
    std::snprintf(head, sizeof head, "section on PID 0x%04X: table 0x%02X, %zu bytes", pid,
                  s.empty() ? 0 : s[0], s.size());
    std::cout << head << "\n" << hex << std::endl;
}

}  // namespace

int runSections(const GlobalOptions& global, const SectionsOptions& options) {
    std::optional<unsigned> pid;
    std::optional<unsigned> table;
    if (!options.pid.empty() || !options.table.empty()) {
        pid = parseHex(options.pid, 0x1FFF);
        table = parseHex(options.table, 0xFF);
        if (!pid) {
            return reportFailure(global.json, kUsageError,
                                 "PID '" + options.pid + "' is not one of 0..0x1FFF");
        }
        if (!table) {
            return reportFailure(global.json, kUsageError,
                                 "table id '" + options.table + "' is not one of 0..0xFF");
        }
    }
    std::string error;
    Tuned t;
    std::unique_ptr<PlayedFile> played;
    if (!options.play.empty()) {
        if (!looksLikeTransportStream(options.play, error)) {
            return reportFailure(global.json, kUsageError, error);
        }
        t.tuner = connectTuner();
        t.session = DemuxSession::open(t.tuner, error);
        if (!t.session) return reportFailure(global.json, kServiceError, error);
    } else {
        tuneForData(global, options.tune, t);
        if (t.code != kSuccess) return t.code;
    }
    installInterruptHandler();

    if (pid) {
        SectionTaps taps(t.session->demux());
        if (!taps.add(static_cast<uint16_t>(*pid), static_cast<uint8_t>(*table), error)) {
            return reportFailure(global.json, kServiceError, error);
        }
        if (!options.play.empty()) {
            played = PlayedFile::start(t.session->demux(), options.play, false, error);
            if (!played) return reportFailure(global.json, kServiceError, error);
        }
        // Once: the first section, within the longest time a table may take (DVB-T's NIT).
        const Clock::time_point end = Clock::now() + std::chrono::seconds(12);
        bool any = false;
        for (;;) {
            const auto got = taps.next(Clock::now() + std::chrono::milliseconds(100));
            if (got) {
                printSectionHex(got->pid, got->section, global.json);
                any = true;
                if (!options.follow) break;
            }
            if (interrupted()) return kInterrupted;
            if (!options.follow && !got && ((played && played->finished()) || Clock::now() > end)) {
                break;
            }
        }
        if (any) return kSuccess;
        char what[64];
        std::snprintf(what, sizeof what, "no section of table 0x%02X on PID 0x%04X came", *table,
                      *pid);
        return reportFailure(global.json, kNoLock, what);
    }

    std::unique_ptr<Recorder> recorder = Recorder::start(t.session->demux(), {kWholeStream}, error);
    if (!recorder) return reportFailure(global.json, kServiceError, error);
    if (!options.play.empty()) {
        played = PlayedFile::start(t.session->demux(), options.play, false, error);
        if (!played) return reportFailure(global.json, kServiceError, error);
    }
    mox::streamcheck::StreamChecker checker;
    // The NIT may take 10 s (12 s on DVB-T); a played file ends sooner.
    watchStream(*recorder, checker, std::chrono::seconds(13),
                [&](const auto& r) { return allTables(r) || (played && played->finished()); });
    // What the last packets completed.
    recorder->pump(std::chrono::milliseconds(100),
                   [&](const uint8_t* data, size_t size) { checker.packets(data, size); });
    mox::streamcheck::StreamReport report = checker.report();
    if (global.json) {
        std::cout << tablesJson(report.tables) << std::endl;
    } else {
        printTables(report.tables);
    }
    while (options.follow && !interrupted()) {
        // Again whenever a table's version moves on.
        const auto versions = [](const mox::streamcheck::Tables& tables) {
            uint64_t sum = 0;
            if (tables.pat) sum += tables.pat->versionChanges;
            if (tables.sdtActual) sum += tables.sdtActual->versionChanges;
            if (tables.nitActual) sum += tables.nitActual->versionChanges;
            for (const auto& [id, pmt] : tables.pmts) sum += pmt.versionChanges;
            return sum;
        };
        const uint64_t before = versions(report.tables);
        watchStream(*recorder, checker, std::chrono::seconds(1), [](const auto&) { return false; });
        report = checker.report();
        if (versions(report.tables) != before) {
            if (global.json) {
                std::cout << tablesJson(report.tables) << std::endl;
            } else {
                std::cout << "--\n";
                printTables(report.tables);
            }
        }
    }
    if (interrupted()) return kInterrupted;
    return report.tables.pat ? kSuccess : kNoLock;
}

int runPlay(const GlobalOptions& global, const PlayOptions& options) {
    std::string error;
    if (!looksLikeTransportStream(options.file, error)) {
        return reportFailure(global.json, kUsageError, error);
    }
    sp<ITuner> tuner = connectTuner();
    std::unique_ptr<DemuxSession> session = DemuxSession::open(tuner, error);
    if (!session) return reportFailure(global.json, kServiceError, error);
    installInterruptHandler();
    // What the demux makes of the file, read back through a recording of the whole stream.
    std::unique_ptr<Recorder> recorder = Recorder::start(session->demux(), {kWholeStream}, error);
    if (!recorder) return reportFailure(global.json, kServiceError, error);
    std::unique_ptr<PlayedFile> played =
            PlayedFile::start(session->demux(), options.file, options.fast, error);
    if (!played) return reportFailure(global.json, kServiceError, error);
    mox::streamcheck::StreamChecker checker;
    const Clock::time_point started = Clock::now();
    Clock::time_point quietSince = Clock::now();
    while (!interrupted()) {
        if (recorder->pump(std::chrono::milliseconds(50),
                           [&](const uint8_t* d, size_t n) { checker.packets(d, n); }) > 0) {
            quietSince = Clock::now();
        } else if (played->finished() &&
                   Clock::now() - quietSince > std::chrono::milliseconds(200)) {
            break;
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    played->stop();
    const mox::streamcheck::StreamReport report = checker.report();
    if (global.json) {
        std::cout << JsonObject()
                             .add("file", options.file)
                             .add("bytesWritten", played->bytesWritten())
                             .add("finished", played->finished())
                             .addRaw("demuxSaw", streamHealthJson(report, seconds))
                             .str()
                  << std::endl;
    } else {
        std::cout << "played " << options.file << ": " << megabytes(played->bytesWritten())
                  << " into the DVR" << (played->finished() ? "" : " (stopped)") << "\n";
        std::cout << "the demux saw\n" << streamHealthText(report, seconds) << std::flush;
    }
    if (interrupted()) return kInterrupted;
    return played->finished() ? kSuccess : kServiceError;
}

int runEpg(const GlobalOptions& global, const EpgOptions& options) {
    Tuned t;
    tuneForData(global, options.tune, t);
    if (t.code != kSuccess) return t.code;
    installInterruptHandler();
    const uint16_t serviceId = chosenService(options.service, t.service);
    if (serviceId == 0) {
        return reportFailure(global.json, kUsageError,
                             "name the service with --service ID or a channel file's --channel");
    }
    std::string error;
    SectionTaps taps(t.session->demux());
    if (!taps.add(kEitPid, kEitPresentFollowingActual, error)) {
        return reportFailure(global.json, kServiceError, error);
    }
    mox::streamcheck::TableStore store;
    // EIT p/f comes every 2 s at the latest: both sections of the service within twice that.
    const Clock::time_point end = Clock::now() + std::chrono::seconds(4);
    bool present = false;
    bool following = false;
    while (!(present && following) && !interrupted() && Clock::now() < end) {
        const auto got = taps.next(std::min(end, Clock::now() + std::chrono::milliseconds(100)));
        if (!got || got->section.size() < 8) continue;
        const uint16_t sid = static_cast<uint16_t>(got->section[3] << 8 | got->section[4]);
        if (sid != serviceId) continue;
        mox::streamcheck::Section section;
        section.bytes = got->section;
        store.eitPresentFollowingActual(section);
        present = present || got->section[6] == 0;
        following = following || got->section[6] == 1;
    }
    const auto& eits = store.tables().eitPresentFollowingActual;
    const auto pf = eits.find(serviceId);
    if (pf == eits.end()) {
        return reportFailure(
                global.json, kNoLock,
                "no EIT present/following for service " + hex4(serviceId) + " within 4 s");
    }
    if (global.json) {
        std::cout << JsonObject()
                             .add("serviceId", uint32_t{serviceId})
                             .addRaw("present",
                                     pf->second.present ? eventJson(*pf->second.present) : "null")
                             .addRaw("following", pf->second.following
                                                          ? eventJson(*pf->second.following)
                                                          : "null")
                             .str()
                  << std::endl;
    } else {
        std::cout << "service " << hex4(serviceId) << "\n";
        if (pf->second.present) std::cout << eventText("now ", *pf->second.present) << "\n";
        if (pf->second.following) std::cout << eventText("next", *pf->second.following) << "\n";
    }
    return kSuccess;
}

}  // namespace tunerctl
