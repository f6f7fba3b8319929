#include <capnp/rpc-twoparty.h>
#include <hidl/transport/Passthrough.h>
#include <hidl/transport/ProxyStub.h>
#include <hidl/transport/Transport.h>
#include <kj/async-io.h>
#include <log/log.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <map>
#include <thread>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#include <sanitizer/tsan_interface.h>
#define TRANSPORT_UNDER_TSAN 1
#endif
#endif

namespace android {
namespace hardware {
namespace details {
namespace {

thread_local bool tOnTransportThread = false;

// Cap'n Proto hands work between threads with its own futex-based primitives, which a
// ThreadSanitizer build cannot see (Debian's libkj is not instrumented). These mark each handoff
// so that what one thread wrote before it is seen as written before what the other reads.
#ifdef TRANSPORT_UNDER_TSAN
void handOff(const void* token) {
    __tsan_release(const_cast<void*>(token));
}
void takeOver(const void* token) {
    __tsan_acquire(const_cast<void*>(token));
}
#else
void handOff(const void*) {}
void takeOver(const void*) {}
#endif

// Runs work on the transport thread and waits for the promise it returns.
void runOnTransport(const std::function<kj::Promise<void>()>& work);

// The transport thread's state. Everything but the executor is touched on that thread only.
struct Loop {
    const kj::Executor* executor = nullptr;
    kj::LowLevelAsyncIoProvider* lowLevel = nullptr;
    kj::TaskSet* tasks = nullptr;
};

struct TaskErrors : kj::TaskSet::ErrorHandler {
    void taskFailed(kj::Exception&& exception) override {
        ALOGV("transport task ended: %s", exception.getDescription().cStr());
    }
};

Loop& loop() {
    static Loop* instance = [] {
        // A peer that closes its socket must not end this process with SIGPIPE.
        signal(SIGPIPE, SIG_IGN);
        auto* l = new Loop();
        // The thread tells when its loop is ready; the promise is the only handoff.
        std::promise<void> ready;
        std::future<void> started = ready.get_future();
        std::thread([l, &ready] {
            tOnTransportThread = true;
            kj::AsyncIoContext io = kj::setupAsyncIo();
            TaskErrors errors;
            kj::TaskSet tasks(errors);
            l->executor = &kj::getCurrentThreadExecutor();
            l->lowLevel = io.lowLevelProvider.get();
            l->tasks = &tasks;
            ready.set_value();
            kj::NEVER_DONE.wait(io.waitScope);
        }).detach();
        started.wait();
        return l;
    }();
    return *instance;
}

std::map<std::string, InterfaceTransport>& transports() {
    static auto* map = new std::map<std::string, InterfaceTransport>();
    return *map;
}

// One socket and the Cap'n Proto RPC system on it. Lives on the transport thread until the
// socket closes.
struct RpcConnection {
    RpcConnection(kj::Own<kj::AsyncIoStream> s, capnp::rpc::twoparty::Side side)
        : stream(kj::mv(s)), network(*stream, side) {}
    kj::Own<kj::AsyncIoStream> stream;
    capnp::TwoPartyVatNetwork network;
    kj::Maybe<capnp::RpcSystem<capnp::rpc::twoparty::VatId>> rpc;
};

// Keeps the connection until it closes, then marks it dead.
void watch(kj::Own<RpcConnection> rpc, const std::shared_ptr<Connection>& connection) {
    auto closed = rpc->network.onDisconnect();
    loop().tasks->add(closed.then([rpc = kj::mv(rpc), connection]() mutable {
        connection->markDead();
        // The RPC system may still be unwinding; free it after this turn of the loop.
        loop().tasks->add(kj::evalLater([rpc = kj::mv(rpc)]() {}));
    }));
}

// Serves a published object to every process that connects, for as long as this one lives.
struct Acceptor {
    kj::Own<kj::ConnectionReceiver> listener;
    sp<::android::hidl::base::V1_0::IBase> service;
    InterfaceTransport crossing;
    std::string descriptor;

    kj::Promise<void> acceptNext(std::shared_ptr<Acceptor> self) {
        return listener->accept().then([self](kj::Own<kj::AsyncIoStream> stream) {
            auto connection = std::make_shared<Connection>(self->descriptor + " client");
            auto rpc = kj::heap<RpcConnection>(kj::mv(stream), capnp::rpc::twoparty::Side::SERVER);
            rpc->rpc = capnp::makeRpcServer(rpc->network,
                                            self->crossing.makeStub(self->service, connection));
            watch(kj::mv(rpc), connection);
            return self->acceptNext(self);
        });
    }
};

std::string serviceDirectory() {
    const char* dir = getenv("MOX_HIDL_SERVICE_DIR");
    if (dir != nullptr && *dir != '\0') return dir;
    return "/tmp/mox-hidl-" + std::to_string(getuid());
}

bool fillAddress(const std::string& path, sockaddr_un& address) {
    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    memcpy(address.sun_path, path.c_str(), path.size());
    return true;
}

// 0 when something answers on the socket, else the errno of the attempt.
int connectSocket(const std::string& path, int& fd) {
    sockaddr_un address;
    if (!fillAddress(path, address)) return ENAMETOOLONG;
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        int error = errno;
        close(fd);
        fd = -1;
        return error;
    }
    return 0;
}

}  // namespace

const kj::Executor& transportExecutor() {
    return *loop().executor;
}

namespace {
void runOnTransport(const std::function<kj::Promise<void>()>& work) {
    int token = 0;
    handOff(&token);
    KJ_DEFER(takeOver(&token));
    transportExecutor().executeSync([&]() {
        takeOver(&token);
        return work().then([&]() { handOff(&token); },
                           [&](kj::Exception&& e) {
                               handOff(&token);
                               kj::throwFatalException(kj::mv(e));
                           });
    });
}
}  // namespace

void runOnTransportThread(const std::function<void()>& work) {
    if (onTransportThread()) {
        work();
        return;
    }
    runOnTransport([&]() {
        work();
        return kj::Promise<void>(kj::READY_NOW);
    });
}

bool onTransportThread() {
    return tOnTransportThread;
}

bool Connection::isAlive() const {
    AutoMutex guard(mLock);
    return mAlive;
}

bool Connection::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                             const wp<::android::hidl::base::V1_0::IBase>& who) {
    AutoMutex guard(mLock);
    if (!mAlive) return false;
    mLinks.push_back({recipient, cookie, who});
    return true;
}

bool Connection::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    AutoMutex guard(mLock);
    for (auto it = mLinks.begin(); it != mLinks.end(); ++it) {
        if (it->recipient == recipient) {
            mLinks.erase(it);
            return true;
        }
    }
    return false;
}

void Connection::markDead() {
    std::vector<Link> links;
    {
        AutoMutex guard(mLock);
        mAlive = false;
        links.swap(mLinks);
    }
    for (Link& link : links) {
        submitToRpcPool([link]() { link.recipient->serviceDied(link.cookie, link.who); });
    }
}

Status deadObject(const std::string& what) {
    return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, what.c_str());
}

void registerInterfaceTransport(const std::string& descriptor, InterfaceTransport transport) {
    transports()[descriptor] = std::move(transport);
}

Status callAcross(Connection& connection, const std::function<kj::Promise<void>()>& send) {
    if (!connection.isAlive()) return Status::fromStatusT(DEAD_OBJECT);
    if (onTransportThread()) {
        ALOGE("a call across processes from the transport thread would never return");
        return Status::fromStatusT(INVALID_OPERATION);
    }
    kj::Maybe<kj::Exception> failure = kj::runCatchingExceptions([&]() { runOnTransport(send); });
    KJ_IF_MAYBE (exception, failure) {
        if (exception->getType() == kj::Exception::Type::DISCONNECTED || !connection.isAlive()) {
            return Status::fromStatusT(DEAD_OBJECT);
        }
        return deadObject(exception->getDescription().cStr());
    }
    return Status::ok();
}

Status sendOnewayAcross(Connection& connection, const std::function<void()>& send) {
    if (!connection.isAlive()) return Status::fromStatusT(DEAD_OBJECT);
    if (onTransportThread()) {
        send();
        return Status::ok();
    }
    kj::Maybe<kj::Exception> failure =
            kj::runCatchingExceptions([&]() { runOnTransportThread(send); });
    if (failure != nullptr) return Status::fromStatusT(DEAD_OBJECT);
    return Status::ok();
}

kj::Promise<void> runOnPool(std::function<return_status()> work, std::function<void()> finish) {
    auto paf = kj::newPromiseAndCrossThreadFulfiller<void>();
    auto fulfiller =
            std::make_shared<kj::Own<kj::CrossThreadPromiseFulfiller<void>>>(kj::mv(paf.fulfiller));
    submitToRpcPool([fulfiller, work = std::move(work)]() {
        return_status status = work();
        handOff(fulfiller.get());
        if (status.isOk()) {
            (*fulfiller)->fulfill();
        } else {
            (*fulfiller)->reject(KJ_EXCEPTION(FAILED, status.description()));
        }
    });
    return paf.promise.then([fulfiller, finish = std::move(finish)]() {
        takeOver(fulfiller.get());
        finish();
    });
}

void SerialQueue::post(std::function<void()> task) {
    bool schedule = false;
    {
        AutoMutex guard(mLock);
        mTasks.push_back(std::move(task));
        schedule = !mScheduled;
        mScheduled = true;
    }
    if (schedule) submitToRpcPool([self = shared_from_this()]() { self->drain(); });
}

void SerialQueue::drain() {
    for (;;) {
        std::function<void()> task;
        {
            AutoMutex guard(mLock);
            if (mTasks.empty()) {
                mScheduled = false;
                return;
            }
            task = std::move(mTasks.front());
            mTasks.pop_front();
        }
        task();
    }
}

Status writeDebugText(const hidl_handle& fd, const std::string& text) {
    if (fd.getNativeHandle() == nullptr || fd->numFds < 1) return Status::ok();
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = write(fd->data[0], text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += size_t(n);
    }
    return Status::ok();
}

sp<::android::hidl::base::V1_0::IBase> wrapPassthroughBase(
        const sp<::android::hidl::base::V1_0::IBase>& object, const std::string& descriptor) {
    if (object == nullptr || object->isRemote()) return object;
    if (dynamic_cast<PassthroughMarker*>(object.get()) != nullptr) return object;
    auto transport = transports().find(descriptor);
    if (transport == transports().end() || !transport->second.makePassthrough) return object;
    return transport->second.makePassthrough(object);
}

std::string serviceSocketPath(const std::string& descriptor, const std::string& name) {
    return serviceDirectory() + "/" + descriptor + "@" + name;
}

status_t publishService(const sp<::android::hidl::base::V1_0::IBase>& service,
                        const std::string& descriptor, const std::string& name) {
    auto transport = transports().find(descriptor);
    if (transport == transports().end()) return OK;  // the interface does not cross processes
    std::string directory = serviceDirectory();
    mkdir(directory.c_str(), 0700);
    std::string path = serviceSocketPath(descriptor, name);
    // The socket is made and listening under a private name, then renamed into place: a client
    // never finds the name without someone answering on it, so a refused connection always means
    // a stale entry.
    const std::string building = path + ".building." + std::to_string(getpid());
    unlink(building.c_str());
    sockaddr_un address;
    if (!fillAddress(building, address)) return BAD_VALUE;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -errno;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(fd, 16) != 0) {
        int bindError = errno;
        close(fd);
        unlink(building.c_str());
        return -bindError;
    }
    // A live instance answers on the name: this one loses, as a second registration with the
    // service manager does. Otherwise the rename replaces a stale entry, if any.
    int raced = -1;
    if (connectSocket(path, raced) == 0) {
        close(raced);
        close(fd);
        unlink(building.c_str());
        return ALREADY_EXISTS;
    }
    if (rename(building.c_str(), path.c_str()) != 0) {
        int renameError = errno;
        close(fd);
        unlink(building.c_str());
        return -renameError;
    }
    auto acceptor = std::make_shared<Acceptor>();
    acceptor->service = service;
    acceptor->crossing = transport->second;
    acceptor->descriptor = descriptor;
    runOnTransportThread([&]() {
        acceptor->listener = loop().lowLevel->wrapListenSocketFd(
                fd, kj::LowLevelAsyncIoProvider::TAKE_OWNERSHIP);
        loop().tasks->add(acceptor->acceptNext(acceptor));
    });
    return OK;
}

sp<::android::hidl::base::V1_0::IBase> connectToService(const std::string& descriptor,
                                                        const std::string& name) {
    auto transport = transports().find(descriptor);
    if (transport == transports().end()) return nullptr;
    std::string path = serviceSocketPath(descriptor, name);
    int fd = -1;
    int error = connectSocket(path, fd);
    if (error == ECONNREFUSED) unlink(path.c_str());  // nobody answers: a stale entry
    if (error != 0) return nullptr;
    InterfaceTransport crossing = transport->second;
    auto connection = std::make_shared<Connection>(descriptor + "/" + name);
    sp<::android::hidl::base::V1_0::IBase> proxy;
    runOnTransportThread([&]() {
        auto rpc = kj::heap<RpcConnection>(
                loop().lowLevel->wrapSocketFd(fd, kj::LowLevelAsyncIoProvider::TAKE_OWNERSHIP),
                capnp::rpc::twoparty::Side::CLIENT);
        auto& system = rpc->rpc.emplace(capnp::makeRpcClient(rpc->network));
        capnp::word scratch[4];
        memset(scratch, 0, sizeof(scratch));
        capnp::MallocMessageBuilder message(scratch);
        auto server = message.getRoot<capnp::rpc::twoparty::VatId>();
        server.setSide(capnp::rpc::twoparty::Side::SERVER);
        proxy = crossing.makeProxy(system.bootstrap(server), connection);
        watch(kj::mv(rpc), connection);
    });
    return proxy;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
