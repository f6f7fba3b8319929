// tunerctl as a client process of the tests' service, its output in numbered files of the test's
// own directory. Needs TUNERCTL_BINARY.
#pragma once

#include <sys/wait.h>

#include <string>
#include <vector>

#include "ServiceProcess.h"

namespace testing_support {

class TunerctlRuns {
  public:
    void setDirectory(const std::string& directory) { mDir = directory; }
    ProgramRun start(const std::vector<std::string>& args) {
        std::vector<std::string> argv{TUNERCTL_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        return startProgram(argv, mDir + "/tunerctl-" + std::to_string(++mRuns));
    }
    // A whole run's exit code (-1 for a signal or no end in time); its output in `kept`.
    int run(const std::vector<std::string>& args, ProgramRun* kept = nullptr,
            std::chrono::milliseconds bound = kBound) {
        ProgramRun r = start(args);
        const int status = finishProgram(r, bound);
        if (kept != nullptr) *kept = r;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    std::string mDir;
    int mRuns = 0;
};

}  // namespace testing_support
