// The service process against peers that break the transport's rules: each such peer loses its
// own connection, the service keeps serving others, and what the peer made it hold is given back.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Transport.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tunerWire.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "Frame.h"
#include "ServiceProcess.h"

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using namespace ::android::hardware::details;
using namespace testing_support;
using ::android::sp;

constexpr uint16_t kGetFrontendInfo = 5;  // its place in ITuner.hal

// What the service's resident memory may have grown by once a hostile peer is gone: the heap keeps
// some of what it freed, and a sanitizer's shadow of it more.
constexpr size_t kResidentSlackKiB = kUnderSanitizer || kUnderEmulation ? 16 * 1024 : 4 * 1024;

// A peer that writes the transport's frames by hand.
class RawPeer {
  public:
    RawPeer() {
        const std::string path = serviceSocketPath(ITuner::descriptor, "default");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            close(mFd);
            mFd = -1;
        }
    }
    ~RawPeer() {
        if (mFd >= 0) close(mFd);
    }
    int fd() const { return mFd; }

    bool send(const void* data, size_t size) {
        return ::send(mFd, data, size, MSG_NOSIGNAL) == ssize_t(size);
    }
    bool sendFrame(const FrameHeader& header, capnp::MessageBuilder* body = nullptr) {
        OutgoingFrame frame;
        return frame.build(header, body) && ::android::hardware::details::sendFrame(mFd, frame);
    }
    // Joins a new session as a well-behaved client's first socket does.
    bool hello() {
        FrameHeader header{};
        header.kind = FrameKind::kHello;
        header.method = kRoleCalls;
        FrameHeader welcome{};
        sendFrame(header);  // a refusal may come before the hello is read
        if (recv(mFd, &welcome, sizeof(welcome), MSG_WAITALL) != ssize_t(sizeof(welcome))) {
            return false;
        }
        mAnswer = welcome.kind;
        return welcome.kind == FrameKind::kWelcome;
    }
    // What the service answered the hello with.
    FrameKind answer() const { return mAnswer; }
    // True once the service has closed the connection (what it sent before is skipped).
    bool closedWithin(std::chrono::milliseconds bound) {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        char buffer[4096];
        while (std::chrono::steady_clock::now() < deadline) {
            pollfd p{mFd, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            const ssize_t n = recv(mFd, buffer, sizeof(buffer), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno == ECONNRESET)) return true;
        }
        return false;
    }

  private:
    int mFd = -1;
    FrameKind mAnswer = FrameKind::kHello;
};

// A process of its own that holds as many joined connections as the service lets it have: how
// many it got, and how the service refused the next one.
struct Hog {
    pid_t pid = -1;
    size_t held = 0;
    bool refusedAsBusy = false;
};
Hog startHog() {
    int counted[2];
    if (pipe(counted) != 0) return {};
    Hog hog;
    hog.pid = fork();
    if (hog.pid == 0) {
        std::vector<std::unique_ptr<RawPeer>> peers;
        Hog got;
        for (size_t i = 0; i <= limits::kMaxConnections; ++i) {
            auto peer = std::make_unique<RawPeer>();
            if (peer->fd() < 0 || !peer->hello()) {
                got.refusedAsBusy = peer->answer() == FrameKind::kBusy;
                break;
            }
            peers.push_back(std::move(peer));
        }
        got.held = peers.size();
        if (write(counted[1], &got, sizeof(got)) != ssize_t(sizeof(got))) _exit(1);
        pause();
        _exit(0);
    }
    Hog got;
    if (read(counted[0], &got, sizeof(got)) == ssize_t(sizeof(got))) {
        hog.held = got.held;
        hog.refusedAsBusy = got.refusedAsBusy;
    }
    close(counted[0]);
    close(counted[1]);
    return hog;
}

void endHog(const Hog& hog) {
    kill(hog.pid, SIGKILL);
    waitForChild(hog.pid);
}

class TransportBoundsTest : public ::testing::Test {
  protected:
    void SetUp() override { start(); }
    void TearDown() override {
        kill(mService, SIGTERM);
        waitForChild(mService);
    }
    void start(int descriptorLimit = 0) {
        mLog = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/bounds.log";
        mService = spawnService(mLog, descriptorLimit);
        ASSERT_TRUE(eventually([] { return RawPeer().fd() >= 0; })) << readFile(mLog);
        // One well-behaved session first: what the service sets up once is in the baseline, the
        // departed client's sockets are not.
        const size_t beforeAnyClient = openDescriptors(mService);
        ASSERT_TRUE(servesAnotherClient());
        eventually([&] { return openDescriptors(mService) <= beforeAnyClient; }, 2s);
        mBaselineFds = openDescriptors(mService);
        mBaselineDescriptors = describeDescriptors(mService);
        mBaselineKiB = residentKiB(mService);
    }
    // A client in a process of its own gets an answer.
    bool servesAnotherClient() {
        pid_t client = forkClient([] {
            sp<ITuner> tuner = ITuner::getService();
            if (tuner == nullptr) return 1;
            tuner->getFrontendIds([](Result, const ::android::hardware::hidl_vec<uint32_t>&) {});
            Result result = Result::UNKNOWN_ERROR;
            auto status =
                    tuner->getFrontendInfo(0, [&](Result r, const FrontendInfo&) { result = r; });
            return status.isOk() && result == Result::SUCCESS ? 0 : 2;
        });
        return waitForChild(client) == 0;
    }
    // What the peer made the service hold is given back once it is gone (a sanitizer's or
    // qemu's service, under a loaded machine, may take longer to see the last client go).
    void expectBackToBaseline(size_t extraSlackKiB = 0) {
        const auto settle = kUnderSanitizer || kUnderEmulation ? 10s : 3s;
        EXPECT_TRUE(eventually([&] { return openDescriptors(mService) <= mBaselineFds; }, settle))
                << openDescriptors(mService) << " descriptors, " << mBaselineFds << " before:\n"
                << mBaselineDescriptors << "now:\n"
                << describeDescriptors(mService) << "the service's log:\n"
                << readFile(mLog);
        EXPECT_LE(residentKiB(mService), mBaselineKiB + kResidentSlackKiB + extraSlackKiB)
                << "KiB before: " << mBaselineKiB;
    }

    pid_t mService = -1;
    std::string mLog;
    size_t mBaselineFds = 0;
    std::string mBaselineDescriptors;
    size_t mBaselineKiB = 0;
};

TEST_F(TransportBoundsTest, FramesNoMessageCouldFillCloseOnlyTheirConnection) {
    RawPeer huge;
    ASSERT_TRUE(huge.hello());
    FrameHeader header{};
    header.kind = FrameKind::kCall;
    header.bodyBytes = 0xFFFFFFF8;  // announced, never sent
    ASSERT_TRUE(huge.send(&header, sizeof(header)));
    EXPECT_TRUE(huge.closedWithin(1s));

    // A message whose segment table announces 2^31 words in an eight-byte body.
    RawPeer lying;
    ASSERT_TRUE(lying.hello());
    const uint32_t table[2] = {0, 0x80000000u};
    header.bodyBytes = sizeof(table);
    header.object = 1;
    header.method = kGetFrontendInfo;
    ASSERT_TRUE(lying.send(&header, sizeof(header)) && lying.send(table, sizeof(table)));
    EXPECT_TRUE(lying.closedWithin(1s));

    // Segment counts that lie, in a call and in a oneway call: 0xFFFFFFFF + 1 wraps to no segment
    // at all (the call would run on default parameters); 65 is more than a frame may have; a
    // table whose sizes add up to more, or less, than the body.
    capnp::MallocMessageBuilder params;
    params.initRoot<::wire::tuner::ITunerGetFrontendInfoParams>().setFrontendId(0);
    OutgoingFrame honest;
    ASSERT_TRUE(honest.build(header, &params));
    std::vector<uint64_t> body(honest.bytes() / sizeof(uint64_t) - 3);
    size_t at = 0;
    for (int i = 1; i < honest.iovCount(); ++i) {
        memcpy(reinterpret_cast<char*>(body.data()) + at, honest.iov()[i].iov_base,
               honest.iov()[i].iov_len);
        at += honest.iov()[i].iov_len;
    }
    ASSERT_EQ(reinterpret_cast<uint32_t*>(body.data())[0], 0u) << "one segment";
    const struct {
        const char* name;
        uint32_t segmentsLessOne;
        int sizeChange;
        FrameKind kind;
    } lies[] = {
            {"a count that wraps to none", 0xFFFFFFFFu, 0, FrameKind::kCall},
            {"more segments than a frame may have", 64, 0, FrameKind::kCall},
            {"sizes beyond the body", 0, 1, FrameKind::kCall},
            {"sizes short of the body", 0, -1, FrameKind::kCall},
            {"a oneway call's count that wraps", 0xFFFFFFFFu, 0, FrameKind::kOneway},
    };
    for (const auto& lie : lies) {
        SCOPED_TRACE(lie.name);
        RawPeer peer;
        ASSERT_TRUE(peer.hello());
        std::vector<uint64_t> bent = body;
        auto* table32 = reinterpret_cast<uint32_t*>(bent.data());
        table32[0] = lie.segmentsLessOne;
        table32[1] = uint32_t(int(table32[1]) + lie.sizeChange);
        FrameHeader call = header;
        call.kind = lie.kind;
        call.bodyBytes = uint32_t(bent.size() * sizeof(uint64_t));
        ASSERT_TRUE(peer.send(&call, sizeof(call)) &&
                    peer.send(bent.data(), bent.size() * sizeof(uint64_t)));
        FrameHeader reply{};
        EXPECT_LE(recv(peer.fd(), &reply, sizeof(reply), MSG_WAITALL), 0)
                << "the call was answered, as kind " << int(reply.kind);
        EXPECT_TRUE(peer.closedWithin(1s));
    }
    {
        // The same frame, honest, is answered.
        RawPeer peer;
        ASSERT_TRUE(peer.hello());
        header.kind = FrameKind::kCall;
        ASSERT_TRUE(peer.sendFrame(header, &params));
        FrameHeader reply{};
        ASSERT_EQ(recv(peer.fd(), &reply, sizeof(reply), MSG_WAITALL), ssize_t(sizeof(reply)));
        EXPECT_EQ(reply.kind, FrameKind::kReply);
    }

    EXPECT_TRUE(servesAnotherClient());
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, BytesThatAreNoFramesCloseOnlyTheirConnection) {
    std::mt19937 random(7);
    for (int round = 0; round < 4; ++round) {
        RawPeer garbage;
        if (round % 2 == 1) {
            ASSERT_TRUE(garbage.hello());
        }
        std::vector<uint8_t> bytes(4096);
        for (auto& b : bytes) b = uint8_t(random());
        garbage.send(bytes.data(), bytes.size());
        EXPECT_TRUE(garbage.closedWithin(1s)) << "round " << round;
    }
    EXPECT_TRUE(servesAnotherClient());
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, APeerThatStallsMidFrameIsDroppedAfterTheStallTimeOut) {
    RawPeer stalled;
    ASSERT_TRUE(stalled.hello());
    const auto start = std::chrono::steady_clock::now();
    FrameHeader header{};
    header.kind = FrameKind::kCall;
    header.bodyBytes = 64;
    ASSERT_TRUE(stalled.send(&header, sizeof(header)));  // and no body
    RawPeer silent;                                      // never says which session it joins
    EXPECT_TRUE(stalled.closedWithin(std::chrono::milliseconds(limits::kStallTimeoutMs) + 2s));
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(limits::kStallTimeoutMs));
    EXPECT_TRUE(silent.closedWithin(1s));
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, RequestsWhoseRepliesAreNeverReadCostTheServiceNothingLasting) {
    RawPeer flood;
    ASSERT_TRUE(flood.hello());
    capnp::MallocMessageBuilder params;
    params.initRoot<::wire::tuner::ITunerGetFrontendInfoParams>().setFrontendId(0);
    FrameHeader header{};
    header.kind = FrameKind::kCall;
    header.object = 1;
    header.method = kGetFrontendInfo;
    OutgoingFrame frame;
    ASSERT_TRUE(frame.build(header, &params));
    std::vector<char> bytes;
    for (int i = 0; i < frame.iovCount(); ++i) {
        const char* part = static_cast<const char*>(frame.iov()[i].iov_base);
        bytes.insert(bytes.end(), part, part + frame.iov()[i].iov_len);
    }

    // Other clients are served while the flood goes on.
    std::atomic<bool> flooding{true};
    std::atomic<int> served{0};
    std::thread other([&] {
        while (flooding) served += servesAnotherClient() ? 1 : 0;
    });
    int sent = 0;
    bool dropped = false;
    auto lastProgress = std::chrono::steady_clock::now();
    const auto patience = std::chrono::milliseconds(limits::kStallTimeoutMs) + 2s;
    while (sent < 100000 && !dropped) {
        const ssize_t n = send(flood.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n == ssize_t(bytes.size())) {
            ++sent;
            lastProgress = std::chrono::steady_clock::now();
        } else if (n < 0 && (errno == EPIPE || errno == ECONNRESET)) {
            dropped = true;
        } else if (n > 0 || std::chrono::steady_clock::now() - lastProgress > patience) {
            break;  // a partial frame, or no progress for longer than the service waits
        } else {
            std::this_thread::sleep_for(1ms);
        }
    }
    flooding = false;
    other.join();
    // The service answers until the peer's buffers are full, then waits for it to read; a peer
    // that never does is dropped after the stall time-out.
    EXPECT_TRUE(dropped || flood.closedWithin(3s)) << sent << " requests sent";
    EXPECT_LT(sent, 100000) << "the service kept reading requests whose replies it could not send";
    EXPECT_GT(served.load(), 0);
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, ConnectionsBeyondAPeersShareAreClosedAtOnce) {
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (size_t i = 0; i < limits::kMaxConnectionsPerPeer + 16; ++i) {
        peers.push_back(std::make_unique<RawPeer>());
    }
    // The ones over the share are closed well before the silent ones' time-out.
    size_t closed = 0;
    for (auto& peer : peers) closed += peer->closedWithin(5ms) ? 1 : 0;
    EXPECT_GE(closed, 16u);
    peers.clear();
    EXPECT_TRUE(servesAnotherClient());
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, AProcessHoldingEveryConnectionItCanGetLeavesRoomForOthers) {
    const Hog hog = startHog();
    ASSERT_GT(hog.pid, 0);
    EXPECT_EQ(hog.held, limits::kMaxConnectionsPerPeer);
    EXPECT_TRUE(hog.refusedAsBusy) << "the next connection is told the service is busy";
    EXPECT_TRUE(servesAnotherClient());
    EXPECT_NE(readFile(mLog).find("process " + std::to_string(hog.pid) + " has " +
                                  std::to_string(limits::kMaxConnectionsPerPeer) +
                                  " connections served, refusing more of it"),
              std::string::npos)
            << readFile(mLog);
    endHog(hog);
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, AClientOfAFullServiceIsToldItIsBusyAndServedOnceThereIsRoom) {
    // Processes each holding their share until the service has no room left.
    std::vector<Hog> hogs;
    while (hogs.size() < limits::kMaxConnections / limits::kMaxConnectionsPerPeer + 2) {
        hogs.push_back(startHog());
        if (hogs.back().held < limits::kMaxConnectionsPerPeer) break;
    }
    size_t held = 0;
    for (const Hog& hog : hogs) held += hog.held;
    EXPECT_GE(held + 8, limits::kMaxConnections) << "the listening sockets count too";
    EXPECT_TRUE(hogs.back().refusedAsBusy);

    const pid_t client = forkClient([] {
        if (ITuner::getService() != nullptr) return 1;
        return lastConnectFailure() == ConnectFailure::kBusy ? 0 : 2;
    });
    EXPECT_EQ(waitForChild(client), 0);
    const std::string out = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/tunerctl-busy";
    ProgramRun busy = startProgram({TUNERCTL_BINARY, "frontends"}, out);
    const int status = finishProgram(busy);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
    EXPECT_EQ(readFile(busy.err),
              "the tuner service is busy: it has no room for another connection now (too many "
              "are open); try again later\n");

    for (const Hog& hog : hogs) endHog(hog);
    EXPECT_TRUE(servesAnotherClient());
    ProgramRun served = startProgram({TUNERCTL_BINARY, "frontends"}, out);
    EXPECT_EQ(finishProgram(served), 0) << readFile(served.err);
    expectBackToBaseline();
}

// The most resident memory the service had while `work` ran, sampled every few milliseconds.
size_t peakResidentKiB(pid_t service, const std::function<void()>& work) {
    std::atomic<bool> done{false};
    std::atomic<size_t> peak{0};
    std::thread sampler([&] {
        while (!done) {
            peak = std::max(peak.load(), residentKiB(service));
            std::this_thread::sleep_for(2ms);
        }
    });
    work();
    std::this_thread::sleep_for(20ms);
    done = true;
    sampler.join();
    return peak;
}

// Connections from processes of their own (each within its share), each with `eachPeer` done on
// it; the processes hold them until killed.
std::vector<pid_t> strangers(size_t processes, size_t perProcess,
                             const std::function<bool(RawPeer&, size_t)>& eachPeer) {
    int ready[2];
    if (pipe(ready) != 0) return {};
    std::vector<pid_t> pids;
    for (size_t p = 0; p < processes; ++p) {
        pids.push_back(forkClient([&] {
            std::vector<std::unique_ptr<RawPeer>> peers;
            char done = 1;
            for (size_t i = 0; i < perProcess; ++i) {
                peers.push_back(std::make_unique<RawPeer>());
                if (!eachPeer(*peers.back(), i)) done = 0;
            }
            if (write(ready[1], &done, 1) != 1) return 1;
            pause();
            return 0;
        }));
    }
    for (size_t p = 0; p < processes; ++p) {
        char done = 0;
        if (read(ready[0], &done, 1) != 1 || done != 1) ADD_FAILURE() << "a stranger failed";
    }
    close(ready[0]);
    close(ready[1]);
    return pids;
}

void endAll(const std::vector<pid_t>& pids) {
    for (pid_t pid : pids) kill(pid, SIGKILL);
    for (pid_t pid : pids) waitForChild(pid);
}

// A frame of the largest size a frame may have, announced, and its first bytes.
bool announceAMegabyte(RawPeer& peer, FrameKind kind, size_t sent) {
    FrameHeader header{};
    header.kind = kind;
    header.object = 1;
    header.bodyBytes = uint32_t(limits::kMaxFrameBytes - sizeof(FrameHeader));
    const std::vector<char> bytes(sent, 'x');
    return peer.send(&header, sizeof(header)) &&
           (::send(peer.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0 || errno == EPIPE ||
            errno == ECONNRESET);
}

TEST_F(TransportBoundsTest, StrangersAnnouncingAMegabyteBeforeHelloCostTheServiceNoMemory) {
    constexpr size_t kProcesses = 5;
    constexpr size_t kPerProcess = 50;  // 250 connections, each process within its share
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::vector<pid_t> pids;
        const size_t peak = peakResidentKiB(mService, [&] {
            // As the body of a hello, or as a call before any hello; the service closes each at
            // its header, before the body's bytes are read.
            pids = strangers(kProcesses, kPerProcess, [](RawPeer& peer, size_t i) {
                const FrameKind kind = i % 2 == 0 ? FrameKind::kHello : FrameKind::kCall;
                return announceAMegabyte(peer, kind, 64 * 1024) && peer.closedWithin(2s);
            });
        });
        EXPECT_LE(peak, mBaselineKiB + kResidentSlackKiB) << "KiB before: " << mBaselineKiB;
        endAll(pids);
        EXPECT_TRUE(servesAnotherClient());
        expectBackToBaseline();
    }
}

TEST_F(TransportBoundsTest, AJoinedPeersLargeFrameTakesMemoryOnlyAsItsBytesArrive) {
    constexpr size_t kPeers = 50;
    std::vector<pid_t> pids;
    const size_t peak = peakResidentKiB(mService, [&] {
        // 1 MiB announced, 8 KiB sent: the service holds the connections, stalled.
        pids = strangers(1, kPeers, [](RawPeer& peer, size_t) {
            return peer.hello() && announceAMegabyte(peer, FrameKind::kCall, 8 * 1024);
        });
    });
    EXPECT_LE(peak, mBaselineKiB + kResidentSlackKiB)
            << "KiB before: " << mBaselineKiB << "; " << kPeers << " MiB announced";
    endAll(pids);
    EXPECT_TRUE(servesAnotherClient());
    expectBackToBaseline();
}

TEST_F(TransportBoundsTest, AClientHoldingMoreObjectsThanTheCapLosesOnlyItsOwnSession) {
    pid_t client = forkClient([] {
        sp<ITuner> tuner = ITuner::getService();
        if (tuner == nullptr) return 1;
        // The same object handed out again and again costs nothing more.
        tuner->getFrontendIds([](Result, const ::android::hardware::hidl_vec<uint32_t>&) {});
        for (int i = 0; i < 20000; ++i) {
            if (!tuner->openFrontendById(0, [](Result, const sp<IFrontend>&) {}).isOk()) return 2;
        }
        // A new object each time (demuxes beyond the pool's 40 are placeholders): held, they
        // exceed the cap and the session ends.
        std::vector<sp<IDemux>> held;
        while (held.size() <= limits::kMaxObjectsPerSession + 8) {
            auto status = tuner->openDemux(
                    [&](Result, uint32_t, const sp<IDemux>& demux) { held.push_back(demux); });
            if (!status.isOk()) return held.size() >= limits::kMaxObjectsPerSession - 8 ? 0 : 3;
        }
        return 4;
    });
    EXPECT_EQ(waitForChild(client), 0);
    EXPECT_TRUE(servesAnotherClient());
    // The service closes the 1000 and more demuxes the session held; a sanitizer keeps a record
    // of each lock and atomic those closes touched.
    expectBackToBaseline(kUnderSanitizer ? 8 * 1024 : 0);
}

class TransportDescriptorLimitTest : public TransportBoundsTest {
  protected:
    void SetUp() override { start(48); }
};

TEST_F(TransportDescriptorLimitTest, AcceptingResumesWhenDescriptorsFreeUp) {
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 64; ++i) peers.push_back(std::make_unique<RawPeer>());
    ASSERT_TRUE(eventually(
            [&] { return readFile(mLog).find("accept failed") != std::string::npos; }, 3s))
            << readFile(mLog);
    peers.clear();
    const auto freed = std::chrono::steady_clock::now();
    EXPECT_TRUE(servesAnotherClient());
    EXPECT_LT(std::chrono::steady_clock::now() - freed,
              std::chrono::milliseconds(limits::kAcceptBackoffMaxMs) + 1s);
    // Backing off, not spinning: a handful of warnings, not thousands.
    const std::string log = readFile(mLog);
    size_t warnings = 0;
    for (size_t at = log.find("accept failed"); at != std::string::npos;
         at = log.find("accept failed", at + 1)) {
        ++warnings;
    }
    EXPECT_LT(warnings, 20u) << log;
}

}  // namespace
