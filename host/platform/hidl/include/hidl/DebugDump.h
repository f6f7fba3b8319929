// Host addition to libhidlbase: what `lshal debug` does, for host tools and tests. Calls
// IBase::debug with the write end of a pipe and returns what the object wrote.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

#include <string>

namespace android {
namespace hardware {

std::string debugDump(const sp<::android::hidl::base::V1_0::IBase>& object,
                      const hidl_vec<hidl_string>& options = {});
// The same, with whether the object answered at all (false for a dead remote object).
bool debugDump(const sp<::android::hidl::base::V1_0::IBase>& object,
               const hidl_vec<hidl_string>& options, std::string& text);

}  // namespace hardware
}  // namespace android
