// The service binary as a process of its own, for tests that drive it from other processes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace testing_support {

using namespace std::chrono_literals;
constexpr std::chrono::milliseconds kBound = 10s;  // every wait of these tests ends by then

// Built with a sanitizer: its processes take longer to end and keep more memory.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
constexpr bool kUnderSanitizer = true;
#else
constexpr bool kUnderSanitizer = false;
#endif
#else
constexpr bool kUnderSanitizer = false;
#endif

// Built for a box's architecture and run under qemu-user: slower, and qemu's translated code
// counts in a process's resident memory.
#ifdef TUNER_UNDER_EMULATION
constexpr bool kUnderEmulation = true;
#else
constexpr bool kUnderEmulation = false;
#endif

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds bound = kBound);
// Waits for a child process, killing it if it outlives the bound; its wait status, or -1.
int waitForChild(pid_t pid, std::chrono::milliseconds bound = kBound);
// Starts the service binary with its stderr in `log`; with a descriptor limit if one is given.
pid_t spawnService(const std::string& log, int descriptorLimit = 0,
                   const char* binary = SERVICE_BINARY);

// A program run to its end or killed on the way, its output kept in files.
struct ProgramRun {
    pid_t pid = -1;
    std::string out;  // paths of its stdout and stderr
    std::string err;
};
ProgramRun startProgram(const std::vector<std::string>& argv, const std::string& outputPrefix);
// Its exit status once it ends (-1 if it outlived the bound and was killed).
int finishProgram(const ProgramRun& run, std::chrono::milliseconds bound = kBound);
// Runs body in a child process (a client of its own); the child's exit code is body's.
pid_t forkClient(const std::function<int()>& body);
std::string readFile(const std::string& path);

// What a process holds: its open descriptors (not counting pipes to processes it started) and its
// resident memory.
size_t openDescriptors(pid_t pid);
// What each descriptor is ("3 -> socket:[1234]"), one a line, and the processes it started: for a
// failure's message.
std::string describeDescriptors(pid_t pid);
size_t residentKiB(pid_t pid);

}  // namespace testing_support
