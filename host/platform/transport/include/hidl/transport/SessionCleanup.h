// What a client leaves behind when its session ends (it exited, was killed, or the transport
// dropped it) is put right through the interface, as the client would have done: on a device the
// framework's tuner service closes what a dead application held; on the host this does.
//
// A package says, per interface of its objects, which calls make an object the session's to put
// right (or whether being handed out does), which calls leave nothing to put right, and how to put
// it right. An object is one session's at a time: the last claiming call wins, so another live
// client's objects are never touched. When a session ends, what it still claims is put right on
// the RPC pool (never on the thread that noticed the end, which may hold the transport's locks or
// run client code), interfaces in ascending `order`.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/transport/Transport.h>

#include <cstdint>
#include <initializer_list>

namespace android {
namespace hardware {
namespace details {

struct SessionCleanup {
    // The interface, by the dispatch its objects are handed out with.
    StubDispatch dispatch = nullptr;
    const char* what = "";  // for the log: "demux"
    int order = 0;
    // The object is the session's from the moment it is handed to it (what an open returns).
    bool claimedWhenHandedOut = false;
    // Calls that make the object the session's (a tune), and calls after which nothing is left
    // to put right (a close); method numbers as the package's transport numbers them.
    static constexpr size_t kMaxMethods = 4;
    uint16_t claiming[kMaxMethods] = {};
    size_t claimingCount = 0;
    uint16_t releasing[kMaxMethods] = {};
    size_t releasingCount = 0;
    void (*putRight)(const sp<::android::hidl::base::V1_0::IBase>& object) = nullptr;

    SessionCleanup& claimedBy(std::initializer_list<uint16_t> methods);
    SessionCleanup& releasedBy(std::initializer_list<uint16_t> methods);
};

// At most kMaxSessionCleanups interfaces; registered before the first session opens.
constexpr size_t kMaxSessionCleanups = 16;
void registerSessionCleanup(const SessionCleanup& entry);

}  // namespace details
}  // namespace hardware
}  // namespace android
