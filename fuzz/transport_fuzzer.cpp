// Any bytes on the service's side of a connection: the service answers or closes that connection,
// stays up, and a well-behaved client of the same process is served after every input.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <hidl/transport/Transport.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

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

// Reads whatever the service answers until it closes the connection.
void drain(int fd) {
    char buffer[4096];
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        // The service closes at once after the end of the input; a stall would be the service's.
        if (poll(&p, 1, 10000) <= 0) abort();
        if (recv(fd, buffer, sizeof(buffer), 0) <= 0) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ::android::sp<ITuner>& client = wellBehavedClient();
    if (size == 0) return 0;
    const int fd = connectRaw();
    if ((data[0] & 1) != 0) {  // the input follows a session's hello
        FrameHeader hello{};
        hello.kind = FrameKind::kHello;
        hello.method = kRoleCalls;
        send(fd, &hello, sizeof(hello), MSG_NOSIGNAL);
    }
    send(fd, data + 1, size - 1, MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    drain(fd);
    close(fd);
    if (client == nullptr || !client->ping().isOk()) abort();
    fuzz::settleService();
    return 0;
}
