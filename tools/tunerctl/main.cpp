// tunerctl: a command-line client of the tuner service process (or, with --in-process, of a
// private service in its own process on the simulated driver).
#include <android/log.h>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "ExitCodes.h"
#include "Output.h"
#include "Satellite.h"
#include "ServiceCalls.h"
#include "ServiceLog.h"
#include "TunerClient.h"
#include "ValueParsing.h"
#include "World.h"

namespace {

const std::vector<std::string> kBandwidths = {"8MHz",  "7MHz",   "6MHz", "5MHz",
                                              "10MHz", "1.7MHz", "auto"};
const std::vector<std::string> kStandards = {"T", "T2", "S", "S2", "S2X", "AUTO"};
const std::vector<std::string> kModulations = {"16QAM",  "32QAM",  "64QAM",
                                               "128QAM", "256QAM", "AUTO"};
const std::vector<std::string> kAnnexes = {"A", "B", "C"};
// The driver has two LNB supply modes: 13 V (vertical) and 18 V (horizontal), each also asked
// for by the raised voltage that makes up for a long cable.
const std::vector<std::string> kVoltages = {"13V", "14V", "18V", "19V", "off"};

CLI::Option* oneOf(CLI::Option* option, const std::vector<std::string>& values) {
    return option->check(CLI::IsMember(values, CLI::ignore_case));
}

void addChannelOptions(CLI::App* command, tunerctl::ChannelOptions& c) {
    command->add_option("--dvbt", c.dvbt, "DVB-T/T2 centre frequency with its unit, e.g. 474MHz");
    command->add_option("--dvbc", c.dvbc, "DVB-C centre frequency with its unit, e.g. 306MHz");
    command->add_option("--dvbs", c.dvbs,
                        "DVB-S/S2 frequency at the LNB output with its unit, e.g. 1210MHz");
    oneOf(command->add_option("--bandwidth", c.bandwidth, "DVB-T channel bandwidth (default 8MHz)"),
          kBandwidths);
    oneOf(command->add_option("--standard", c.standard,
                              "DVB-T: T (default), T2, AUTO; DVB-S: S, S2 (default), S2X, AUTO"),
          kStandards);
    command->add_option("--symbol-rate", c.symbolRate,
                        "symbols per second, e.g. 6900000, 6.9M, 6875k (DVB-C: required, but a "
                        "scan defaults to 6875k; DVB-S default 27.5M)");
    oneOf(command->add_option("--modulation", c.modulation, "DVB-C QAM (default 256QAM)"),
          kModulations);
    oneOf(command->add_option("--annex", c.annex, "DVB-C annex (default A)"), kAnnexes);
    command->add_option("--plp,--stream-id", c.plp,
                        "DVB-T2: the PLP, 0..255; DVB-S2: the input stream (a channel file's "
                        "STREAM_ID). This frontend picks the PLP itself: tunerctl says so when it "
                        "uses another");
    oneOf(command->add_option("--lnb", c.lnb,
                              "DVB-S: the LNB type (libdvbv5's table); --dvbs is then the "
                              "downlink frequency"),
          tunerctl::lnbNames());
    oneOf(command->add_option("--polarisation", c.polarisation,
                              "with --lnb: V or R (13 V), H or L (18 V)"),
          {"V", "H", "R", "L"});
    oneOf(command->add_option("--sat", c.satellite,
                              "with --lnb: the DiSEqC 1.0 switch input 0..3 (A..D), sent as a "
                              "committed-switch command and a tone burst"),
          {"0", "1", "2", "3"});
    command->add_option("--lnb-id", c.lnbId,
                        "with --lnb: the LNB in front of the frontend (default: the n-th "
                        "satellite frontend sits behind LNB n, modulo their number)");
}

void addChannelFileOptions(CLI::App* command, tunerctl::TuneOptions& t) {
    command->add_option("--channel", t.channelName, "a channel by its name in the channel file");
    command->add_option("-c,--channels", t.channelFile, "the channel file (with --channel)")
            ->check(CLI::ExistingFile);
    oneOf(command->add_option("--format", t.channelFormat,
                              "the channel file's format: dvbv5 (default) or zap"),
          {"dvbv5", "zap"});
}

bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--json") return true;
    }
    return false;
}

// Everything the command line says, filled in by the parser.
struct CommandLine {
    tunerctl::GlobalOptions global;
    int verbosity = 0;
    bool quiet = false;
    std::string timeout = "10s";
    bool inProcess = false;
    uint32_t infoId = 0;
    tunerctl::LnbOptions lnb;
    tunerctl::TuneOptions tune;
    tunerctl::TuneOptions status;
    bool watch = false;
    bool stream = false;
    tunerctl::TuneOptions demux;
    tunerctl::ScanOptions scan;
    tunerctl::RecordOptions record;
    tunerctl::PlayOptions play;
    tunerctl::SectionsOptions sections;
    tunerctl::EpgOptions epg;
    tunerctl::WorldOptions world;
};

void addGlobalOptions(CLI::App& app, CommandLine& c) {
    app.footer(tunerctl::kExitCodesHelp);
    app.set_version_flag("--version", "tunerctl 2.0 (android.hardware.tv.tuner@1.0)");
    // Global flags are accepted anywhere on the line, also after the subcommand.
    app.fallthrough();
    app.add_flag("--json", c.global.json, "machine-readable output");
    app.add_flag("-v,--verbose", c.verbosity,
                 "-v shows the service's informational log, -vv its debug log too");
    app.add_flag("-q,--quiet", c.quiet, "show no service log, not even warnings");
    app.add_option("--timeout", c.timeout,
                   "how long to wait for any one answer of the service before giving up with "
                   "exit code 3, e.g. 10s (the default), 500ms, 2m");
    app.add_flag("--in-process", c.inProcess,
                 "run a private service in this process instead of using the running one "
                 "(also TUNERCTL_IN_PROCESS=1)");
}

void addLnbCommand(CLI::App& app, tunerctl::LnbOptions& lnb) {
    CLI::App* command = app.add_subcommand("lnb", "drive an LNB and show what the driver got");
    command->add_option("id", lnb.id)->required();
    oneOf(command->add_option("--voltage", lnb.voltage, "LNB supply"), kVoltages);
    oneOf(command->add_option("--tone", lnb.tone, "22 kHz tone"), {"on", "off"});
    oneOf(command->add_option("--position", lnb.position, "tone burst"), {"A", "B"});
    command->add_option("--diseqc", lnb.diseqc, "DiSEqC bytes, 1 to 6, e.g. \"E0 10 38 F0\"");
}

void addSignalCommands(CLI::App& app, CommandLine& c) {
    CLI::App* tune = app.add_subcommand("tune", "tune a channel and show its signal");
    tune->add_option("id", c.tune.id)->required();
    addChannelOptions(tune, c.tune.channel);
    addChannelFileOptions(tune, c.tune);

    CLI::App* status = app.add_subcommand("status", "show a frontend's signal");
    status->add_option("id", c.status.id)->required();
    status->add_flag("--watch", c.watch, "refresh once a second until Ctrl-C");
    status->add_flag("--stream", c.stream,
                     "also read the stream through a demux: bit rate, per-PID rates and the "
                     "TR 101 290 counts (over a second, or at each sample of --watch)");
    addChannelOptions(status, c.status.channel);
    addChannelFileOptions(status, c.status);

    CLI::App* demux =
            app.add_subcommand("demux", "bind a demux to a frontend and follow its input");
    demux->add_option("--frontend", c.demux.id, "frontend id (default 0)");
    addChannelOptions(demux, c.demux.channel);
}

// The commands that take what comes after a lock: each tunes (a frequency or a channel file's
// channel) with a demux of its own bound to the frontend.
void addTunedDataOptions(CLI::App* command, tunerctl::TuneOptions& t) {
    command->add_option("id", t.id, "frontend id")->required();
    addChannelOptions(command, t.channel);
    addChannelFileOptions(command, t);
}

void addDataCommands(CLI::App& app, CommandLine& c) {
    CLI::App* record = app.add_subcommand(
            "record", "record a multiplex, or one service with a PAT of its own, to a .ts file");
    addTunedDataOptions(record, c.record.tune);
    record->add_option("-o,--output", c.record.output, "the .ts file")->required();
    record->add_option("-t,--duration", c.record.duration,
                       "how long, e.g. 30s, 2m (default: until Ctrl-C)");
    record->add_option("--service", c.record.service,
                       "the service id (default: the channel file's, else the whole multiplex)");

    CLI::App* play = app.add_subcommand(
            "play", "send a .ts file through a playback DVR and show what the demux saw");
    play->add_option("file", c.play.file, "the .ts file")->required()->check(CLI::ExistingFile);
    play->add_flag("--fast", c.play.fast,
                   "as fast as the DVR takes it (default: at the pace of the file's PCR)");

    CLI::App* sections = app.add_subcommand(
            "sections",
            "decode PAT, PMT, SDT, NIT, EIT p/f and TDT/TOT, or one PID's table as hex");
    sections->add_option("id", c.sections.tune.id, "frontend id (not with --play)");
    addChannelOptions(sections, c.sections.tune.channel);
    addChannelFileOptions(sections, c.sections.tune);
    sections->add_option("--play", c.sections.play, "read a .ts file played through a DVR instead")
            ->check(CLI::ExistingFile);
    sections->add_option("--pid", c.sections.pid, "with --table: one PID, e.g. 0x12");
    sections->add_option("--table", c.sections.table, "with --pid: its table id, e.g. 0x4E");
    sections->add_flag("-f,--follow", c.sections.follow,
                       "go on until Ctrl-C: every section (with --pid), or the tables again "
                       "whenever a version changes");

    CLI::App* epg = app.add_subcommand("epg", "show now and next of a service from its EIT p/f");
    addTunedDataOptions(epg, c.epg.tune);
    epg->add_option("--service", c.epg.service,
                    "the service id (default: the channel file's channel)");
}

void addScanCommand(CLI::App& app, tunerctl::ScanOptions& scan) {
    CLI::App* command = app.add_subcommand("scan", "scan for channels");
    command->add_option("id", scan.id)->required();
    command->add_flag("--blind", scan.blind, "blind scan");
    command->add_option("-o,--output", scan.output,
                        "write what the scan finds to a dvbv5 channel file: a channel per "
                        "service, with its service id and PIDs");
    command->add_flag("!--no-services", scan.services,
                      "only find the multiplexes: read no tables and list no services");
    command->add_flag("!-F,--given-only", scan.followNit,
                      "list the services of the multiplexes found here only, without scanning "
                      "those the NIT announces (dvbv5-scan's -F)");
    addChannelOptions(command, scan.channel);
}

void addWorldCommand(CLI::App& app, tunerctl::WorldOptions& world) {
    CLI::App* command = app.add_subcommand(
            "world", "show the simulated world, or change it: 'world transmitter 474MHz off'");
    command->add_option("change", world.change,
                        "a change: transmitter FREQ off|on|level DBUV|cn DB [over DURATION]|ber "
                        "VALUE; connect|disconnect cable|antenna|dish; fail FUNCTION RESULT "
                        "[first N|every N]; heal FUNCTION");
    command->add_flag("--watch", world.watch, "show it once a second until Ctrl-C");
}

void addCommands(CLI::App& app, CommandLine& c) {
    app.add_subcommand("dump", "print the service's state (what lshal debug shows)");
    app.add_subcommand("frontends", "list the frontends and their capabilities");
    app.add_subcommand("info", "show one frontend")->add_option("id", c.infoId)->required();
    app.add_subcommand("lnbs", "list the LNBs");
    addLnbCommand(app, c.lnb);
    addSignalCommands(app, c);
    addScanCommand(app, c.scan);
    addDataCommands(app, c);
    addWorldCommand(app, c.world);
}

// The service's log as -v, -vv and -q ask; the call time-out; the service to use.
int configure(const CommandLine& c) {
    const int priority = c.quiet            ? ANDROID_LOG_SILENT
                         : c.verbosity >= 2 ? ANDROID_LOG_DEBUG
                         : c.verbosity == 1 ? ANDROID_LOG_INFO
                                            : ANDROID_LOG_WARN;
    // An in-process service logs here; the running one's records are fetched after the command.
    __android_log_set_minimum_priority(priority);
    tunerctl::setServiceLogPriority(c.quiet ? 0 : priority);
    const std::optional<std::chrono::milliseconds> timeout = tunerctl::parseDuration(c.timeout);
    if (!timeout || timeout->count() <= 0) {
        return tunerctl::reportFailure(c.global.json, tunerctl::kUsageError,
                                       "invalid --timeout '" + c.timeout +
                                               "': a duration with its unit, e.g. 10s or 500ms");
    }
    tunerctl::setCallTimeout(*timeout);
    tunerctl::configureClient(c.inProcess, c.global.json);
    return tunerctl::kSuccess;
}

int run(const CLI::App& app, const CommandLine& c) {
    using namespace tunerctl;
    if (app.got_subcommand("dump")) return runDump(c.global);
    if (app.got_subcommand("frontends")) return runFrontends(c.global);
    if (app.got_subcommand("info")) return runInfo(c.global, c.infoId);
    if (app.got_subcommand("lnbs")) return runLnbs(c.global);
    if (app.got_subcommand("lnb")) return runLnb(c.global, c.lnb);
    if (app.got_subcommand("tune")) return runTune(c.global, c.tune);
    if (app.got_subcommand("status")) return runStatus(c.global, c.status, c.watch, c.stream);
    if (app.got_subcommand("demux")) return runDemux(c.global, c.demux);
    if (app.got_subcommand("scan")) return runScan(c.global, c.scan);
    if (app.got_subcommand("record")) return runRecord(c.global, c.record);
    if (app.got_subcommand("play")) return runPlay(c.global, c.play);
    if (app.got_subcommand("sections")) return runSections(c.global, c.sections);
    if (app.got_subcommand("epg")) return runEpg(c.global, c.epg);
    if (app.got_subcommand("world")) return runWorld(c.global, c.world);
    return runOverview(c.global);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"tunerctl: talk to the TV tuner service on the simulated driver"};
    CommandLine commandLine;
    addGlobalOptions(app, commandLine);
    addCommands(app, commandLine);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version are answers, every other parse error a usage error; a script that
        // asked for JSON gets its error as JSON.
        if (e.get_exit_code() != 0 && wantsJson(argc, argv)) {
            return tunerctl::reportFailure(true, tunerctl::kUsageError, e.what());
        }
        const int code = app.exit(e);
        return code == 0 ? tunerctl::kSuccess : tunerctl::kUsageError;
    }
    const int configured = configure(commandLine);
    if (configured != tunerctl::kSuccess) return configured;
    const int code = run(app, commandLine);
    tunerctl::showServiceLog();
    return code;
}
