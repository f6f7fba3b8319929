// tunerctl: a command-line client of the tuner service, running it in process on the simulated
// driver.
#include <android/log.h>

#include <CLI/CLI.hpp>

#include "Commands.h"

namespace {

void addChannelOptions(CLI::App* command, tunerctl::ChannelOptions& c) {
    command->add_option("--dvbt", c.dvbt, "DVB-T/T2 centre frequency, e.g. 474MHz");
    command->add_option("--dvbc", c.dvbc, "DVB-C centre frequency, e.g. 306MHz");
    command->add_option("--dvbs", c.dvbs, "DVB-S/S2 frequency at the LNB output, e.g. 1210MHz");
    command->add_option("--bandwidth", c.bandwidth, "DVB-T channel bandwidth (8MHz, 7MHz, ...)");
    command->add_option("--standard", c.standard, "T, T2, AUTO (DVB-T); S, S2, AUTO (DVB-S)");
    command->add_option("--symbol-rate", c.symbolRate, "symbols per second (DVB-C, DVB-S)");
    command->add_option("--modulation", c.modulation, "DVB-C QAM: 16QAM .. 256QAM, AUTO");
    command->add_option("--annex", c.annex, "DVB-C annex: A, B, C");
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"tunerctl: talk to the TV tuner service on the simulated driver"};
    tunerctl::GlobalOptions global;
    bool verbose = false;
    app.add_flag("--json", global.json, "machine-readable output");
    app.add_flag("-v,--verbose", verbose, "show the service's debug log");

    app.add_subcommand("frontends", "list the frontends and their capabilities");
    uint32_t infoId = 0;
    app.add_subcommand("info", "show one frontend")->add_option("id", infoId)->required();
    app.add_subcommand("lnbs", "list the LNBs");

    tunerctl::LnbOptions lnb;
    CLI::App* lnbCommand = app.add_subcommand("lnb", "drive an LNB and show what the driver got");
    lnbCommand->add_option("id", lnb.id)->required();
    lnbCommand->add_option("--voltage", lnb.voltage, "NONE, 13V, 18V, ...");
    lnbCommand->add_option("--tone", lnb.tone, "22 kHz tone: on, off");
    lnbCommand->add_option("--position", lnb.position, "tone burst: A, B");
    lnbCommand->add_option("--diseqc", lnb.diseqc, "DiSEqC bytes, e.g. \"E0 10 38 F0\"");

    tunerctl::TuneOptions tune;
    CLI::App* tuneCommand = app.add_subcommand("tune", "tune a channel and show its signal");
    tuneCommand->add_option("id", tune.id)->required();
    addChannelOptions(tuneCommand, tune.channel);

    tunerctl::TuneOptions status;
    bool watch = false;
    CLI::App* statusCommand = app.add_subcommand("status", "show a frontend's signal");
    statusCommand->add_option("id", status.id)->required();
    statusCommand->add_flag("--watch", watch, "refresh once a second until Ctrl-C");
    addChannelOptions(statusCommand, status.channel);

    tunerctl::TuneOptions demux;
    CLI::App* demuxCommand =
            app.add_subcommand("demux", "bind a demux to a frontend and follow its input");
    demuxCommand->add_option("--frontend", demux.id, "frontend id (default 0)");
    addChannelOptions(demuxCommand, demux.channel);

    tunerctl::ScanOptions scan;
    CLI::App* scanCommand = app.add_subcommand("scan", "scan for channels");
    scanCommand->add_option("id", scan.id)->required();
    scanCommand->add_flag("--blind", scan.blind, "blind scan");
    addChannelOptions(scanCommand, scan.channel);

    app.fallthrough();
    CLI11_PARSE(app, argc, argv);
    __android_log_set_minimum_priority(verbose ? ANDROID_LOG_DEBUG : ANDROID_LOG_WARN);

    if (app.got_subcommand("frontends")) return tunerctl::runFrontends(global);
    if (app.got_subcommand("info")) return tunerctl::runInfo(global, infoId);
    if (app.got_subcommand("lnbs")) return tunerctl::runLnbs(global);
    if (app.got_subcommand("lnb")) return tunerctl::runLnb(global, lnb);
    if (app.got_subcommand("tune")) return tunerctl::runTune(global, tune);
    if (app.got_subcommand("status")) return tunerctl::runStatus(global, status, watch);
    if (app.got_subcommand("demux")) return tunerctl::runDemux(global, demux);
    if (app.got_subcommand("scan")) return tunerctl::runScan(global, scan);
    return tunerctl::runOverview(global);
}
