// tunerctl's exit codes, the same for every command (the README and --help list them).
#pragma once

namespace tunerctl {

enum ExitCode : int {
    kSuccess = 0,        // done; a tune or scan locked
    kNoLock = 1,         // the channel did not lock, or a scan found nothing
    kUsageError = 2,     // the command line is wrong, or a value is outside what the frontend has
    kServiceError = 3,   // the service refused a call or answered an error
    kInterrupted = 130,  // stopped by Ctrl-C (128 + SIGINT), as shells report it
};

inline constexpr const char* kExitCodesHelp =
        "Exit codes: 0 success (and lock), 1 no lock or nothing found, 2 usage error, "
        "3 service error, 130 interrupted.";

}  // namespace tunerctl
