// The host's service manager: a directory of sockets, one per published instance. A client's
// session with a service: its first socket says hello and gets the session's token, further
// sockets join with it, and one more socket carries the service's calls to the client's objects.
#include <fcntl.h>
#include <hidl/transport/Transport.h>
#include <log/log.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#include "Endpoint.h"
#include "Listener.h"
#include "Session.h"

namespace android {
namespace hardware {
namespace details {
namespace {

// Why this thread's last connection to a service failed.
thread_local ConnectFailure tFailure = ConnectFailure::kNone;
thread_local std::string tFailureWhy;

void failWith(ConnectFailure failure, std::string why = "") {
    tFailure = failure;
    tFailureWhy = std::move(why);
    if (failure == ConnectFailure::kUntrusted) ALOGE("%s", tFailureWhy.c_str());
}

// A real directory (no symbolic link) of this process's user that no one else may write to.
bool isOwnPrivateDirectory(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == geteuid() &&
           (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool fillAddress(const std::string& path, sockaddr_un& address) {
    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    memcpy(address.sun_path, path.c_str(), path.size());
    return true;
}

// The directory a service publishes in: made 0700 by this process's user, or, when it exists, a
// real directory (no symlink) of this user that no one else may write to. Else why not, in words.
std::string checkOwnDirectory(const std::string& directory) {
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        return "cannot be made: " + std::string(strerror(errno));
    }
    struct stat st {};
    if (lstat(directory.c_str(), &st) != 0) return strerror(errno);
    if (!S_ISDIR(st.st_mode)) return "is not a directory (a symbolic link or a file)";
    if (st.st_uid != geteuid()) {
        return "belongs to uid " + std::to_string(st.st_uid) + ", not to this service's uid " +
               std::to_string(geteuid());
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "may be written by group or others";
    return "";
}

// The users whose directory a client trusts besides its own and root's: $MOX_HIDL_TRUSTED_UID.
bool trustedByChoice(uid_t owner) {
    const char* text = getenv("MOX_HIDL_TRUSTED_UID");
    if (text == nullptr || *text == '\0') return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long uid = strtoul(text, &end, 10);
    return errno == 0 && *end == '\0' && text[0] != '-' && uid == owner;
}

// The directory a client trusts: a real directory only its owner may write to, of this user, of
// root or of the uid the user chose to trust; the owner's uid. Nothing there: no service runs.
bool trustedDirectory(const std::string& directory, uid_t& owner) {
    struct stat st {};
    if (lstat(directory.c_str(), &st) != 0) {
        failWith(ConnectFailure::kNotRunning);
        return false;
    }
    const std::string own = "set MOX_HIDL_SERVICE_DIR to a directory of your own";
    if (!S_ISDIR(st.st_mode) || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        failWith(ConnectFailure::kUntrusted,
                 "not trusting the service directory " + directory +
                         ": it is not a directory only its owner may write to; remove it, or " +
                         own);
        return false;
    }
    if (st.st_uid != geteuid() && st.st_uid != 0 && !trustedByChoice(st.st_uid)) {
        const std::string uid = std::to_string(st.st_uid);
        failWith(ConnectFailure::kUntrusted,
                 "not trusting the service directory " + directory + ": it belongs to uid " + uid +
                         ", neither this user (uid " + std::to_string(geteuid()) +
                         ") nor root; remove it if no one you trust made it, " + own +
                         ", or set MOX_HIDL_TRUSTED_UID=" + uid + " to trust that user");
        return false;
    }
    owner = st.st_uid;
    return true;
}

// 0 when something answers on the socket, else the errno of the attempt.
int connectSocket(const std::string& path, int& fd) {
    sockaddr_un address;
    if (!fillAddress(path, address)) return ENAMETOOLONG;
    fd = trackFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd < 0) return errno;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        int error = errno;
        closeTrackedFd(fd);
        fd = -1;
        return error;
    }
    return 0;
}

// Says which session a new socket belongs to (token 0: a new one) and reads the token back. A
// service with no room for the socket answers that it is busy, perhaps before the hello reached it
// (so the answer is read even when the hello could not be sent).
bool handshake(int fd, SocketRole role, uint64_t token, uint64_t& sessionToken, bool& busy) {
    busy = false;
    const bool sent = sendFrame(fd, headerOnly(FrameKind::kHello, role, token));
    FrameHeader welcome{};
    size_t have = 0;
    while (have < sizeof(welcome)) {
        ssize_t n = recv(fd, reinterpret_cast<char*>(&welcome) + have, sizeof(welcome) - have, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        have += size_t(n);
    }
    busy = welcome.kind == FrameKind::kBusy && welcome.bodyBytes == 0;
    if (!sent || welcome.kind != FrameKind::kWelcome || welcome.bodyBytes != 0) return false;
    sessionToken = welcome.object;
    return token == 0 || sessionToken == token;
}

// Connects to a service's socket and checks that the process answering is the directory owner's,
// as binder's service manager checks the uid of whoever registers. 0, or the errno; EPERM for an
// impostor.
int connectToOwner(const std::string& path, uid_t owner, int& fd) {
    const int error = connectSocket(path, fd);
    if (error != 0) return error;
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == owner) {
        return 0;
    }
    failWith(ConnectFailure::kUntrusted,
             path + " is served by uid " + std::to_string(peer.uid) +
                     ", not by the directory's owner " + std::to_string(owner) +
                     ": not trusted; stop that process, or remove the socket");
    closeTrackedFd(fd);
    fd = -1;
    return EPERM;
}

int openJoined(const std::string& path, uid_t owner, SocketRole role, uint64_t token) {
    int fd = -1;
    if (connectToOwner(path, owner, fd) != 0) return -1;
    uint64_t answered = 0;
    bool busy = false;
    if (!handshake(fd, role, token, answered, busy)) {
        closeTrackedFd(fd);
        return -1;
    }
    return fd;
}

// The sockets this process published, removed again when it stops serving.
struct Published {
    std::string path;
    dev_t device;
    ino_t inode;
};
Mutex gPublishedLock;
std::vector<Published>& published() {
    static auto* list = new std::vector<Published>();
    return *list;
}

// A process keeps one session per service while it lives, as binder keeps one handle.
Mutex gSessionsLock;
std::map<std::string, std::shared_ptr<Session>>& sessions() {
    static auto* map = new std::map<std::string, std::shared_ptr<Session>>();
    return *map;
}

std::shared_ptr<Session> openSession(const std::string& path, const std::string& peer) {
    uid_t owner = 0;
    if (!trustedDirectory(serviceDirectory(), owner)) return nullptr;
    int fd = -1;
    // A client never removes an entry, even one nobody answers on: between its refused connect
    // and the removal a new instance may have renamed its socket into place. The new instance's
    // rename replaces the stale one.
    const int error = connectToOwner(path, owner, fd);
    if (error != 0) {
        if (error != EPERM) failWith(ConnectFailure::kNotRunning);
        return nullptr;
    }
    uint64_t token = 0;
    bool busy = false;
    if (!handshake(fd, kRoleCalls, 0, token, busy)) {
        closeTrackedFd(fd);
        failWith(busy ? ConnectFailure::kBusy : ConnectFailure::kNotRunning);
        return nullptr;
    }
    auto session = std::make_shared<Session>(peer, token);
    auto open = [path, owner, token]() { return openJoined(path, owner, kRoleCalls, token); };
    auto calls = std::make_shared<ChannelPool>(*session, limits::kMaxChannelsPerSession, open);
    session->setPools(calls, std::make_shared<ChannelPool>(*session, 1, open));
    session->addSocket(fd);
    calls->install(fd);
    // The socket on which the service calls this process's objects, served by the pool.
    const int in = openJoined(path, owner, kRoleCallsIn, token);
    if (in < 0) {
        failWith(ConnectFailure::kBusy);  // the first socket was let in: the service is there
        return nullptr;
    }
    fcntl(in, F_SETFL, fcntl(in, F_GETFL) | O_NONBLOCK);
    if (!std::make_shared<Endpoint>(in, session)->start()) {
        failWith(ConnectFailure::kNotRunning);
        return nullptr;
    }
    return session;
}

}  // namespace

std::string serviceDirectory() {
    const char* dir = getenv("MOX_HIDL_SERVICE_DIR");
    if (dir != nullptr && *dir != '\0') return dir;
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/' && isOwnPrivateDirectory(runtime)) {
        return std::string(runtime) + "/mox-hidl";
    }
    return "/tmp/mox-hidl-" + std::to_string(getuid());
}

ConnectFailure lastConnectFailure(std::string* why) {
    if (why != nullptr) *why = tFailureWhy;
    return tFailure;
}

std::string serviceSocketPath(const std::string& descriptor, const std::string& name) {
    return serviceDirectory() + "/" + descriptor + "@" + name;
}

status_t publishService(const sp<::android::hidl::base::V1_0::IBase>& service,
                        const std::string& descriptor, const std::string& name) {
    const InterfaceTransport* transport = findInterfaceTransport(descriptor);
    if (transport == nullptr) return OK;  // the interface does not cross processes
    const std::string directory = serviceDirectory();
    const std::string refusal = checkOwnDirectory(directory);
    if (!refusal.empty()) {
        ALOGE("refusing to register in %s: it %s", directory.c_str(), refusal.c_str());
        return PERMISSION_DENIED;
    }
    std::string path = serviceSocketPath(descriptor, name);
    // The socket is made and listening under a private name, then renamed into place: a client
    // never finds the name without someone answering on it, so a refused connection always means
    // a stale entry.
    const std::string building = path + ".building." + std::to_string(getpid());
    unlink(building.c_str());
    sockaddr_un address;
    if (!fillAddress(building, address)) return BAD_VALUE;
    int fd = trackFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd < 0) return -errno;
    // Only this user may connect, whatever the umask: the socket is 0600 before anyone can
    // reach its name.
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        chmod(building.c_str(), 0600) != 0 || listen(fd, 64) != 0) {
        int bindError = errno;
        closeTrackedFd(fd);
        unlink(building.c_str());
        return -bindError;
    }
    // A live instance answers on the name: this one loses, as a second registration with the
    // service manager does. Otherwise the rename replaces a stale entry, if any.
    int raced = -1;
    if (connectSocket(path, raced) == 0) {
        closeTrackedFd(raced);
        closeTrackedFd(fd);
        unlink(building.c_str());
        return ALREADY_EXISTS;
    }
    if (rename(building.c_str(), path.c_str()) != 0) {
        int renameError = errno;
        closeTrackedFd(fd);
        unlink(building.c_str());
        return -renameError;
    }
    auto listener = std::make_shared<Listener>(fd, service, transport->dispatch, descriptor);
    if (!listener->start()) return UNKNOWN_ERROR;
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0) {
        AutoMutex guard(gPublishedLock);
        published().push_back({path, st.st_dev, st.st_ino});
    }
    return OK;
}

void unpublishServices() {
    AutoMutex guard(gPublishedLock);
    for (const Published& entry : published()) {
        // Only the socket this process made: a newer instance's stays.
        struct stat st {};
        if (lstat(entry.path.c_str(), &st) == 0 && st.st_dev == entry.device &&
            st.st_ino == entry.inode) {
            unlink(entry.path.c_str());
        }
    }
    published().clear();
}

sp<::android::hidl::base::V1_0::IBase> connectToService(const std::string& descriptor,
                                                        const std::string& name) {
    failWith(ConnectFailure::kNone);
    const InterfaceTransport* transport = findInterfaceTransport(descriptor);
    if (transport == nullptr) {
        failWith(ConnectFailure::kNotRunning);
        return nullptr;
    }
    const std::string path = serviceSocketPath(descriptor, name);
    std::shared_ptr<Session> session;
    {
        AutoMutex guard(gSessionsLock);
        auto it = sessions().find(path);
        if (it != sessions().end() && it->second->belongsToThisProcess() && it->second->isAlive()) {
            session = it->second;
        }
    }
    if (session == nullptr) {
        session = openSession(path, descriptor + "/" + name);
        if (session == nullptr) return nullptr;
        AutoMutex guard(gSessionsLock);
        sessions()[path] = session;
    }
    return session->importObject(Session::kRootObject, transport->makeProxy);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
