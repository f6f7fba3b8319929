// A frontend callback that records every event and scan message; a test may hook scan messages
// to call back into the frontend from inside the callback.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace hal = ::android::hardware::tv::tuner::V1_0;

class RecordingCallback : public hal::IFrontendCallback {
  public:
    using Message = std::pair<hal::FrontendScanMessageType, hal::FrontendScanMessage>;

    ::android::hardware::Return<void> onEvent(hal::FrontendEventType event) override {
        std::lock_guard<std::mutex> guard(mLock);
        mEvents.push_back(event);
        return ::android::hardware::Void();
    }

    ::android::hardware::Return<void> onScanMessage(
            hal::FrontendScanMessageType type, const hal::FrontendScanMessage& message) override {
        std::function<void(const Message&)> hook;
        {
            std::lock_guard<std::mutex> guard(mLock);
            mMessages.emplace_back(type, message);
            hook = mHook;
        }
        if (hook) hook({type, message});
        return ::android::hardware::Void();
    }

    std::vector<hal::FrontendEventType> events() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mEvents;
    }
    std::vector<Message> messages() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mMessages;
    }
    std::vector<hal::FrontendScanMessageType> messageTypes() const {
        std::vector<hal::FrontendScanMessageType> types;
        for (const Message& m : messages()) types.push_back(m.first);
        return types;
    }
    void onMessage(std::function<void(const Message&)> hook) {
        std::lock_guard<std::mutex> guard(mLock);
        mHook = std::move(hook);
    }

  private:
    mutable std::mutex mLock;
    std::vector<hal::FrontendEventType> mEvents;
    std::vector<Message> mMessages;
    std::function<void(const Message&)> mHook;
};
