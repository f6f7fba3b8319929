// Host stand-in for libhidlbase's HidlSupport.h: the value types that generated HIDL code and its
// implementations use. Only what a user of the real header would reach for is provided.
#pragma once

#include <hidl/Status.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace android {
namespace hardware {

namespace details {
// Aborts like the real library does when a size does not fit the 32-bit wire format or a safe
// union is read through an alternative that is not the active one.
[[noreturn]] void hidlAbort(const char* message);
}  // namespace details

template <typename T>
class hidl_vec {
  public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() = default;
    explicit hidl_vec(size_t size) { resize(size); }
    hidl_vec(std::initializer_list<T> list) { assign(list.begin(), list.end(), list.size()); }
    hidl_vec(const std::vector<T>& other) { assign(other.begin(), other.end(), other.size()); }
    template <typename InputIterator,
              typename = typename std::iterator_traits<InputIterator>::iterator_category>
    hidl_vec(InputIterator first, InputIterator last) {
        assign(first, last, static_cast<size_t>(std::distance(first, last)));
    }
    hidl_vec(const hidl_vec& other) { assign(other.begin(), other.end(), other.size()); }
    hidl_vec(hidl_vec&& other) noexcept { swap(other); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) assign(other.begin(), other.end(), other.size());
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        hidl_vec(std::move(other)).swap(*this);
        return *this;
    }
    hidl_vec& operator=(std::initializer_list<T> list) {
        assign(list.begin(), list.end(), list.size());
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) {
        assign(other.begin(), other.end(), other.size());
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }

    size_t size() const { return mSize; }
    T* data() { return mBuffer.get(); }
    const T* data() const { return mBuffer.get(); }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    iterator begin() { return data(); }
    iterator end() { return data() + mSize; }
    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + mSize; }

    void resize(size_t size) {
        checkSize(size);
        std::unique_ptr<T[]> buffer(size == 0 ? nullptr : new T[size]());
        std::move(begin(), begin() + std::min(size, mSize), buffer.get());
        mBuffer = std::move(buffer);
        mSize = size;
    }

    bool contains(const T& value) const { return std::find(begin(), end(), value) != end(); }

    bool operator==(const hidl_vec& other) const {
        return mSize == other.mSize && std::equal(begin(), end(), other.begin());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

  private:
    static void checkSize(size_t size) {
        if (size > UINT32_MAX) details::hidlAbort("hidl_vec can't hold more than 2^32 elements.");
    }
    template <typename It>
    void assign(It first, It last, size_t size) {
        checkSize(size);
        std::unique_ptr<T[]> buffer(size == 0 ? nullptr : new T[size]());
        std::copy(first, last, buffer.get());
        mBuffer = std::move(buffer);
        mSize = size;
    }
    void swap(hidl_vec& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mSize, other.mSize);
    }

    std::unique_ptr<T[]> mBuffer;
    size_t mSize = 0;
};

class hidl_string {
  public:
    hidl_string() = default;
    hidl_string(const char* s) : mValue(s == nullptr ? "" : s) {}
    hidl_string(const char* s, size_t length) : mValue(s, length) {}
    hidl_string(const std::string& s) : mValue(s) {}

    hidl_string& operator=(const char* s) {
        mValue = s == nullptr ? "" : s;
        return *this;
    }
    hidl_string& operator=(const std::string& s) {
        mValue = s;
        return *this;
    }

    const char* c_str() const { return mValue.c_str(); }
    size_t size() const { return mValue.size(); }
    bool empty() const { return mValue.empty(); }
    void clear() { mValue.clear(); }
    operator std::string() const { return mValue; }

    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return a.mValue == b.mValue;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }
    friend bool operator<(const hidl_string& a, const hidl_string& b) {
        return a.mValue < b.mValue;
    }
    friend std::ostream& operator<<(std::ostream& os, const hidl_string& s) {
        return os << s.mValue;
    }

  private:
    std::string mValue;
};

// Iterates every enumerator of a generated enumeration in source order. The package's types.h
// provides hidl_enum_values_of(E) next to each enumeration (found by argument-dependent lookup).
template <typename E>
struct hidl_enum_range {
    const E* begin() const { return hidl_enum_values_of(E{}).first; }
    const E* end() const { return begin() + hidl_enum_values_of(E{}).count; }
};

template <typename T>
std::enable_if_t<std::is_arithmetic<T>::value, std::string> toString(T value) {
    return std::to_string(value);
}
inline std::string toString(bool value) {
    return value ? "true" : "false";
}
inline std::string toString(const hidl_string& s) {
    return "\"" + std::string(s) + "\"";
}

}  // namespace hardware
}  // namespace android
