// Host stand-in for the code shapes hidl-gen emits into a package's types.h: enumerations with
// toString() and their enumerator list, safe unions with a discriminator and one getter/setter pair
// per alternative, and struct equality. Generated packages on the host are written with these
// macros so that each type is spelled once.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

namespace android {
namespace hardware {
namespace details {

template <typename E>
struct hidl_enum_values {
    const E* first;
    size_t count;
};

template <size_t Index, typename Variant>
auto& safeUnionGet(Variant& value, const char* member) {
    if (value.index() != Index) {
        std::string message = std::string("Bad safe_union access: '") + member +
                              "' is not the active alternative.";
        hidlAbort(message.c_str());
    }
    return *std::get_if<Index>(&value);
}

// Closes the alternative list of a safe union's storage; never active.
struct SafeUnionEnd {
    bool operator==(const SafeUnionEnd&) const { return true; }
};

}  // namespace details
}  // namespace hardware
}  // namespace android

#define HIDL_ENUMERATOR_(name, value) name = value,
#define HIDL_ENUM_VALUE_(name, value) E::name,
#define HIDL_ENUM_NAME_(name, value) \
    if (value_ == E::name) return #name;

// Declares `enum class Name : Underlying` from a list X(name, value), its toString(), its
// enumerator list (for hidl_enum_range) and the bitwise operators on the underlying type.
#define HIDL_ENUM(Name, Underlying, LIST)                                                        \
    enum class Name : Underlying { LIST(HIDL_ENUMERATOR_) };                                     \
    inline std::string toString(Name value_) {                                                   \
        using E = Name;                                                                          \
        LIST(HIDL_ENUM_NAME_)                                                                    \
        return std::to_string(static_cast<std::common_type_t<Underlying, int>>(value_));         \
    }                                                                                            \
    inline ::android::hardware::details::hidl_enum_values<Name> hidl_enum_values_of(Name) {      \
        using E = Name;                                                                          \
        static constexpr E kValues[] = {LIST(HIDL_ENUM_VALUE_)};                                 \
        return {kValues, sizeof(kValues) / sizeof(kValues[0])};                                  \
    }                                                                                            \
    constexpr Underlying operator|(Name a, Name b) {                                             \
        return static_cast<Underlying>(static_cast<Underlying>(a) | static_cast<Underlying>(b)); \
    }                                                                                            \
    constexpr Underlying operator|(Underlying a, Name b) {                                       \
        return static_cast<Underlying>(a | static_cast<Underlying>(b));                          \
    }                                                                                            \
    constexpr Underlying operator&(Name a, Name b) {                                             \
        return static_cast<Underlying>(static_cast<Underlying>(a) & static_cast<Underlying>(b)); \
    }                                                                                            \
    constexpr Underlying operator&(Underlying a, Name b) {                                       \
        return static_cast<Underlying>(a & static_cast<Underlying>(b));                          \
    }

#define HIDL_UNION_DISCRIMINATOR_(index, name, ...) name = index,
#define HIDL_UNION_STORAGE_(index, name, ...) __VA_ARGS__,
#define HIDL_UNION_ACCESSORS_(index, name, ...)                                  \
    void name(const __VA_ARGS__& o) {                                            \
        mValue.emplace<index>(o);                                                \
    }                                                                            \
    void name(__VA_ARGS__&& o) {                                                 \
        mValue.emplace<index>(std::move(o));                                     \
    }                                                                            \
    __VA_ARGS__& name() {                                                        \
        return ::android::hardware::details::safeUnionGet<index>(mValue, #name); \
    }                                                                            \
    const __VA_ARGS__& name() const {                                            \
        return ::android::hardware::details::safeUnionGet<index>(mValue, #name); \
    }

// The body of a safe union from a list X(index, member, Type). A default-constructed union holds
// its first alternative, as hidl-gen's does.
#define HIDL_SAFE_UNION(Name, LIST)                                              \
  public:                                                                        \
    enum class hidl_discriminator : uint8_t { LIST(HIDL_UNION_DISCRIMINATOR_) }; \
    hidl_discriminator getDiscriminator() const {                                \
        return static_cast<hidl_discriminator>(mValue.index());                  \
    }                                                                            \
    LIST(HIDL_UNION_ACCESSORS_)                                                  \
    friend bool operator==(const Name& a, const Name& b) {                       \
        return a.mValue == b.mValue;                                             \
    }                                                                            \
    friend bool operator!=(const Name& a, const Name& b) {                       \
        return !(a == b);                                                        \
    }                                                                            \
                                                                                 \
  private:                                                                       \
    std::variant<LIST(HIDL_UNION_STORAGE_)::android::hardware::details::SafeUnionEnd> mValue;

// Equality of a struct, given its fields as s.field, ...
#define HIDL_STRUCT_EQUALITY(Type, ...)                                    \
    inline bool operator==(const Type& a, const Type& b) {                 \
        auto fields = [](const Type& s) { return std::tie(__VA_ARGS__); }; \
        return fields(a) == fields(b);                                     \
    }                                                                      \
    inline bool operator!=(const Type& a, const Type& b) {                 \
        return !(a == b);                                                  \
    }
