#include "FloorServer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

namespace bench {
namespace {

// A request: its size and the size of the reply it wants, then the payload.
struct RequestHead {
    uint32_t request;
    uint32_t reply;
};

bool readFully(int fd, void* data, size_t size) {
    char* p = static_cast<char*>(data);
    while (size > 0) {
        ssize_t n = recv(fd, p, size, 0);
        if (n <= 0) return false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

bool writeFully(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = send(fd, p, size, MSG_NOSIGNAL);
        if (n <= 0) return false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

// The pool the handoff floor hands each request to.
struct Pool {
    std::mutex lock;
    std::condition_variable ready;
    std::deque<std::pair<int, uint32_t>> replies;  // (socket, reply size)

    Pool() {
        for (int i = 0; i < 8; ++i) std::thread([this] { work(); }).detach();
    }
    void work() {
        static char zeros[64 * 1024];
        for (;;) {
            std::unique_lock<std::mutex> guard(lock);
            ready.wait(guard, [&] { return !replies.empty(); });
            auto [fd, size] = replies.front();
            replies.pop_front();
            guard.unlock();
            writeFully(fd, zeros, size);
        }
    }
};

void serve(int fd, Pool& pool) {
    char kind = 0;
    if (!readFully(fd, &kind, 1)) return;
    static thread_local char buffer[64 * 1024];
    for (;;) {
        RequestHead head{};
        if (!readFully(fd, &head, sizeof(head)) || head.request > sizeof(buffer) ||
            head.reply > sizeof(buffer) || !readFully(fd, buffer, head.request)) {
            break;
        }
        if (kind == char(FloorKind::kRaw)) {
            writeFully(fd, buffer, head.reply);
            continue;
        }
        {
            std::lock_guard<std::mutex> guard(pool.lock);
            pool.replies.emplace_back(fd, head.reply);
        }
        pool.ready.notify_one();
    }
    close(fd);
}

}  // namespace

pid_t startFloorServer(const std::string& path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = addressOf(path);
    unlink(path.c_str());
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 64) != 0) {
        abort();
    }
    const pid_t pid = fork();
    if (pid != 0) {
        close(listener);
        return pid;
    }
    auto* pool = new Pool();
    for (;;) {
        const int fd = accept(listener, nullptr, nullptr);
        if (fd >= 0) std::thread([fd, pool] { serve(fd, *pool); }).detach();
    }
}

FloorClient::FloorClient(const std::string& path, FloorKind kind) {
    mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = addressOf(path);
    if (connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) abort();
    const char k = char(kind);
    writeFully(mFd, &k, 1);
    memset(mBuffer, 0, sizeof(mBuffer));
}

FloorClient::~FloorClient() {
    close(mFd);
}

void FloorClient::roundTrip(size_t request, size_t reply) {
    // The request's size travels in its own first bytes, as a frame header's does.
    RequestHead head{uint32_t(request - sizeof(RequestHead)), uint32_t(reply)};
    memcpy(mBuffer, &head, sizeof(head));
    writeFully(mFd, mBuffer, request);
    readFully(mFd, mBuffer, reply);
}

}  // namespace bench
