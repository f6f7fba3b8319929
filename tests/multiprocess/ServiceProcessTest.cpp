// The service binary as a process of its own, driven by client processes through the interface.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <gtest/gtest.h>
#include <hidl/DebugDump.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Transport.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "RecordingCallback.h"
#include "ServiceProcess.h"
#include "TestSettings.h"

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_vec;
using namespace std::chrono_literals;

using namespace testing_support;

// How long the service may take to end on SIGTERM (a sanitizer's exit report takes longer).
constexpr auto kExitBound = kUnderSanitizer || kUnderEmulation ? 1000ms : 100ms;

std::string dumpOf(const sp<ITuner>& tuner) {
    return ::android::hardware::debugDump(tuner);
}

sp<IFrontend> open(const sp<ITuner>& tuner, uint32_t id) {
    tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
    sp<IFrontend> frontend;
    tuner->openFrontendById(id, [&](Result, const sp<IFrontend>& f) { frontend = f; });
    return frontend;
}

class ServiceProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mLog = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/service.log";
        mService = spawnService(mLog);
        ASSERT_GT(mService, 0);
        // The test process becomes a client only where a test says so: its forked children
        // start sessions of their own.
    }
    void TearDown() override {
        if (mService > 0) {
            kill(mService, SIGTERM);
            const int status = waitForChild(mService);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
                    << "SIGTERM ends the service with 0; status " << status << "\n"
                    << readFile(mLog);
        }
    }
    // Becomes a client of the running service.
    sp<ITuner> connect() {
        ::android::hardware::configureRpcThreadpool(2, false);
        sp<ITuner> tuner;
        eventually([&] { return (tuner = ITuner::getService("default")) != nullptr; });
        return tuner;
    }

    std::string mLog;
    pid_t mService = -1;
};

TEST_F(ServiceProcessTest, ClientsOnDifferentFrontendsEachSeeOnlyTheirOwnEvents) {
    auto tuneClient = [](uint32_t id, FrontendSettings settings) {
        return [id, settings]() {
            sp<ITuner> tuner;
            if (!eventually([&] { return (tuner = ITuner::getService()) != nullptr; })) return 10;
            sp<IFrontend> frontend = open(tuner, id);
            sp<RecordingCallback> callback = new RecordingCallback();
            if (frontend == nullptr || frontend->setCallback(callback) != Result::SUCCESS)
                return 11;
            if (frontend->tune(settings) != Result::SUCCESS) return 12;
            if (!eventually([&] { return !callback->events().empty(); })) return 13;
            std::this_thread::sleep_for(50ms);  // room for an event that should not come
            if (callback->events() != std::vector<FrontendEventType>{FrontendEventType::LOCKED}) {
                for (auto e : callback->events()) {
                    fprintf(stderr, "frontend %u: %s\n", id, toString(e).c_str());
                }
                return 14;
            }
            hidl_vec<FrontendStatusType> types{FrontendStatusType::DEMOD_LOCK};
            bool locked = false;
            frontend->getStatus(types, [&](Result, const hidl_vec<FrontendStatus>& s) {
                locked = s.size() == 1 && s[0].isDemodLocked();
            });
            return locked ? 0 : 15;
        };
    };
    auto scanClient = []() {
        sp<ITuner> tuner;
        if (!eventually([&] { return (tuner = ITuner::getService()) != nullptr; })) return 20;
        sp<IFrontend> frontend = open(tuner, 2);
        sp<RecordingCallback> callback = new RecordingCallback();
        frontend->setCallback(callback);
        if (frontend->scan(dvbc(306000000, 6875000), FrontendScanType::SCAN_AUTO) !=
            Result::SUCCESS) {
            return 21;
        }
        if (!eventually([&] { return !callback->messages().empty(); })) return 22;
        frontend->stopScan();
        return callback->events().empty() ? 0 : 23;  // a scan's messages, no tune events
    };
    auto lnbClient = []() {
        sp<ITuner> tuner;
        if (!eventually([&] { return (tuner = ITuner::getService()) != nullptr; })) return 30;
        tuner->getFrontendIds([](Result, const hidl_vec<uint32_t>&) {});
        sp<ILnb> lnb;
        tuner->openLnbById(0, [&](Result, const sp<ILnb>& l) { lnb = l; });
        if (lnb == nullptr) return 31;
        if (lnb->setVoltage(LnbVoltage::VOLTAGE_18V) != Result::SUCCESS) return 32;
        if (lnb->sendDiseqcMessage({0xE0, 0x10, 0x38, 0xF0}) != Result::SUCCESS) return 33;
        uint32_t demuxId = 0;
        sp<IDemux> demux;
        tuner->openDemux([&](Result, uint32_t id, const sp<IDemux>& d) {
            demuxId = id;
            demux = d;
        });
        if (demux == nullptr || demux->setFrontendDataSource(3) != Result::SUCCESS) return 34;
        return dumpOf(tuner).find("3->" + std::to_string(demuxId)) != std::string::npos ? 0 : 35;
    };
    pid_t clients[] = {forkClient(tuneClient(0, dvbt(482000000))),
                       forkClient(tuneClient(1, dvbt(650000000))), forkClient(scanClient),
                       forkClient(lnbClient)};
    for (pid_t client : clients) {
        const int status = waitForChild(client);
        EXPECT_TRUE(WIFEXITED(status)) << "client " << client << " status " << status;
        EXPECT_EQ(WEXITSTATUS(status), 0) << "client " << client;
    }
}

// The service's state outlives a client that only looked at it: a lock another client made stays
// when that client goes (what a client made itself ends with it: SessionCleanupTest).
TEST_F(ServiceProcessTest, StateOutlivesAClientThatOnlyLookedAtIt) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    sp<IFrontend> frontend = open(tuner, 0);
    sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(frontend->setCallback(callback), Result::SUCCESS);
    ASSERT_EQ(frontend->tune(dvbt(482000000)), Result::SUCCESS);
    ASSERT_TRUE(eventually([&] { return !callback->events().empty(); }));
    pid_t client = forkClient([] {
        sp<ITuner> own = ITuner::getService();
        if (own == nullptr) return 1;
        sp<IFrontend> watched = open(own, 0);
        bool locked = false;
        watched->getStatus({FrontendStatusType::DEMOD_LOCK},
                           [&](Result, const hidl_vec<FrontendStatus>& s) {
                               locked = s.size() == 1 && s[0].isDemodLocked();
                           });
        static sp<IDemux> demux;  // left open: its close marks the client's end as handled
        own->openDemux([](Result, uint32_t, const sp<IDemux>& d) { demux = d; });
        _exit(locked && demux != nullptr ? 0 : 2);
    });
    ASSERT_EQ(waitForChild(client), 0);
    ASSERT_TRUE(eventually([&] {
        return readFile(mLog).find("client " + std::to_string(client) + " is gone") !=
               std::string::npos;
    })) << readFile(mLog);
    EXPECT_NE(dumpOf(tuner).find("frontend 0: type DVBT, locked yes"), std::string::npos)
            << dumpOf(tuner);
}

TEST_F(ServiceProcessTest, AClientKilledDuringAScanLeavesTheServiceServingOthers) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t client = forkClient([&] {
        sp<ITuner> tuner;
        if (!eventually([&] { return (tuner = ITuner::getService()) != nullptr; })) return 1;
        sp<IFrontend> frontend = open(tuner, 2);
        frontend->setCallback(new RecordingCallback());
        // A blind sweep of the whole band: it outlives this process.
        frontend->scan(dvbc(47000000, 6875000), FrontendScanType::SCAN_BLIND);
        char byte = 1;
        if (write(ready[1], &byte, 1) != 1) return 2;
        pause();
        return 0;
    });
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    kill(client, SIGKILL);
    waitForChild(client);

    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    EXPECT_TRUE(tuner->ping().isOk());
    // The dead client's scan goes on sending to nobody; the service ignores the failed calls.
    sp<IFrontend> frontend = open(tuner, 0);
    sp<RecordingCallback> callback = new RecordingCallback();
    frontend->setCallback(callback);
    ASSERT_EQ(frontend->tune(dvbt(482000000)), Result::SUCCESS);
    EXPECT_TRUE(eventually([&] { return !callback->events().empty(); }));
    sp<IFrontend> scanned = open(tuner, 2);
    EXPECT_EQ(scanned->stopScan(), Result::SUCCESS);
    EXPECT_NE(dumpOf(tuner).find("frontend 2: type DVBC, locked no, scan running no"),
              std::string::npos);
}

struct DeathRecipient : ::android::hardware::hidl_death_recipient {
    std::atomic<int> deaths{0};
    std::atomic<uint64_t> cookie{0};
    void serviceDied(uint64_t c, const ::android::wp<::android::hidl::base::V1_0::IBase>&) override {
        cookie = c;
        ++deaths;
    }
};

TEST_F(ServiceProcessTest, TheServiceDyingFailsTheClientsCallsAndTellsItsDeathRecipient) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    sp<IFrontend> frontend = open(tuner, 0);
    ASSERT_NE(frontend, nullptr);
    sp<DeathRecipient> recipient = new DeathRecipient();
    ASSERT_TRUE(tuner->linkToDeath(recipient, 42).withDefault(false));

    std::atomic<bool> failed{false};
    std::string description;
    std::thread client([&] {
        while (!failed) {
            auto result = frontend->tune(dvbt(482000000));
            if (!result.isOk()) {
                description = result.description();
                failed = true;
            }
        }
    });
    std::this_thread::sleep_for(20ms);
    kill(mService, SIGKILL);
    waitForChild(mService);
    mService = -1;
    EXPECT_TRUE(eventually([&] { return failed.load(); })) << "a call to a dead process fails";
    if (!failed) {
        failed = true;  // end the client thread either way
    }
    client.join();
    EXPECT_FALSE(description.empty());
    EXPECT_TRUE(eventually([&] { return recipient->deaths == 1; }));
    EXPECT_EQ(recipient->cookie, 42u);
    EXPECT_FALSE(tuner->ping().isOk());

    // The dead service's socket is a stale entry: nobody answers on it, and a new instance
    // registers over it.
    EXPECT_EQ(ITuner::getService(), nullptr);
    mService = spawnService(mLog);
    sp<ITuner> restarted;
    EXPECT_TRUE(eventually([&] { return (restarted = ITuner::getService()) != nullptr; }));
    EXPECT_TRUE(restarted != nullptr && restarted->ping().isOk());
}

TEST_F(ServiceProcessTest, ASecondInstanceAbortsOnItsRefusedRegistration) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr) << "the first instance is registered";
    const std::string secondLog = std::string(getenv("MOX_HIDL_SERVICE_DIR")) + "/second.log";
    pid_t second = spawnService(secondLog);
    const int status = waitForChild(second);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
    EXPECT_NE(readFile(secondLog).find("Error while registering tuner service: -17"),
              std::string::npos)
            << readFile(secondLog);
    EXPECT_TRUE(tuner->ping().isOk()) << "the first instance serves on";
}

TEST_F(ServiceProcessTest, BaseMethodsWorkAcrossProcesses) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    EXPECT_TRUE(tuner->isRemote());
    EXPECT_TRUE(tuner->ping().isOk());
    std::string descriptor;
    tuner->interfaceDescriptor([&](const auto& d) { descriptor = d; });
    EXPECT_EQ(descriptor, "android.hardware.tv.tuner@1.0::ITuner");
    std::vector<std::string> chain;
    tuner->interfaceChain([&](const hidl_vec<::android::hardware::hidl_string>& c) {
        for (const auto& d : c) chain.push_back(d);
    });
    EXPECT_EQ(chain, (std::vector<std::string>{"android.hardware.tv.tuner@1.0::ITuner",
                                               "android.hidl.base@1.0::IBase"}));
    EXPECT_NE(dumpOf(tuner).find("frontends: "), std::string::npos);
    sp<IFrontend> frontend = open(tuner, 0);
    ASSERT_NE(frontend, nullptr);
    EXPECT_TRUE(frontend->isRemote());
    sp<DeathRecipient> recipient = new DeathRecipient();
    EXPECT_TRUE(frontend->linkToDeath(recipient, 1).withDefault(false));
    EXPECT_TRUE(frontend->unlinkToDeath(recipient).withDefault(false));
}

TEST_F(ServiceProcessTest, AClientThatForksHasParentAndChildServedOnConnectionsOfTheirOwn) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    sp<IFrontend> frontend = open(tuner, 0);
    ASSERT_NE(frontend, nullptr);
    pid_t child = forkClient([&] {
        // The parent's objects stay the parent's: a call on them fails at once.
        if (tuner->ping().isOk() || frontend->stopTune().isOk()) return 1;
        sp<ITuner> own = ITuner::getService();
        if (own == nullptr || own.get() == tuner.get()) return 2;
        sp<IFrontend> ownFrontend = open(own, 1);
        sp<RecordingCallback> callback = new RecordingCallback();
        if (ownFrontend == nullptr || ownFrontend->setCallback(callback) != Result::SUCCESS) {
            return 3;
        }
        if (ownFrontend->tune(dvbt(650000000)) != Result::SUCCESS) return 4;
        return eventually([&] { return !callback->events().empty(); }) ? 0 : 5;
    });
    sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(frontend->setCallback(callback), Result::SUCCESS);
    EXPECT_EQ(frontend->tune(dvbt(482000000)), Result::SUCCESS);
    EXPECT_TRUE(eventually([&] { return !callback->events().empty(); }));
    EXPECT_EQ(waitForChild(child), 0);
    EXPECT_TRUE(tuner->ping().isOk());
}

TEST_F(ServiceProcessTest, SigtermUnregistersTheServiceAndEndsItAtOnce) {
    sp<ITuner> tuner = connect();
    ASSERT_NE(tuner, nullptr);
    sp<IFrontend> frontend = open(tuner, 0);  // a live session with objects handed out
    ASSERT_NE(frontend, nullptr);
    const std::string socket =
            ::android::hardware::details::serviceSocketPath(ITuner::descriptor, "default");
    ASSERT_EQ(access(socket.c_str(), F_OK), 0);
    const auto start = std::chrono::steady_clock::now();
    kill(mService, SIGTERM);
    const int status = waitForChild(mService);
    const auto took = std::chrono::steady_clock::now() - start;
    mService = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_LT(took, kExitBound) << std::chrono::duration<double, std::milli>(took).count() << " ms";
    EXPECT_NE(access(socket.c_str(), F_OK), 0) << "the socket is gone";
    EXPECT_FALSE(tuner->ping().isOk());
}

}  // namespace
