// Host stand-in for libhidlbase's HidlInternal.h: the small helpers generated code calls into.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace android {
namespace hardware {
namespace details {

// Tags generated interface classes carry so that templates can tell them apart.
struct i_tag {};
struct bs_tag {};

// Logs at FATAL and aborts, as the platform does on a broken invariant in generated code.
[[noreturn]] void logAlwaysFatal(const char* message);

// A pointer padded to 64 bits, so that the types holding one have the same layout in 32-bit and
// 64-bit processes.
template <typename T>
union hidl_pointer {
    hidl_pointer() : _pad(0) {}
    hidl_pointer(T* ptr) : hidl_pointer() { mPointer = ptr; }
    hidl_pointer(const hidl_pointer<T>& other) : hidl_pointer() { mPointer = other.mPointer; }
    hidl_pointer(hidl_pointer<T>&& other) noexcept : hidl_pointer() { *this = other; }

    hidl_pointer& operator=(const hidl_pointer<T>& other) {
        mPointer = other.mPointer;
        return *this;
    }
    hidl_pointer& operator=(hidl_pointer<T>&& other) noexcept {
        mPointer = other.mPointer;
        return *this;
    }
    hidl_pointer& operator=(T* ptr) {
        mPointer = ptr;
        return *this;
    }

    operator T*() const { return mPointer; }
    explicit operator void*() const { return mPointer; }
    T& operator*() const { return *mPointer; }
    T* operator->() const { return mPointer; }
    T& operator[](size_t index) { return mPointer[index]; }
    const T& operator[](size_t index) const { return mPointer[index]; }

  private:
    T* mPointer;
    uint64_t _pad;
};

template <typename T>
void destructElement(T* element) {
    element->~T();
}

template <typename T>
std::string toHexString(T value, bool prefix = true) {
    static_assert(std::is_integral<T>::value, "toHexString takes an integer");
    using Unsigned = std::make_unsigned_t<T>;
    uint64_t bits = static_cast<Unsigned>(value);
    static const char kDigits[] = "0123456789abcdef";
    std::string digits;
    do {
        digits.insert(digits.begin(), kDigits[bits & 0xF]);
        bits >>= 4;
    } while (bits != 0);
    return prefix ? "0x" + digits : digits;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
