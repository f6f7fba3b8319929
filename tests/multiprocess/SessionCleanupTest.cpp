// What a client process leaves behind when it ends (killed, or exiting without closing) is put
// right by the service, as the client would have: its demuxes and descramblers closed, the
// frontends it tuned or scans on stopped. Another live client's objects are never touched.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <gtest/gtest.h>
#include <hidl/DebugDump.h>
#include <hidl/HidlTransportSupport.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "RecordingCallback.h"
#include "ServiceProcess.h"
#include "TestSettings.h"

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using namespace testing_support;
using ::android::sp;
using ::android::hardware::hidl_vec;

constexpr size_t kDemuxIds = 40;  // the service's id pool

sp<ITuner> service() {
    sp<ITuner> tuner;
    eventually([&] { return (tuner = ITuner::getService()) != nullptr; });
    if (tuner != nullptr) tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
    return tuner;
}

sp<IFrontend> open(const sp<ITuner>& tuner, uint32_t id) {
    sp<IFrontend> frontend;
    tuner->openFrontendById(id, [&](Result, const sp<IFrontend>& f) { frontend = f; });
    return frontend;
}

// The id of a newly opened demux, or 0 when the open failed.
uint32_t openDemux(const sp<ITuner>& tuner, sp<IDemux>* kept = nullptr) {
    uint32_t demuxId = 0;
    Result result = Result::UNKNOWN_ERROR;
    tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& demux) {
        result = r;
        demuxId = id;
        if (kept != nullptr) *kept = demux;
    });
    return result == Result::SUCCESS ? demuxId : 0;
}

// Tunes the frontend to a channel on the air and waits for its lock.
bool tuneAndLock(const sp<IFrontend>& frontend, const sp<RecordingCallback>& callback, uint32_t hz) {
    if (frontend == nullptr || frontend->setCallback(callback) != Result::SUCCESS ||
        frontend->tune(dvbt(hz)) != Result::SUCCESS) {
        return false;
    }
    return eventually([&] {
        const auto events = callback->events();
        return !events.empty() && events.back() == FrontendEventType::LOCKED;
    });
}

// The dump's line of one frontend.
std::string frontendLine(const std::string& dump, uint32_t id) {
    const size_t at = dump.find("frontend " + std::to_string(id) + ": ");
    return at == std::string::npos ? "" : dump.substr(at, dump.find('\n', at) - at);
}

class SessionCleanupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mLog = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/cleanup.log";
        mService = spawnService(mLog);
        ASSERT_TRUE(eventually([] {
            pid_t probe = forkClient([] { return ITuner::getService() != nullptr ? 0 : 1; });
            return waitForChild(probe) == 0;
        })) << readFile(mLog);
    }
    void TearDown() override {
        kill(mService, SIGTERM);
        waitForChild(mService);
    }
    // The test process as a client of its own (its children fork before it becomes one).
    sp<ITuner> becomeClient() {
        ::android::hardware::configureRpcThreadpool(2, false);
        return service();
    }
    // Runs body in a client process that says "ready" through a pipe, then waits to be killed;
    // `meanwhile` runs before the kill.
    pid_t clientKilledWhenReady(const std::function<bool()>& body,
                                const std::function<void()>& meanwhile) {
        int ready[2];
        if (pipe(ready) != 0) return -1;
        const pid_t client = forkClient([&] {
            const char byte = body() ? 1 : 0;
            if (write(ready[1], &byte, 1) != 1) return 1;
            pause();
            return 0;
        });
        char byte = 0;
        const bool ok = read(ready[0], &byte, 1) == 1 && byte == 1;
        close(ready[0]);
        close(ready[1]);
        if (ok) meanwhile();
        kill(client, SIGKILL);
        waitForChild(client);
        return ok ? client : -1;
    }
    std::string dump(const sp<ITuner>& tuner) { return ::android::hardware::debugDump(tuner); }

    std::string mLog;
    pid_t mService = -1;
};

TEST_F(SessionCleanupTest, AKilledClientsDemuxesAreClosedForTheNextClientAtOnce) {
    // Held until the kill.
    static std::vector<sp<IDemux>> held;
    int othersRefused = -1;
    const pid_t killed = clientKilledWhenReady(
            [] {
                sp<ITuner> tuner = service();
                held.resize(kDemuxIds);
                for (auto& demux : held) {
                    if (tuner == nullptr || openDemux(tuner, &demux) == 0) return false;
                }
                return true;
            },
            [&] {
                // Every id is taken: another client's open fails.
                othersRefused = waitForChild(forkClient([] {
                    sp<ITuner> tuner = service();
                    return tuner != nullptr && openDemux(tuner) == 0 ? 0 : 1;
                }));
            });
    ASSERT_GT(killed, 0) << "the client could not take every demux id";
    EXPECT_EQ(othersRefused, 0);
    // The next client, at once: no restart of the service. The service learns of the death as
    // binder's death notices come, a moment after it: the open may be tried again for that moment.
    const pid_t next = forkClient([] {
        sp<ITuner> tuner = service();
        uint32_t id = 0;
        // A moment: 1 s natively, longer where a sanitizer or qemu slows every process down.
        const auto moment = kUnderSanitizer || kUnderEmulation ? 5s : 1s;
        eventually([&] { return tuner != nullptr && (id = openDemux(tuner)) != 0; }, moment);
        return id == 1 ? 0 : 1;
    });
    EXPECT_EQ(waitForChild(next), 0) << readFile(mLog);
    EXPECT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(killed) +
                                   " is gone; put right what it left: 40 demux") !=
               std::string::npos;
    })) << readFile(mLog);
}

TEST_F(SessionCleanupTest, AClientExitingWithoutClosingLeavesNothingRunningOrOpen) {
    const pid_t client = forkClient([] {
        sp<ITuner> tuner = service();
        if (tuner == nullptr) return 1;
        sp<IDemux> demux;
        if (openDemux(tuner, &demux) == 0 || demux->setFrontendDataSource(0) != Result::SUCCESS) {
            return 2;
        }
        Result opened = Result::UNKNOWN_ERROR;
        sp<IDescrambler> descrambler;
        tuner->openDescrambler([&](Result r, const sp<IDescrambler>& d) {
            opened = r;
            descrambler = d;
        });
        if (opened != Result::SUCCESS) return 3;
        if (!tuneAndLock(open(tuner, 0), new RecordingCallback(), 482000000)) return 4;
        // A blind sweep of the whole band: it would outlive this process.
        sp<IFrontend> sweeping = open(tuner, 2);
        if (sweeping->setCallback(new RecordingCallback()) != Result::SUCCESS ||
            sweeping->scan(dvbc(47000000, 6875000), FrontendScanType::SCAN_BLIND) !=
                    Result::SUCCESS) {
            return 5;
        }
        _exit(0);  // with everything held, nothing closed or stopped
    });
    ASSERT_EQ(waitForChild(client), 0) << readFile(mLog);
    sp<ITuner> tuner = becomeClient();
    ASSERT_NE(tuner, nullptr);
    EXPECT_TRUE(eventually([&] {
        const std::string now = dump(tuner);
        return now.find("demuxes open: none") != std::string::npos &&
               frontendLine(now, 0).find("locked no, scan running no") != std::string::npos &&
               frontendLine(now, 2).find("scan running no") != std::string::npos;
    })) << dump(tuner);
    EXPECT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(client) +
                                   " is gone; put right what it left: 1 demux, 1 descrambler, 2 "
                                   "frontend") != std::string::npos;
    })) << readFile(mLog);
    EXPECT_EQ(openDemux(tuner), 1u) << "the lowest id is free again";
}

TEST_F(SessionCleanupTest, ALiveClientsObjectsAreLeftAloneWhileADeadOnesArePutRight) {
    int tuned[2];
    int takenOver[2];
    ASSERT_EQ(pipe(tuned), 0);
    ASSERT_EQ(pipe(takenOver), 0);
    // The dead client tunes frontends 0 and 1 and takes demux ids 2..40 (the live client holds 1);
    // the live client then tunes frontend 0 itself, and only frontend 1 stays the dead one's.
    sp<ITuner> tuner;
    sp<IDemux> liveDemux;
    sp<IFrontend> liveFrontend;
    sp<RecordingCallback> liveCallback = new RecordingCallback();
    int dyingStatus = 0;
    const pid_t dying = forkClient([&] {
        sp<ITuner> own = service();
        char byte = 0;
        if (own == nullptr || read(takenOver[0], &byte, 1) != 1) return 1;  // demux 1 is taken
        std::vector<sp<IDemux>> held(kDemuxIds - 1);
        for (auto& demux : held) {
            if (openDemux(own, &demux) == 0) return 2;
        }
        if (!tuneAndLock(open(own, 0), new RecordingCallback(), 482000000) ||
            !tuneAndLock(open(own, 1), new RecordingCallback(), 650000000)) {
            return 3;
        }
        // It only watches frontend 3.
        open(own, 3)->getStatus({FrontendStatusType::DEMOD_LOCK},
                                [](Result, const hidl_vec<FrontendStatus>&) {});
        byte = 1;
        if (write(tuned[1], &byte, 1) != 1) return 4;
        pause();
        return held.empty() ? 5 : 0;
    });
    tuner = becomeClient();
    ASSERT_NE(tuner, nullptr);
    ASSERT_EQ(openDemux(tuner, &liveDemux), 1u);
    char byte = 1;
    ASSERT_EQ(write(takenOver[1], &byte, 1), 1);
    ASSERT_EQ(read(tuned[0], &byte, 1), 1) << readFile(mLog);
    liveFrontend = open(tuner, 0);
    ASSERT_TRUE(tuneAndLock(liveFrontend, liveCallback, 482000000));
    kill(dying, SIGKILL);
    dyingStatus = waitForChild(dying);
    EXPECT_TRUE(WIFSIGNALED(dyingStatus)) << dyingStatus;

    // Once the service has put right what the dead client left (its demuxes and frontend 1)...
    EXPECT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(dying) +
                                   " is gone; put right what it left: 39 demux, 1 frontend") !=
               std::string::npos;
    })) << readFile(mLog);
    // ... the lowest free id is 2, so the live client's 1 was not closed, and its frontend 0
    // stays locked.
    EXPECT_EQ(openDemux(tuner), 2u) << readFile(mLog);
    const std::string after = dump(tuner);
    EXPECT_NE(frontendLine(after, 1).find("locked no"), std::string::npos) << after;
    EXPECT_NE(frontendLine(after, 0).find("locked yes"), std::string::npos) << after;
    EXPECT_EQ(liveCallback->events().back(), FrontendEventType::LOCKED);
    // The live demux still works, and its close frees its own id.
    EXPECT_EQ(liveDemux->setFrontendDataSource(0), Result::SUCCESS);
    EXPECT_EQ(liveDemux->close(), Result::SUCCESS);
    EXPECT_EQ(openDemux(tuner), 1u);
}

// What a client closed itself is not closed again when it goes: a demux id it gave back and
// another client took stays the other client's. A demux a client lets go of without closing it
// is closed then (nothing could reach it any more).
TEST_F(SessionCleanupTest, WhatAClientClosedItselfIsNotClosedAgainAndWhatItLetGoOfIs) {
    int closed[2];
    ASSERT_EQ(pipe(closed), 0);
    const pid_t client = forkClient([&] {
        sp<ITuner> own = service();
        sp<IDemux> demux;  // held, closed: its object lives on in this process
        if (own == nullptr || openDemux(own, &demux) != 1 || demux->close() != Result::SUCCESS) {
            return 1;
        }
        sp<IFrontend> frontend = open(own, 0);
        if (!tuneAndLock(frontend, new RecordingCallback(), 482000000) ||
            frontend->stopTune() != Result::SUCCESS) {
            return 2;
        }
        char byte = 1;
        if (write(closed[1], &byte, 1) != 1) return 3;
        pause();
        return 0;
    });
    char byte = 0;
    ASSERT_EQ(read(closed[0], &byte, 1), 1);
    sp<ITuner> tuner = becomeClient();
    ASSERT_NE(tuner, nullptr);
    sp<IDemux> mine;
    ASSERT_EQ(openDemux(tuner, &mine), 1u) << "the id the client gave back";
    sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_TRUE(tuneAndLock(open(tuner, 0), callback, 482000000));
    kill(client, SIGKILL);
    waitForChild(client);
    // Its end has been handled once a client that ended after it was.
    const pid_t marker = forkClient([] {
        sp<ITuner> own = service();
        sp<IDemux> demux;
        return own != nullptr && openDemux(own, &demux) == 2 ? 0 : 1;  // and exits holding it
    });
    ASSERT_EQ(waitForChild(marker), 0);
    ASSERT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(marker) + " ") != std::string::npos;
    })) << readFile(mLog);
    EXPECT_EQ(readFile(mLog).find("client " + std::to_string(client) + " "), std::string::npos)
            << "nothing of it was left to put right\n"
            << readFile(mLog);
    EXPECT_NE(dump(tuner).find("demuxes open: 1\n"), std::string::npos) << dump(tuner);
    EXPECT_EQ(mine->setFrontendDataSource(0), Result::SUCCESS);
    EXPECT_NE(frontendLine(dump(tuner), 0).find("locked yes"), std::string::npos);

    // Let go of without a close: closed, its id free again.
    ASSERT_EQ(openDemux(tuner), 2u);  // the proxy goes at once
    EXPECT_TRUE(eventually([&] {
        return dump(tuner).find("demuxes open: 1\n") != std::string::npos;
    })) << dump(tuner);
    EXPECT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(getpid()) +
                                   " let go without closing; closed: 1 demux") != std::string::npos;
    })) << readFile(mLog);
}

}  // namespace
