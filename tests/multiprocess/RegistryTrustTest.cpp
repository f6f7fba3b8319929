// The registry trusts only what it checked: the service refuses a directory it cannot own alone,
// its socket is closed to others whatever the umask, and a client trusts neither a socket served
// by another user nor anything at the socket's path that is no stale socket of the owner.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hidl/transport/Transport.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ServiceProcess.h"

namespace {

using namespace testing_support;
using ::android::hardware::details::serviceDirectory;
using ::android::hardware::details::serviceSocketPath;
using ::android::hardware::tv::tuner::V1_0::ITuner;

constexpr uid_t kStranger = 12345;

// tunerctl run as `uid` (the caller's own when negative) with the environment changed as given
// (a null value unsets it): its exit code (-1 for a signal) and its stderr.
std::pair<int, std::string> tunerctlAs(int uid,
                                       const std::vector<std::pair<const char*, const char*>>& env) {
    int err[2];
    if (pipe(err) != 0) return {-1, ""};
    const pid_t pid = fork();
    if (pid == 0) {
        for (const auto& [name, value] : env) {
            if (value == nullptr) {
                unsetenv(name);
            } else {
                setenv(name, value, 1);
            }
        }
        dup2(err[1], STDERR_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        if (uid >= 0 && (setgid(gid_t(uid)) != 0 || setuid(uid_t(uid)) != 0)) _exit(126);
        execl(TUNERCTL_BINARY, TUNERCTL_BINARY, "frontends", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(err[1]);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(err[0], buffer, sizeof(buffer))) > 0;) text.append(buffer, size_t(n));
    close(err[0]);
    const int status = waitForChild(pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

// The lines a program wrote, less those of the coverage build's runtime: a client run as another
// user cannot write its counts into the build's files and says so ("profiling: ...: Cannot open").
size_t lines(const std::string& text) {
    size_t count = 0;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        if (text.compare(start, 10, "profiling:") != 0) ++count;
    }
    return count;
}

class RegistryTrustTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mBase = getenv("MOX_HIDL_SERVICE_DIR");
        mOriginal = mBase;
        const char* runtime = getenv("XDG_RUNTIME_DIR");
        mHadRuntime = runtime != nullptr;
        if (mHadRuntime) mRuntime = runtime;
    }
    void TearDown() override {
        setenv("MOX_HIDL_SERVICE_DIR", mOriginal.c_str(), 1);
        unsetenv("MOX_HIDL_TRUSTED_UID");
        if (mHadRuntime) {
            setenv("XDG_RUNTIME_DIR", mRuntime.c_str(), 1);
        } else {
            unsetenv("XDG_RUNTIME_DIR");
        }
    }
    bool mHadRuntime = false;
    std::string mRuntime;
    // Runs the service in dir; its wait status once it ended (or was ended after `bound`).
    int serviceIn(const std::string& dir, std::chrono::milliseconds bound, std::string& log) {
        setenv("MOX_HIDL_SERVICE_DIR", dir.c_str(), 1);
        log = mBase + "/trust.log";
        const pid_t pid = spawnService(log);
        int status = 0;
        if (!eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, bound)) {
            kill(pid, SIGTERM);
            waitpid(pid, &status, 0);
        }
        return status;
    }
    std::string mBase;
    std::string mOriginal;
};

TEST_F(RegistryTrustTest, TheServiceRefusesADirectoryItDoesNotOwnAlone) {
    struct Case {
        const char* name;
        std::function<std::string(const std::string&)> make;  // the directory, made in base
        const char* words;
    };
    const Case cases[] = {
            {"open to its group",
             [](const std::string& base) {
                 const std::string dir = base + "/group";
                 mkdir(dir.c_str(), 0700);
                 chmod(dir.c_str(), 0770);
                 return dir;
             },
             "may be written by group or others"},
            {"a symbolic link",
             [](const std::string& base) {
                 const std::string real = base + "/real";
                 mkdir(real.c_str(), 0700);
                 symlink(real.c_str(), (base + "/link").c_str());
                 return base + "/link";
             },
             "is not a directory"},
            {"another user's",
             [](const std::string& base) {
                 const std::string dir = base + "/foreign";
                 mkdir(dir.c_str(), 0700);
                 if (chown(dir.c_str(), kStranger, kStranger) != 0) return std::string();
                 return dir;
             },
             "belongs to uid 12345"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string dir = c.make(mBase);
        if (dir.empty()) {
            ADD_FAILURE() << "could not give a directory to another user (the suite runs as root)";
            continue;
        }
        std::string log;
        const int status = serviceIn(dir, 5s, log);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
        EXPECT_NE(readFile(log).find("refusing to register in " + dir + ": it " + c.words),
                  std::string::npos)
                << readFile(log);
        EXPECT_NE(access(serviceSocketPath(ITuner::descriptor, "default").c_str(), F_OK), 0);
    }
}

TEST_F(RegistryTrustTest, TheSocketIsTheOwnersAloneUnderAnyUmask) {
    const mode_t previous = umask(0);
    setenv("MOX_HIDL_SERVICE_DIR", mBase.c_str(), 1);
    const pid_t pid = spawnService(mBase + "/umask.log");
    umask(previous);
    const std::string socket = serviceSocketPath(ITuner::descriptor, "default");
    ASSERT_TRUE(eventually([&] { return access(socket.c_str(), F_OK) == 0; }));
    struct stat st {};
    ASSERT_EQ(lstat(socket.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    kill(pid, SIGTERM);
    waitForChild(pid);
}

TEST_F(RegistryTrustTest, AClientLeavesAloneWhatIsNoStaleSocketOfTheOwner) {
    const std::string path = serviceSocketPath(ITuner::descriptor, "default");
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "keep", 4), 4);
    close(fd);
    pid_t client = forkClient([] { return ITuner::getService() == nullptr ? 0 : 1; });
    EXPECT_EQ(waitForChild(client), 0);
    EXPECT_EQ(readFile(path), "keep");
}

// A client refused by a dead service's socket removes nothing: a new instance may have renamed its
// own socket into place since the refusal, and removing that one would hide the service for good.
TEST_F(RegistryTrustTest, AClientRefusedByADeadServicesSocketRemovesNothing) {
    const std::string path = serviceSocketPath(ITuner::descriptor, "default");
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    close(dead);  // bound, never listened on: a connect is refused, as at a dead service's
    struct stat before {};
    ASSERT_EQ(lstat(path.c_str(), &before), 0);
    pid_t client = forkClient([] { return ITuner::getService() == nullptr ? 0 : 1; });
    EXPECT_EQ(waitForChild(client), 0);
    struct stat after {};
    ASSERT_EQ(lstat(path.c_str(), &after), 0) << "the entry was removed";
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(RegistryTrustTest, AClientRefusesASocketServedByAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to serve a socket as another user";
    const std::string path = serviceSocketPath(ITuner::descriptor, "default");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    // An impostor: the socket bound in the owner's directory, then served by another user (the
    // peer credentials a client sees are those of the listening process at listen time).
    const pid_t impostor = fork();
    if (impostor == 0) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
        if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) _exit(1);
        if (setgid(kStranger) != 0 || setuid(kStranger) != 0 || listen(listener, 8) != 0) _exit(2);
        const char byte = 1;
        if (write(ready[1], &byte, 1) != 1) _exit(3);
        for (;;) {
            const int peer = accept(listener, nullptr, nullptr);
            char hello[24];
            if (peer >= 0 && read(peer, hello, sizeof(hello)) > 0) {
                const char welcome[24] = {0, 0, 0, 0, 7};  // a welcome, to be believed
                if (write(peer, welcome, sizeof(welcome)) < 0) _exit(4);
            }
        }
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    pid_t client = forkClient([] { return ITuner::getService() == nullptr ? 0 : 1; });
    EXPECT_EQ(waitForChild(client), 0) << "the impostor's answer is not trusted";
    kill(impostor, SIGKILL);
    waitForChild(impostor);
}

// A client trusts a directory of its own user or root (or of a uid it was told to trust) that no
// one else may write to; else it says, in one line, why not and what to do.
TEST_F(RegistryTrustTest, AClientRefusesADirectoryItCannotTrustInOneLine) {
    const std::string foreign = mBase + "/foreign";
    ASSERT_EQ(mkdir(foreign.c_str(), 0700), 0);
    ASSERT_EQ(chown(foreign.c_str(), kStranger, kStranger), 0) << "the suite runs as root";
    const std::string open = mBase + "/open";
    ASSERT_EQ(mkdir(open.c_str(), 0700), 0);
    ASSERT_EQ(chmod(open.c_str(), 0777), 0);
    struct Case {
        const char* name;
        std::string dir;
        const char* trusted;  // MOX_HIDL_TRUSTED_UID
        std::vector<std::string> words;
    };
    const Case cases[] = {
            {"another user's",
             foreign,
             nullptr,
             {"not trusting the service directory " + foreign + ": it belongs to uid 12345",
              "remove it", "MOX_HIDL_SERVICE_DIR", "MOX_HIDL_TRUSTED_UID=12345"}},
            {"open to others",
             open,
             nullptr,
             {"not trusting the service directory " + open, "only its owner may write to"}},
            {"another user's, trusted by choice",
             foreign,
             "12345",
             {"the tuner service is not running"}},
            {"another uid trusted than the owner's", foreign, "12346", {"belongs to uid 12345"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto [code, err] = tunerctlAs(
                -1, {{"MOX_HIDL_SERVICE_DIR", c.dir.c_str()}, {"MOX_HIDL_TRUSTED_UID", c.trusted}});
        EXPECT_EQ(code, 3);
        EXPECT_EQ(lines(err), 1u) << err;
        for (const std::string& w : c.words) EXPECT_NE(err.find(w), std::string::npos) << err;
    }
}

// Another user made the default directory first, where the victim's clients look (no runtime
// directory): the victim's tunerctl refuses it in one line.
TEST_F(RegistryTrustTest, ASquattedDefaultDirectoryIsRefused) {
    const uid_t victim = 20000 + uid_t(getpid() % 10000);  // no user's, and this run's alone
    const std::string squatted = "/tmp/mox-hidl-" + std::to_string(victim);
    ASSERT_EQ(mkdir(squatted.c_str(), 0700), 0) << squatted << " is there already";
    ASSERT_EQ(chown(squatted.c_str(), victim + 1, victim + 1), 0);
    const auto [code, err] = tunerctlAs(
            int(victim), {{"MOX_HIDL_SERVICE_DIR", nullptr}, {"XDG_RUNTIME_DIR", nullptr}});
    rmdir(squatted.c_str());
    EXPECT_EQ(code, 3);
    EXPECT_EQ(lines(err), 1u) << err;
    EXPECT_NE(err.find("not trusting the service directory " + squatted + ": it belongs to uid " +
                       std::to_string(victim + 1)),
              std::string::npos)
            << err;
}

// Without MOX_HIDL_SERVICE_DIR the service registers in the user's runtime directory, where no
// other user can make the name first, when that is a private directory of the user's; else in
// the /tmp name.
TEST_F(RegistryTrustTest, TheServiceStartsInTheRuntimeDirectoryWhenThereIsOne) {
    const std::string runtime = mBase + "/run";
    ASSERT_EQ(mkdir(runtime.c_str(), 0700), 0);
    unsetenv("MOX_HIDL_SERVICE_DIR");
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    EXPECT_EQ(serviceDirectory(), runtime + "/mox-hidl");
    const pid_t service = spawnService(mBase + "/runtime.log");
    const std::string socket = runtime + "/mox-hidl/" + std::string(ITuner::descriptor) + "@default";
    EXPECT_TRUE(eventually([&] { return access(socket.c_str(), F_OK) == 0; }))
            << readFile(mBase + "/runtime.log");
    struct stat st {};
    EXPECT_EQ(lstat((runtime + "/mox-hidl").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    EXPECT_EQ(tunerctlAs(-1, {}).first, 0) << "a client finds it there";
    kill(service, SIGTERM);
    waitForChild(service);

    // A runtime directory that is not a private one of this user's is passed over.
    const std::string fallback = "/tmp/mox-hidl-" + std::to_string(getuid());
    ASSERT_EQ(chmod(runtime.c_str(), 0777), 0);
    EXPECT_EQ(serviceDirectory(), fallback);
    ASSERT_EQ(chmod(runtime.c_str(), 0700), 0);
    ASSERT_EQ(chown(runtime.c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(serviceDirectory(), fallback);
    const std::string link = mBase + "/runlink";
    ASSERT_EQ(symlink(runtime.c_str(), link.c_str()), 0);
    setenv("XDG_RUNTIME_DIR", link.c_str(), 1);
    EXPECT_EQ(serviceDirectory(), fallback);
    setenv("XDG_RUNTIME_DIR", "", 1);
    EXPECT_EQ(serviceDirectory(), fallback);
}

}  // namespace
