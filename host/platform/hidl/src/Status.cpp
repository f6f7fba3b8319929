#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <log/log.h>

#include <cstdlib>

namespace android {
namespace hardware {

namespace details {
void return_status::assertOk() const {
    if (!isOk()) {
        __android_log_assert(nullptr, "HidlStatus",
                             "Attempted to retrieve value from failed HIDL "
                             "call: %s",
                             description().c_str());
    }
}
}  // namespace details

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    Status status;
    status.mException = exceptionCode;
    status.mMessage = message == nullptr ? "" : message;
    return status;
}

Status Status::fromStatusT(status_t status) {
    Status result;
    if (status != OK) {
        result.mException = EX_TRANSACTION_FAILED;
        result.mErrorCode = status;
    }
    return result;
}

std::string Status::description() const {
    if (isOk()) return "No error";
    std::string text = "Status(" + std::to_string(mException) + ")";
    if (mException == EX_TRANSACTION_FAILED) {
        text += mErrorCode == DEAD_OBJECT ? std::string(
                                                    ": DEAD_OBJECT (the process behind the "
                                                    "object died)")
                                          : ": " + std::to_string(mErrorCode);
    }
    if (!mMessage.empty()) text += ": '" + mMessage + "'";
    return text;
}

}  // namespace hardware
}  // namespace android
