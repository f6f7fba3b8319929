// tuner-replay: runs a recorded session against this build of the service and says whether it
// did the same.
#include <log/log.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "recorder/ServiceRecording.h"
#include "replay/Replay.h"
#include "simulator/SimulatedDriver.h"
#include "tuner/Tuner.h"

namespace {

constexpr const char* kUsage =
        "usage: tuner-replay [--continue] TRACE\n"
        "Runs the session TRACE holds against this service, the driver answering from the trace,\n"
        "and compares every driver call, return and callback with the trace's.\n"
        "  --continue  go on past a divergence (the simulator answers calls the trace lacks)\n"
        "              and list every one\n"
        "  -v          show the service's log (warnings and errors only otherwise)\n"
        "Exit codes: 0 identical, 1 diverged, 2 a bad trace or usage.\n";

// Ends the process at once: a service that diverged may have threads stuck in calls the trace
// will never answer.
[[noreturn]] void finish(int code) {
    fflush(stdout);
    fflush(stderr);
    _exit(code);
}

void printDivergence(const std::string& trace, const mox::trace::Divergence& d) {
    printf("%s:%d: diverged: expected %s, came %s\n", trace.c_str(), d.line, d.expected.c_str(),
           d.came.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    bool keepGoing = false;
    std::string path;
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--continue") == 0) {
            keepGoing = true;
        } else if (strcmp(argv[i], "-v") == 0) {
            __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
        } else if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
            fputs(kUsage, stdout);
            return 0;
        } else if (argv[i][0] == '-' || !path.empty()) {
            fputs(kUsage, stderr);
            return 2;
        } else {
            path = argv[i];
        }
    }
    if (path.empty()) {
        fputs(kUsage, stderr);
        return 2;
    }

    static mox::trace::Trace trace;  // outlives the service's threads at the exit below
    std::string error;
    if (!mox::trace::readTrace(path, trace, error)) {
        fprintf(stderr, "%s\n", error.c_str());
        return 2;
    }
    if (!trace.ended) {
        fprintf(stderr,
                "%s: the trace has no end record (the box did not stop the service); "
                "replaying what it holds\n",
                path.c_str());
    }

    static mox::trace::Replay replay(trace, keepGoing);
    mox::trace::setActiveSink(&replay);
    mox::trace::setActiveReplay(&replay);
    mox::sim::simulator().setClock([] { return replay.nowUs(); });
    // The service as its process has it, clients reaching it through the recording wrapper.
    static android::sp<android::hardware::tv::tuner::V1_0::ITuner> tuner = mox::trace::recordedTuner(
            new android::hardware::tv::tuner::V1_0::implementation::Tuner());

    const bool identical = replay.run();
    if (identical) {
        printf("identical: %s\n", replay.counts().c_str());
        finish(0);
    }
    const auto divergences = replay.divergences();
    if (!keepGoing) {
        printDivergence(path, divergences.front());
        finish(1);
    }
    for (const auto& d : divergences) printDivergence(path, d);
    printf("%zu divergences; %s\n", divergences.size(), replay.counts().c_str());
    finish(1);
}
