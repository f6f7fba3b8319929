// Host stand-in for android.hidl.safe_union@1.0: the empty alternative of safe unions.
#pragma once

namespace android {
namespace hidl {
namespace safe_union {
namespace V1_0 {

struct Monostate {};
inline bool operator==(const Monostate&, const Monostate&) {
    return true;
}
inline bool operator!=(const Monostate&, const Monostate&) {
    return false;
}

}  // namespace V1_0
}  // namespace safe_union
}  // namespace hidl
}  // namespace android
