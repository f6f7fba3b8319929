// Any bytes on the service's side of a connection: the service answers or closes that connection,
// stays up, and a well-behaved client of the same process is served after every input. The first
// byte chooses: bit 0, a session's hello first; bit 1, the rest is the body of a call to the
// tuner (getFrontendInfo) behind a header made here, so that segment tables are explored as such.
// Before a hello nothing but a hello is answered, and a body that is not exactly one message in
// the flat form gets no answer. Bit 2: descriptors go with the first bytes (bits 3-7 say how
// many, up to twice what a message may carry; a call's header claims that many), of every kind a
// peer could send; whatever the frame, the service keeps none of them once the connection ends.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <dirent.h>
#include <fcntl.h>
#include <hidl/transport/Transport.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Frame.h"
#include "FuzzSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using namespace ::android::hardware::details;

namespace {

const ::android::sp<ITuner>& wellBehavedClient() {
    static ::android::sp<ITuner>* client = [] {
        ::android::sp<ITuner> tuner = fuzz::service();
        if (publishService(tuner, ITuner::descriptor, "default") != ::android::OK) abort();
        return new ::android::sp<ITuner>(
                ITuner::castFrom(connectToService(ITuner::descriptor, "default")));
    }();
    return *client;
}

int connectRaw() {
    const std::string path = serviceSocketPath(ITuner::descriptor, "default");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) abort();
    return fd;
}

// Reads whatever the service answers until it closes the connection; how many bytes came.
size_t drain(int fd) {
    char buffer[4096];
    size_t total = 0;
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        // The service closes at once after the end of the input; a stall would be the service's.
        if (poll(&p, 1, 10000) <= 0) abort();
        const ssize_t n = recv(fd, buffer, sizeof(buffer), 0);
        if (n <= 0) return total;
        total += size_t(n);
    }
}

constexpr uint16_t kGetFrontendInfo = 5;  // its place in ITuner.hal

size_t openDescriptors() {
    size_t n = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (const dirent* e = readdir(dir)) n += e->d_name[0] != '.';
        closedir(dir);
    }
    return n;
}

// `count` descriptors of the kinds a peer may send: shared memory, a device, pipe ends, an
// eventfd, a socket.
std::vector<int> descriptorsToSend(size_t count) {
    std::vector<int> fds;
    for (size_t i = 0; i < count; ++i) {
        int fd = -1;
        switch (i % 5) {
            case 0:
                fd = memfd_create("fuzz", MFD_CLOEXEC);
                if (fd >= 0 && ftruncate(fd, off_t(4096 * (i + 1))) != 0) abort();
                break;
            case 1:
                fd = open("/dev/null", O_RDWR | O_CLOEXEC);
                break;
            case 2: {
                int ends[2];
                if (pipe2(ends, O_CLOEXEC) == 0) {
                    close(ends[1]);
                    fd = ends[0];
                }
                break;
            }
            case 3:
                fd = eventfd(0, EFD_CLOEXEC);
                break;
            default:
                fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
                break;
        }
        if (fd < 0) abort();
        fds.push_back(fd);
    }
    return fds;
}

// The first bytes sent with the descriptors; false if the socket took nothing.
bool sendWith(int fd, const void* bytes, size_t size, const std::vector<int>& fds) {
    iovec iov{const_cast<void*>(bytes), size};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(sizeof(int) * fds.size()));
    if (!fds.empty()) {
        msg.msg_control = control.data();
        msg.msg_controllen = control.size();
        cmsghdr* c = CMSG_FIRSTHDR(&msg);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
        memcpy(CMSG_DATA(c), fds.data(), sizeof(int) * fds.size());
    }
    return sendmsg(fd, &msg, MSG_NOSIGNAL) > 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ::android::sp<ITuner>& client = wellBehavedClient();
    if (size == 0) return 0;
    const size_t before = openDescriptors();
    const int fd = connectRaw();
    const bool joined = (data[0] & 1) != 0;
    const bool asBody = (data[0] & 2) != 0;
    const bool withFds = (data[0] & 4) != 0;
    const std::vector<int> fds =
            descriptorsToSend(withFds ? (data[0] >> 3) % (2 * limits::kMaxFdsPerMessage + 1) : 0);
    if (joined) {
        FrameHeader hello{};
        hello.kind = FrameKind::kHello;
        hello.method = kRoleCalls;
        send(fd, &hello, sizeof(hello), MSG_NOSIGNAL);
    }
    size_t expectedAtMost = SIZE_MAX;
    if (asBody) {
        // Whole words: the rest of the input, cut to a multiple of 8 and to a frame.
        const size_t words = std::min((size - 1) / 8, limits::kMaxFrameBytes / 8 - 3);
        std::vector<uint64_t> body(words);
        if (words > 0) memcpy(body.data(), data + 1, words * 8);
        FrameHeader call{};
        call.kind = FrameKind::kCall;
        call.method = kGetFrontendInfo;
        call.object = 1;
        call.callId = 1;
        call.bodyBytes = uint32_t(words * 8);
        call.fdCount = uint8_t(fds.size());
        sendWith(fd, &call, sizeof(call), fds);
        send(fd, body.data(), words * 8, MSG_NOSIGNAL);
        // A call before a hello, or a lying body, is refused before anything runs: at most the
        // welcome comes back.
        if (!joined) {
            expectedAtMost = 0;
        } else if (!bodyIsOneMessage(body.data(), words)) {
            expectedAtMost = sizeof(FrameHeader);
        }
    } else if (size > 1 && !fds.empty()) {
        if (sendWith(fd, data + 1, 1, fds)) send(fd, data + 2, size - 2, MSG_NOSIGNAL);
    } else {
        send(fd, data + 1, size - 1, MSG_NOSIGNAL);
        // Before a hello, no frame but a hello: only a welcome can come back.
        if (!joined && size - 1 >= sizeof(FrameHeader)) {
            FrameHeader first;
            memcpy(&first, data + 1, sizeof(first));
            if (!headerMayComeBeforeHello(first)) expectedAtMost = 0;
        }
    }
    shutdown(fd, SHUT_WR);
    if (drain(fd) > expectedAtMost) abort();
    close(fd);
    for (int d : fds) close(d);
    if (client == nullptr || !client->ping().isOk()) abort();
    fuzz::settleService();
    // What the connection brought is closed with it: the session is put away after its socket
    // closes, so give it a moment.
    for (int tries = 0; openDescriptors() > before; ++tries) {
        if (tries == 1000) abort();
        usleep(1000);
    }
    return 0;
}
