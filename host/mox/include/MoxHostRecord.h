// What the host stand-ins of the maker's player library and passthrough service received, for
// tests and tunerctl.
#pragma once

#include <utility>
#include <vector>

namespace android::hardware::tv::tuner::V1_0::implementation {
class Tuner;
}  // namespace android::hardware::tv::tuner::V1_0::implementation

namespace mox::host {

using TunerPtr = const android::hardware::tv::tuner::V1_0::implementation::Tuner*;

// (path, enable) of every MOX_DvbSetSMP call, in order.
std::vector<std::pair<int, int>> smpCalls();
// The Tuner of every MOX_TunerPassthCallback and MOX_TunerReleasePassth call, in order.
std::vector<TunerPtr> passthroughCallbacks();
std::vector<TunerPtr> passthroughReleases();
void clearRecords();

void recordSmp(int path, int enable);
void recordPassthroughCallback(TunerPtr tuner);
void recordPassthroughRelease(TunerPtr tuner);

}  // namespace mox::host
