#include "TunerClient.h"

#include <hidl/DebugDump.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Passthrough.h>
#include <hidl/transport/Transport.h>
#include <log/log.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "ServiceLog.h"

extern "C" ::android::hardware::tv::tuner::V1_0::ITuner* HIDL_FETCH_ITuner(const char* name);

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {
std::atomic<bool> gInterrupted{false};
std::atomic<bool> gServiceDied{false};
bool gInProcess = false;
bool gJson = false;
sp<ITuner> gService;

void onInterrupt(int) {
    gInterrupted = true;
}

struct DeathNotice : ::android::hardware::hidl_death_recipient {
    void serviceDied(uint64_t, const ::android::wp<::android::hidl::base::V1_0::IBase>&) override {
        gServiceDied = true;
    }
};

// Why the last connectRemote found no service, as the line tunerctl ends with.
std::string gWhyNotConnected;

// The service process, told to let tunerctl know when it dies; null when none answers.
sp<ITuner> connectRemote() {
    sp<ITuner> tuner;
    std::string why;
    ::android::hardware::details::ConnectFailure failure;
    {
        CallDeadline deadline("connecting");
        // The transport logs a refused registry too; tunerctl says it once, as its own line.
        const int level = __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
        tuner = ITuner::getService("default");
        __android_log_set_minimum_priority(level);
        failure = ::android::hardware::details::lastConnectFailure(&why);
    }
    if (tuner == nullptr) {
        using ::android::hardware::details::ConnectFailure;
        gWhyNotConnected =
                failure == ConnectFailure::kBusy
                        ? "the tuner service is busy: it has no room for another connection "
                          "now (too many are open); try again later"
                : failure == ConnectFailure::kUntrusted ? why
                                                        : "the tuner service is not running: "
                                                          "start it with scripts/service.sh "
                                                          "start, or use --in-process";
        return nullptr;
    }
    static sp<DeathNotice> notice = new DeathNotice();
    gServiceDied = false;
    if (!call("connecting", [&] { return tuner->linkToDeath(notice, 0); })) gServiceDied = true;
    return tuner;
}
}  // namespace

void configureClient(bool inProcessService, bool json) {
    const char* env = getenv("TUNERCTL_IN_PROCESS");
    gInProcess = inProcessService || (env != nullptr && std::string(env) == "1");
    gJson = json;
}

bool inProcess() {
    return gInProcess;
}

bool jsonOutput() {
    return gJson;
}

sp<ITuner> connectTuner() {
    if (gService != nullptr) return gService;
    if (gInProcess) {
        // In process, as a passthrough client: through the wrapper, so that the service's
        // threads hand callbacks to this process's pool rather than running them.
        gService = ::android::hardware::details::wrapPassthrough(
                sp<ITuner>(HIDL_FETCH_ITuner("default")));
        return gService;
    }
    // Callbacks from the service run on this process's pool.
    ::android::hardware::configureRpcThreadpool(2, false);
    gService = connectRemote();
    if (gService != nullptr) startServiceLog();
    if (gService == nullptr) {
        reportFailure(gJson, kServiceError, gWhyNotConnected);
        exit(kServiceError);
    }
    return gService;
}

bool serviceDied() {
    return gServiceDied;
}

sp<ITuner> reconnectTuner() {
    gService = nullptr;
    while (!interrupted()) {
        if ((gService = connectRemote()) != nullptr) return gService;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return nullptr;
}

std::string serviceDump(const sp<ITuner>& tuner, const std::vector<std::string>& options,
                        const char* during) {
    std::string text;
    CallDeadline deadline(during);
    hidl_vec<::android::hardware::hidl_string> args;
    args.resize(options.size());
    for (size_t i = 0; i < options.size(); ++i) args[i] = options[i];
    if (!::android::hardware::debugDump(tuner, args, text)) serviceLost(during);
    return text;
}

ServiceDump serviceState(const sp<ITuner>& tuner, const char* during) {
    std::string error;
    std::optional<ServiceDump> state =
            parseServiceDump(serviceDump(tuner, {kDumpJsonOption}, during), error);
    if (!state) {
        reportFailure(gJson, kServiceError, error);
        exit(kServiceError);
    }
    return *state;
}

bool takenByAnotherClient(const ServiceDump& state, uint32_t frontendId) {
    // Ours names this process; another's another pid, or is gone with its client, or was closed.
    const FrontendDump* frontend = state.frontend(frontendId);
    return frontend != nullptr && frontend->callbackPid != getpid();
}

std::vector<uint32_t> frontendIds(const sp<ITuner>& tuner) {
    std::vector<uint32_t> ids;
    call("getFrontendIds", [&] {
        return tuner->getFrontendIds([&](Result, const hidl_vec<uint32_t>& list) { ids = list; });
    });
    return ids;
}

std::string noSuch(const std::string& what, uint32_t id, const std::vector<uint32_t>& ids) {
    std::string list;
    for (uint32_t known : ids) list += (list.empty() ? "" : ", ") + std::to_string(known);
    return "no such " + what + " " + std::to_string(id) + " (the service has " +
           (ids.empty() ? "none" : list) + ")";
}

sp<IFrontend> openFrontend(const sp<ITuner>& tuner, uint32_t id, std::string& error) {
    const std::vector<uint32_t> ids = frontendIds(tuner);  // discovery
    if (std::find(ids.begin(), ids.end(), id) == ids.end()) {
        error = noSuch("frontend", id, ids);
        return nullptr;
    }
    sp<IFrontend> frontend;
    Result result = Result::UNKNOWN_ERROR;
    call("openFrontendById", [&] {
        return tuner->openFrontendById(id, [&](Result r, const sp<IFrontend>& f) {
            result = r;
            frontend = f;
        });
    });
    if (result != Result::SUCCESS) {
        error = "frontend " + std::to_string(id) + ": " + toString(result);
        return nullptr;
    }
    return frontend;
}

bool frontendInfo(const sp<ITuner>& tuner, uint32_t id, FrontendInfo& info) {
    Result result = Result::UNKNOWN_ERROR;
    call("getFrontendInfo", [&] {
        return tuner->getFrontendInfo(id, [&](Result r, const FrontendInfo& i) {
            result = r;
            info = i;
        });
    });
    return result == Result::SUCCESS;
}

std::optional<uint32_t> defaultLnbOf(const sp<ITuner>& tuner, uint32_t frontendId) {
    std::vector<uint32_t> lnbs;
    call("getLnbIds", [&] {
        return tuner->getLnbIds([&](Result, const hidl_vec<uint32_t>& ids) { lnbs = ids; });
    });
    if (lnbs.empty()) return std::nullopt;
    uint32_t satelliteFrontends = 0;
    for (uint32_t id : frontendIds(tuner)) {
        if (id == frontendId) break;
        FrontendInfo info{};
        if (frontendInfo(tuner, id, info) && info.type == FrontendType::DVBS) ++satelliteFrontends;
    }
    return lnbs[satelliteFrontends % lnbs.size()];
}

bool interrupted() {
    return gInterrupted;
}

void installInterruptHandler() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace tunerctl
