// How tunerctl reaches the service: in process, as a passthrough client would.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_vec;

// The registered "default" service; the implementation library's factory registers it first if
// nothing has.
sp<hal::ITuner> connectTuner();

// The frontend ids, running discovery on the first call.
std::vector<uint32_t> frontendIds(const sp<hal::ITuner>& tuner);
sp<hal::IFrontend> openFrontend(const sp<hal::ITuner>& tuner, uint32_t id, std::string& error);
bool frontendInfo(const sp<hal::ITuner>& tuner, uint32_t id, hal::FrontendInfo& info);
// The LNB a satellite frontend sits behind by default: the n-th satellite frontend behind LNB n,
// modulo the number of LNBs; nullopt without LNBs.
std::optional<uint32_t> defaultLnbOf(const sp<hal::ITuner>& tuner, uint32_t frontendId);

// Set by SIGINT; commands that wait check it.
bool interrupted();
void installInterruptHandler();

}  // namespace tunerctl
