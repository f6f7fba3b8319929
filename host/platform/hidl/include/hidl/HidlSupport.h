// Host stand-in for libhidlbase's HidlSupport.h: the value types generated HIDL code is made of.
// hidl_vec, hidl_string and hidl_handle keep the library's layout (a 64-bit padded pointer, a
// 32-bit size, an ownership flag), because the generated headers assert the offsets of every field.
#pragma once

#include <cutils/native_handle.h>
#include <hidl/HidlInternal.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

// Told when the process behind an interface object dies (see IBase::linkToDeath).
struct hidl_death_recipient : public virtual RefBase {
    virtual void serviceDied(uint64_t cookie,
                             const ::android::wp<::android::hidl::base::V1_0::IBase>& who) = 0;
};

// A native handle, owned or not. Copies clone the handle and own the clone.
struct hidl_handle {
    hidl_handle() : mHandle(nullptr), mOwnsHandle(false) {}
    hidl_handle(const native_handle_t* handle) : mHandle(handle), mOwnsHandle(false) {}
    hidl_handle(const hidl_handle& other) : hidl_handle() { *this = other; }
    hidl_handle(hidl_handle&& other) noexcept : hidl_handle() { *this = std::move(other); }
    ~hidl_handle() { freeHandle(); }

    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;
    hidl_handle& operator=(const native_handle_t* handle) {
        freeHandle();
        mHandle = handle;
        mOwnsHandle = false;
        return *this;
    }

    void setTo(native_handle_t* handle, bool shouldOwn = false) {
        freeHandle();
        mHandle = handle;
        mOwnsHandle = shouldOwn;
    }
    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }

  private:
    void freeHandle();

    details::hidl_pointer<const native_handle_t> mHandle;
    bool mOwnsHandle;
};

// A string that owns its characters or points at someone else's.
struct hidl_string {
    hidl_string() : mBuffer(kEmptyString), mSize(0), mOwnsBuffer(false) {}
    hidl_string(const char* s) : hidl_string() {
        if (s != nullptr) copyFrom(s, strlen(s));
    }
    hidl_string(const char* s, size_t length) : hidl_string() { copyFrom(s, length); }
    hidl_string(const std::string& s) : hidl_string() { copyFrom(s.data(), s.size()); }
    hidl_string(const hidl_string& other) : hidl_string() { copyFrom(other.c_str(), other.size()); }
    hidl_string(hidl_string&& other) noexcept : hidl_string() { moveFrom(std::move(other)); }
    ~hidl_string() { clear(); }

    hidl_string& operator=(const hidl_string& other) {
        if (this != &other) copyFrom(other.c_str(), other.size());
        return *this;
    }
    hidl_string& operator=(hidl_string&& other) noexcept {
        if (this != &other) moveFrom(std::move(other));
        return *this;
    }
    hidl_string& operator=(const char* s) {
        if (s == nullptr) {
            clear();
        } else {
            copyFrom(s, strlen(s));
        }
        return *this;
    }
    hidl_string& operator=(const std::string& s) {
        copyFrom(s.data(), s.size());
        return *this;
    }

    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    operator std::string() const { return std::string(mBuffer, mSize); }

    void clear() {
        if (mOwnsBuffer) delete[] static_cast<const char*>(mBuffer);
        mBuffer = kEmptyString;
        mSize = 0;
        mOwnsBuffer = false;
    }
    // Points at characters the caller keeps alive; the string does not own them.
    void setToExternal(const char* data, size_t size);

    int compare(const char* s, size_t length) const;

  private:
    static const char* const kEmptyString;

    void copyFrom(const char* data, size_t size);
    void moveFrom(hidl_string&& other);

    details::hidl_pointer<const char> mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

#define HIDL_STRING_COMPARISON_(op)                                       \
    inline bool operator op(const hidl_string& a, const hidl_string& b) { \
        return a.compare(b.c_str(), b.size()) op 0;                       \
    }                                                                     \
    inline bool operator op(const hidl_string& a, const char* b) {        \
        return a.compare(b, strlen(b)) op 0;                              \
    }                                                                     \
    inline bool operator op(const char* a, const hidl_string& b) {        \
        return 0 op b.compare(a, strlen(a));                              \
    }                                                                     \
    inline bool operator op(const hidl_string& a, const std::string& b) { \
        return a.compare(b.c_str(), b.size()) op 0;                       \
    }                                                                     \
    inline bool operator op(const std::string& a, const hidl_string& b) { \
        return 0 op b.compare(a.c_str(), a.size());                       \
    }
HIDL_STRING_COMPARISON_(==)
HIDL_STRING_COMPARISON_(!=)
HIDL_STRING_COMPARISON_(<)
HIDL_STRING_COMPARISON_(<=)
HIDL_STRING_COMPARISON_(>)
HIDL_STRING_COMPARISON_(>=)
#undef HIDL_STRING_COMPARISON_

inline std::ostream& operator<<(std::ostream& os, const hidl_string& s) {
    return os.write(s.c_str(), static_cast<std::streamsize>(s.size()));
}

// Shared memory by handle, size and name. The host passes none; the type keeps its layout.
struct hidl_memory {
    hidl_memory() : mHandle(nullptr), mSize(0) {}
    hidl_memory(const hidl_string& name, const hidl_handle& handle, size_t size)
        : mHandle(handle), mSize(size), mName(name) {}

    const native_handle_t* handle() const { return mHandle; }
    const hidl_string& name() const { return mName; }
    uint64_t size() const { return mSize; }

  private:
    hidl_handle mHandle;
    uint64_t mSize;
    hidl_string mName;
};

template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() : mBuffer(nullptr), mSize(0), mOwnsBuffer(true) {}
    explicit hidl_vec(size_t size) : hidl_vec() { resize(size); }
    hidl_vec(std::initializer_list<T> list) : hidl_vec() { copyFrom(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& other) : hidl_vec() { copyFrom(other.data(), other.size()); }
    template <typename InputIterator,
              typename = typename std::iterator_traits<InputIterator>::iterator_category>
    hidl_vec(InputIterator first, InputIterator last) : hidl_vec() {
        size_t size = static_cast<size_t>(std::distance(first, last));
        checkSize(size);
        T* buffer = size == 0 ? nullptr : new T[size]();
        std::copy(first, last, buffer);
        adopt(buffer, size);
    }
    hidl_vec(const hidl_vec& other) : hidl_vec() { copyFrom(other.data(), other.size()); }
    hidl_vec(hidl_vec&& other) noexcept : hidl_vec() { moveFrom(std::move(other)); }
    ~hidl_vec() { freeBuffer(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) copyFrom(other.data(), other.size());
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) moveFrom(std::move(other));
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) {
        copyFrom(other.data(), other.size());
        return *this;
    }
    hidl_vec& operator=(std::initializer_list<T> list) {
        copyFrom(list.begin(), list.size());
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }

    // Points at elements the caller keeps alive, unless shouldOwn hands them over.
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        checkSize(size);
        freeBuffer();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }
    // Gives the caller the elements (to delete[]) and leaves the vector empty.
    T* releaseData() {
        if (!mOwnsBuffer && mBuffer != nullptr) resize(mSize);
        T* data = mBuffer;
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = true;
        return data;
    }

    size_t size() const { return mSize; }
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    iterator begin() { return data(); }
    iterator end() { return data() + mSize; }
    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + mSize; }

    // New elements are value-initialised; elements that fit are moved over.
    void resize(size_t size) {
        checkSize(size);
        T* buffer = size == 0 ? nullptr : new T[size]();
        size_t kept = std::min(size, static_cast<size_t>(mSize));
        for (size_t i = 0; i < kept; ++i) buffer[i] = std::move(mBuffer[i]);
        freeBuffer();
        adopt(buffer, size);
    }

    const_iterator find(const T& value) const { return std::find(begin(), end(), value); }
    iterator find(const T& value) { return std::find(begin(), end(), value); }
    bool contains(const T& value) const { return find(value) != end(); }

  private:
    static void checkSize(size_t size) {
        if (size > UINT32_MAX) {
            details::logAlwaysFatal("hidl_vec can't hold more than 2^32 elements.");
        }
    }
    void freeBuffer() {
        if (mOwnsBuffer) delete[] static_cast<T*>(mBuffer);
        mBuffer = nullptr;
    }
    void adopt(T* buffer, size_t size) {
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }
    void copyFrom(const T* source, size_t size) {
        checkSize(size);
        T* buffer = size == 0 ? nullptr : new T[size]();
        std::copy(source, source + size, buffer);
        freeBuffer();
        adopt(buffer, size);
    }
    void moveFrom(hidl_vec&& other) {
        freeBuffer();
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = other.mOwnsBuffer;
        other.mBuffer = nullptr;
        other.mSize = 0;
        other.mOwnsBuffer = true;
    }

    details::hidl_pointer<T> mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

// A fixed-size array (T[N] in an interface file). Only one dimension is used by the packages here.
template <typename T, size_t SIZE1, size_t... SIZES>
struct hidl_array;

template <typename T, size_t SIZE1>
struct hidl_array<T, SIZE1> {
    using std_array_type = std::array<T, SIZE1>;

    hidl_array() = default;
    hidl_array(const T* source) { std::copy(source, source + SIZE1, mBuffer); }
    hidl_array(const std_array_type& source) { std::copy(source.begin(), source.end(), mBuffer); }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    static constexpr size_t size() { return SIZE1; }

    operator std_array_type() const {
        std_array_type array;
        std::copy(mBuffer, mBuffer + SIZE1, array.begin());
        return array;
    }
    bool operator==(const hidl_array& other) const {
        return std::equal(mBuffer, mBuffer + SIZE1, other.mBuffer);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T mBuffer[SIZE1];
};

// bitfield<E> in an interface file: the underlying integer of E.
template <typename E>
using hidl_bitfield = typename std::underlying_type<E>::type;

namespace details {
template <typename T>
struct hidl_invalid_type;
// Every enumerator of a generated enumeration in source order; the package's types.h
// specialises it for each of its enumerations.
template <typename T>
inline constexpr hidl_invalid_type<T> hidl_enum_values;
}  // namespace details

template <typename T, typename = std::enable_if_t<std::is_enum<T>::value>>
struct hidl_enum_range {
    constexpr auto begin() const { return std::begin(details::hidl_enum_values<T>); }
    constexpr auto cbegin() const { return begin(); }
    constexpr auto rbegin() const { return std::rbegin(details::hidl_enum_values<T>); }
    constexpr auto crbegin() const { return rbegin(); }
    constexpr auto end() const { return std::end(details::hidl_enum_values<T>); }
    constexpr auto cend() const { return end(); }
    constexpr auto rend() const { return std::rend(details::hidl_enum_values<T>); }
    constexpr auto crend() const { return rend(); }
};

template <typename T, typename = std::enable_if_t<std::is_arithmetic<T>::value>>
std::string toString(T value) {
    return std::to_string(value);
}
inline std::string toString(bool value) {
    return value ? "true" : "false";
}
inline std::string toString(const hidl_string& s) {
    return "\"" + std::string(s) + "\"";
}
std::string toString(const hidl_handle& handle);
std::string toString(const hidl_memory& memory);
std::string toString(const void* pointer);

template <typename T>
std::string toString(const hidl_vec<T>& v) {
    std::string os = "[" + std::to_string(v.size()) + "]{";
    for (size_t i = 0; i < v.size(); ++i) {
        if (i > 0) os += ", ";
        os += toString(v[i]);
    }
    return os + "}";
}

template <typename T, size_t SIZE1>
std::string toString(const hidl_array<T, SIZE1>& a) {
    std::string os = "[" + std::to_string(SIZE1) + "]{";
    for (size_t i = 0; i < SIZE1; ++i) {
        if (i > 0) os += ", ";
        os += toString(a[i]);
    }
    return os + "}";
}

}  // namespace hardware
}  // namespace android
