// Host stand-in for libhidlbase's Status.h: transport status and the Return<> wrapper that every
// HIDL method returns.
#pragma once

#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <string>
#include <utility>

namespace android {
namespace hardware {

class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode, const char* message = nullptr);
    static Status fromStatusT(status_t status);

    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    const std::string& exceptionMessage() const { return mMessage; }
    status_t transactionError() const {
        return mException == EX_TRANSACTION_FAILED ? mErrorCode : OK;
    }
    std::string description() const;

  private:
    int32_t mException = EX_NONE;
    status_t mErrorCode = OK;
    std::string mMessage;
};

namespace details {
class return_status {
  public:
    return_status() = default;
    return_status(const Status& status) : mStatus(status) {}
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    return_status(return_status&&) = default;
    return_status& operator=(return_status&&) = default;

    bool isOk() const { return mStatus.isOk(); }
    bool isOkUnchecked() const { return mStatus.isOk(); }
    bool isDeadObject() const { return mStatus.transactionError() == DEAD_OBJECT; }
    std::string description() const { return mStatus.description(); }
    void assertOk() const;

  private:
    Status mStatus;
};
}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}
    Return(const Status& status) : details::return_status(status), mValue() {}

    T withDefault(T defaultValue) const { return isOk() ? mValue : defaultValue; }
    operator T() const {
        assertOk();
        return mValue;
    }

  private:
    T mValue;
};

template <typename T>
class Return<sp<T>> : public details::return_status {
  public:
    Return(sp<T> value) : mValue(std::move(value)) {}
    Return(T* value) : mValue(value) {}
    template <typename U>
    Return(const sp<U>& value) : mValue(value) {}
    template <typename U>
    Return(U* value) : mValue(value) {}
    Return(const Status& status) : details::return_status(status) {}

    sp<T> withDefault(sp<T> defaultValue) const { return isOk() ? mValue : defaultValue; }
    operator sp<T>() const {
        assertOk();
        return mValue;
    }

  private:
    sp<T> mValue;
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : details::return_status(status) {}
};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
