// Every call tunerctl makes to the service goes through call(): it waits at most the --timeout
// for its answer, and a service that died or vanished ends tunerctl with exit code 3 and one line
// (JSON with --json), never with an abort.
#pragma once

#include <hidl/Status.h>

#include <chrono>
#include <string>
#include <type_traits>

namespace tunerctl {

// How long any one answer of the service may take (--timeout; 10 s unless set).
void setCallTimeout(std::chrono::milliseconds timeout);

[[noreturn]] void serviceLost(const std::string& during);

// While it lives, tunerctl ends with exit code 3 if the service has not answered in time.
class CallDeadline {
  public:
    explicit CallDeadline(const char* what);
    ~CallDeadline();
    CallDeadline(const CallDeadline&) = delete;
    CallDeadline& operator=(const CallDeadline&) = delete;

  private:
    const char* mPrevious;
};

// Runs one call of the service and returns what it returned, its transport status checked.
template <typename F>
auto call(const char* what, F&& f) {
    CallDeadline deadline(what);
    auto result = f();
    if (!result.isOk()) serviceLost(what);
    if constexpr (!std::is_same_v<decltype(result), ::android::hardware::Return<void>>) {
        return result.withDefault({});
    }
}

}  // namespace tunerctl
