// The service's dump for `lshal debug` and tunerctl: what the Tuner knows, read without touching
// the driver (a dump before discovery says so rather than discovering). With the option "--json"
// the same state comes as one JSON object, the form programs read: its keys are the contract
// (README, "The dump"), the text may be reworded.
#include <unistd.h>

#include <map>
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
struct CallbackOwner {
    bool set = false;
    bool gone = false;  // set, but its process no longer answers
    int32_t pid = -1;
};

CallbackOwner callbackOwner(const sp<IFrontendCallback>& callback) {
    CallbackOwner owner;
    if (callback == nullptr) return owner;
    owner.set = true;
    owner.gone = !callback->getDebugInfo([&](const auto& info) { owner.pid = info.pid; }).isOk();
    return owner;
}

std::string describe(const CallbackOwner& owner) {
    if (!owner.set) return "none";
    if (owner.gone) return "set (its process is gone)";
    return "set by pid " + std::to_string(owner.pid);
}

// What the dump shows, gathered once for either form.
struct FrontendState {
    uint32_t id;
    FrontendType type;
    bool locked;
    bool scanRunning;
    CallbackOwner callback;
};

struct DumpState {
    bool discovered = false;
    std::vector<FrontendState> frontends;
    std::vector<uint32_t> demuxIds;
    std::map<uint32_t, uint32_t> bindings;  // frontend -> demux
};

std::string textForm(const DumpState& state) {
    std::string text = "android.hardware.tv.tuner@1.0::ITuner\n";
    if (!state.discovered) {
        text += "frontends: not discovered yet\n";
    } else {
        text += "frontends: " + std::to_string(state.frontends.size()) + "\n";
    }
    for (const FrontendState& f : state.frontends) {
        text += "  frontend " + std::to_string(f.id) + ": type " + toString(f.type) + ", locked " +
                yesNo(f.locked) + ", scan running " + yesNo(f.scanRunning) + ", callback " +
                describe(f.callback) + "\n";
    }
    text += "demuxes open:";
    for (uint32_t id : state.demuxIds) text += " " + std::to_string(id);
    text += state.demuxIds.empty() ? " none\n" : "\n";
    text += "frontend -> demux:";
    for (const auto& [frontendId, demuxId] : state.bindings) {
        text += " " + std::to_string(frontendId) + "->" + std::to_string(demuxId);
    }
    text += state.bindings.empty() ? " none\n" : "\n";
    return text;
}

const char* trueFalse(bool value) {
    return value ? "true" : "false";
}

// The status types a frontend answers with a fixed value rather than a measurement.
std::string notMeasuredJson() {
    std::string list;
    for (FrontendStatusType type : hidl_enum_range<FrontendStatusType>()) {
        if (Frontend::isStatusMeasured(type)) continue;
        list += (list.empty() ? "\"" : ",\"") + toString(type) + "\"";
    }
    return "[" + list + "]";
}

// Enumerator names and numbers only: nothing here needs escaping.
std::string jsonForm(const DumpState& state) {
    const std::string notMeasured = notMeasuredJson();
    std::string json = "{\"interface\":\"android.hardware.tv.tuner@1.0::ITuner\",\"discovered\":";
    json += trueFalse(state.discovered);
    json += ",\"frontends\":[";
    for (size_t i = 0; i < state.frontends.size(); ++i) {
        const FrontendState& f = state.frontends[i];
        const char* callback = !f.callback.set ? "none" : f.callback.gone ? "gone" : "set";
        json += std::string(i ? "," : "") + "{\"id\":" + std::to_string(f.id) + ",\"type\":\"" +
                toString(f.type) + "\",\"locked\":" + trueFalse(f.locked) +
                ",\"scanRunning\":" + trueFalse(f.scanRunning) + ",\"callback\":\"" + callback +
                "\",\"callbackPid\":" +
                (f.callback.set && !f.callback.gone ? std::to_string(f.callback.pid) : "null") +
                ",\"notMeasured\":" + notMeasured + "}";
    }
    json += "],\"demuxes\":[";
    for (size_t i = 0; i < state.demuxIds.size(); ++i) {
        json += (i ? "," : "") + std::to_string(state.demuxIds[i]);
    }
    json += "],\"bindings\":[";
    bool first = true;
    for (const auto& [frontendId, demuxId] : state.bindings) {
        json += std::string(first ? "" : ",") + "{\"frontend\":" + std::to_string(frontendId) +
                ",\"demux\":" + std::to_string(demuxId) + "}";
        first = false;
    }
    return json + "]}\n";
}

bool wantsJson(const hidl_vec<hidl_string>& options) {
    for (const hidl_string& option : options) {
        if (option == "--json") return true;
    }
    return false;
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

Return<void> Tuner::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    if (fd.getNativeHandle() == nullptr || fd->numFds < 1) return Void();
    std::vector<sp<Frontend>> frontends;
    DumpState state;
    {
        AutoMutex guard(mLock);
        frontends = mFrontends;
        state.bindings = mFrontendDemuxIds;
        for (const auto& entry : mDemuxes) state.demuxIds.push_back(entry.first);
        state.discovered = mFrontendCount > 0;
    }
    // Frontends are asked with no Tuner lock held: each guards its own state.
    for (const sp<Frontend>& f : frontends) {
        if (f == nullptr) continue;
        state.frontends.push_back({f->getFrontendId(), f->getFrontendType(), f->isLocked(),
                                   f->isScanRunning(), callbackOwner(f->getCallback())});
    }
    writeAll(fd->data[0], wantsJson(options) ? jsonForm(state) : textForm(state));
    return Void();
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
