// The transport within one process: a callback published here and reached through a socket, as
// the service reaches a client's callback.
#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Transport.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "RecordingCallback.h"

namespace {

using namespace ::android::hardware::details;
using namespace std::chrono_literals;
using ::android::sp;

// Records scan messages; the first one blocks until the test opens the gate.
class GatedCallback : public RecordingCallback {
  public:
    GatedCallback() {
        onMessage([this](const Message&) {
            std::unique_lock<std::mutex> guard(mGateLock);
            mGate.wait(guard, [&] { return mOpen; });
        });
    }
    void open() {
        std::lock_guard<std::mutex> guard(mGateLock);
        mOpen = true;
        mGate.notify_all();
    }

  private:
    std::mutex mGateLock;
    std::condition_variable mGate;
    bool mOpen = false;
};

sp<hal::IFrontendCallback> publishAndReach(const sp<hal::IFrontendCallback>& target,
                                           const std::string& name) {
    if (publishService(target, hal::IFrontendCallback::descriptor, name) != ::android::OK) {
        return nullptr;
    }
    return hal::IFrontendCallback::castFrom(
            connectToService(hal::IFrontendCallback::descriptor, name));
}

bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(TransportTest, OnewayCallsWaitBehindASlowOneInOrderWithTheQueueBounded) {
    // Pool threads to spare beside the one the slow callback holds: reading goes on meanwhile.
    ::android::hardware::configureRpcThreadpool(4, false);
    sp<GatedCallback> target = new GatedCallback();
    sp<hal::IFrontendCallback> across = publishAndReach(target, "gated");
    ASSERT_NE(across, nullptr);
    ASSERT_TRUE(across->isRemote());

    const int kSent = int(limits::kMaxQueuedOneway) * 8;
    std::atomic<int> sent{0};
    std::thread sender([&] {
        for (int i = 0; i < kSent; ++i) {
            hal::FrontendScanMessage message;
            message.frequencies({uint32_t(i)});
            ASSERT_TRUE(
                    across->onScanMessage(hal::FrontendScanMessageType::FREQUENCY, message).isOk());
            ++sent;
        }
    });
    ASSERT_TRUE(eventually([&] { return target->messages().size() == 1; }));
    // The receiving side stops reading once its queue is full; the sender then waits on the
    // socket instead of the receiver's memory growing.
    std::this_thread::sleep_for(200ms);
    EXPECT_LT(sent.load(), kSent);
    target->open();
    sender.join();
    ASSERT_TRUE(eventually([&] { return target->messages().size() == size_t(kSent); }));
    const auto messages = target->messages();
    for (int i = 0; i < kSent; ++i) {
        ASSERT_EQ(messages[size_t(i)].second.frequencies()[0], uint32_t(i)) << "in order";
    }
}

TEST(TransportTest, OneProxyPerRemoteObjectAndBaseMethodsCross) {
    sp<RecordingCallback> target = new RecordingCallback();
    sp<hal::IFrontendCallback> first = publishAndReach(target, "identity");
    ASSERT_NE(first, nullptr);
    sp<hal::IFrontendCallback> second = hal::IFrontendCallback::castFrom(
            connectToService(hal::IFrontendCallback::descriptor, "identity"));
    EXPECT_EQ(first.get(), second.get()) << "the same object, the same proxy";
    EXPECT_TRUE(first->ping().isOk());
    std::string descriptor;
    first->interfaceDescriptor([&](const auto& d) { descriptor = d; });
    EXPECT_EQ(descriptor, hal::IFrontendCallback::descriptor);
    ASSERT_TRUE(first->onEvent(hal::FrontendEventType::LOCKED).isOk());
    EXPECT_TRUE(eventually([&] { return target->events().size() == 1; }));
}

TEST(TransportTest, AServiceNobodyPublishedIsNotFound) {
    EXPECT_EQ(connectToService(hal::IFrontendCallback::descriptor, "nobody"), nullptr);
}

}  // namespace
