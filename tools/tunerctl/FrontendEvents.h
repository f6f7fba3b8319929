// The callback tunerctl gives a frontend: it keeps every event and scan message, and lets the
// command wait for the next one.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;

class FrontendEvents : public hal::IFrontendCallback {
  public:
    using ScanMessage = std::pair<hal::FrontendScanMessageType, hal::FrontendScanMessage>;

    ::android::hardware::Return<void> onEvent(hal::FrontendEventType event) override {
        std::lock_guard<std::mutex> guard(mLock);
        mEvents.push_back(event);
        mChanged.notify_all();
        return ::android::hardware::Void();
    }

    ::android::hardware::Return<void> onScanMessage(
            hal::FrontendScanMessageType type, const hal::FrontendScanMessage& message) override {
        std::lock_guard<std::mutex> guard(mLock);
        mScanMessages.emplace_back(type, message);
        mChanged.notify_all();
        return ::android::hardware::Void();
    }

    // The next event. A tune sends its event before it returns, but the event is a oneway call
    // that reaches this process's pool a moment later: wait for it, within a bound.
    std::optional<hal::FrontendEventType> takeEvent(
            std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, timeout, [this] { return !mEvents.empty(); });
        if (mEvents.empty()) return std::nullopt;
        hal::FrontendEventType event = mEvents.front();
        mEvents.pop_front();
        return event;
    }

    // The next scan message, waiting at most timeout for it.
    std::optional<ScanMessage> takeScanMessage(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, timeout, [this] { return !mScanMessages.empty(); });
        if (mScanMessages.empty()) return std::nullopt;
        ScanMessage message = std::move(mScanMessages.front());
        mScanMessages.pop_front();
        return message;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<hal::FrontendEventType> mEvents;
    std::deque<ScanMessage> mScanMessages;
};

}  // namespace tunerctl
