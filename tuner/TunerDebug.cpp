// The service's dump for `lshal debug` and tunerctl: what the Tuner knows, read without touching
// the driver (a dump before discovery says so rather than discovering).
#include <unistd.h>

#include <string>
#include <vector>

#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

// Whose callback it is: the process the callback object lives in, as getDebugInfo tells.
std::string callbackOwner(const sp<IFrontendCallback>& callback) {
    if (callback == nullptr) return "none";
    int32_t pid = -1;
    if (!callback->getDebugInfo([&](const auto& info) { pid = info.pid; }).isOk()) {
        return "set (its process is gone)";
    }
    return "set by pid " + std::to_string(pid);
}

void writeAll(int fd, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = write(fd, text.data() + written, text.size() - written);
        if (n <= 0) return;
        written += static_cast<size_t>(n);
    }
}

}  // namespace

Return<void> Tuner::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& /*options*/) {
    if (fd.getNativeHandle() == nullptr || fd->numFds < 1) return Void();
    std::vector<sp<Frontend>> frontends;
    std::map<uint32_t, uint32_t> bindings;
    std::vector<uint32_t> demuxIds;
    bool discovered;
    {
        AutoMutex guard(mLock);
        frontends = mFrontends;
        bindings = mFrontendDemuxIds;
        for (const auto& entry : mDemuxes) demuxIds.push_back(entry.first);
        discovered = mFrontendCount > 0;
    }
    // Frontends are asked with no Tuner lock held: each guards its own state.
    std::string text = "android.hardware.tv.tuner@1.0::ITuner\n";
    if (!discovered) {
        text += "frontends: not discovered yet\n";
    } else {
        text += "frontends: " + std::to_string(frontends.size()) + "\n";
    }
    for (const sp<Frontend>& f : frontends) {
        if (f == nullptr) continue;
        text += "  frontend " + std::to_string(f->getFrontendId()) + ": type " +
                toString(f->getFrontendType()) + ", locked " + yesNo(f->isLocked()) +
                ", scan running " + yesNo(f->isScanRunning()) + ", callback " +
                callbackOwner(f->getCallback()) + "\n";
    }
    text += "demuxes open:";
    for (uint32_t id : demuxIds) text += " " + std::to_string(id);
    text += demuxIds.empty() ? " none\n" : "\n";
    text += "frontend -> demux:";
    for (const auto& [frontendId, demuxId] : bindings) {
        text += " " + std::to_string(frontendId) + "->" + std::to_string(demuxId);
    }
    text += bindings.empty() ? " none\n" : "\n";
    writeAll(fd->data[0], text);
    return Void();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
