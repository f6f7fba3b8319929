#include "ServiceProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace testing_support {

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

int waitForChild(pid_t pid, std::chrono::milliseconds bound) {
    int status = 0;
    if (!eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, bound)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return status;
}

pid_t spawnService(const std::string& log, int descriptorLimit, const char* binary) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) dup2(fd, STDERR_FILENO);
    // What a sanitizer keeps of freed memory would hide whether the service gives memory back
    // (with or without options of the caller's: ctest run outside its preset sets none).
    const char* asan = getenv("ASAN_OPTIONS");
    const std::string options = asan != nullptr && *asan != '\0' ? std::string(asan) + ":" : "";
    setenv("ASAN_OPTIONS", (options + "quarantine_size_mb=0").c_str(), 1);
    if (descriptorLimit > 0) {
        rlimit limit{rlim_t(descriptorLimit), rlim_t(descriptorLimit)};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    execl(binary, binary, static_cast<char*>(nullptr));
    _exit(127);
}

ProgramRun startProgram(const std::vector<std::string>& argv, const std::string& outputPrefix) {
    ProgramRun run;
    run.out = outputPrefix + ".out";
    run.err = outputPrefix + ".err";
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    run.pid = fork();
    if (run.pid == 0) {
        const int out = open(run.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const int err = open(run.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    return run;
}

int finishProgram(const ProgramRun& run, std::chrono::milliseconds bound) {
    return waitForChild(run.pid, bound);
}

pid_t forkClient(const std::function<int()>& body) {
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    return pid;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

namespace {

// Each open descriptor of a process and what it is ("socket:[1234]").
std::map<std::string, std::string> descriptorTargets(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/fd/";
    std::map<std::string, std::string> targets;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            char target[256] = {};
            const ssize_t n = readlink((folder + entry->d_name).c_str(), target, sizeof(target) - 1);
            targets[entry->d_name] = n > 0 ? target : "?";
        }
        closedir(dir);
    }
    return targets;
}

// The processes a process started, by their pid.
std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    if (DIR* dir = opendir("/proc")) {
        while (dirent* entry = readdir(dir)) {
            const pid_t pid = pid_t(atoi(entry->d_name));
            if (pid <= 0) continue;
            // "pid (name) state ppid ...": the name may hold spaces and parentheses.
            const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
            const size_t close = stat.rfind(')');
            if (close == std::string::npos) continue;
            std::istringstream rest(stat.substr(close + 1));
            std::string state;
            pid_t ppid = 0;
            if (rest >> state >> ppid && ppid == parent) children.push_back(pid);
        }
        closedir(dir);
    }
    return children;
}

// The pipes a process shares with processes it started. The service starts none itself; a
// sanitizer's runtime starts its symbolizer the first time it must name a stack (a suppressed
// report too) and talks to it over two pipes it keeps: those are no peer's doing.
std::set<std::string> pipesToChildren(pid_t pid) {
    std::set<std::string> shared;
    for (pid_t child : childrenOf(pid)) {
        for (const auto& entry : descriptorTargets(child)) {
            if (entry.second.rfind("pipe:", 0) == 0) shared.insert(entry.second);
        }
    }
    return shared;
}

}  // namespace

size_t openDescriptors(pid_t pid) {
    const std::set<std::string> helpers = pipesToChildren(pid);
    size_t count = 0;
    for (const auto& entry : descriptorTargets(pid)) count += helpers.count(entry.second) == 0;
    return count;
}

std::string describeDescriptors(pid_t pid) {
    std::string text;
    for (const auto& entry : descriptorTargets(pid)) {
        text += entry.first + " -> " + entry.second + "\n";
    }
    for (pid_t child : childrenOf(pid)) {
        std::string command = readFile("/proc/" + std::to_string(child) + "/cmdline");
        for (char& c : command) c = c == '\0' ? ' ' : c;
        text += "child " + std::to_string(child) + ": " + command + "\n";
    }
    return text;
}

size_t residentKiB(pid_t pid) {
    std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stoul(line.substr(6));
    }
    return 0;
}

}  // namespace testing_support
