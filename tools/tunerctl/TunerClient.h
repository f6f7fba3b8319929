// How tunerctl reaches the service: the running service process through getService("default"),
// or, for scripts and tests, a private service in this process (--in-process or
// TUNERCTL_IN_PROCESS=1) reached through the implementation library's passthrough entry.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

#include <optional>
#include <string>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_vec;

// Chooses the service before the first connectTuner(); errors go out as JSON when json is set.
void configureClient(bool inProcess, bool json);
bool inProcess();
bool jsonOutput();
// The "default" service. Without one the process ends with the service-error exit code.
sp<hal::ITuner> connectTuner();
// Whether the service tunerctl is connected to has died since (its death notification came).
bool serviceDied();
// Waits for a new instance of the service to register and connects to it; null if interrupted.
sp<hal::ITuner> reconnectTuner();
// The service's dump (IBase::debug), e.g. for `tunerctl dump`; `during` names the command that
// reads it, should the service die meanwhile.
std::string serviceDump(const sp<hal::ITuner>& tuner, const char* during = "dump");
// Whether the service's dump shows a scan running on the frontend.
bool scanRunning(const std::string& dump, uint32_t frontendId);
// Whether the dump shows the frontend's callback is not this process's: another client took it.
bool takenByAnotherClient(const std::string& dump, uint32_t frontendId);
// The demux the dump shows the frontend bound to, if any.
std::optional<uint32_t> boundDemux(const sp<hal::ITuner>& tuner, uint32_t frontendId);

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
