#include "TunerClient.h"

#include <hidl/HidlTransportSupport.h>
#include <signal.h>

#include <atomic>

extern "C" ::android::hardware::tv::tuner::V1_0::ITuner* HIDL_FETCH_ITuner(const char* name);

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {
std::atomic<bool> gInterrupted{false};

void onInterrupt(int) {
    gInterrupted = true;
}
}  // namespace

sp<ITuner> connectTuner() {
    ::android::hardware::configureRpcThreadpool(1, false);
    if (ITuner::getService() == nullptr) {
        sp<ITuner> service = HIDL_FETCH_ITuner("default");
        if (service->registerAsService("default") != ::android::OK) return nullptr;
    }
    return ITuner::getService();
}

std::vector<uint32_t> frontendIds(const sp<ITuner>& tuner) {
    std::vector<uint32_t> ids;
    tuner->getFrontendIds([&](Result, const hidl_vec<uint32_t>& list) { ids = list; });
    return ids;
}

sp<IFrontend> openFrontend(const sp<ITuner>& tuner, uint32_t id, std::string& error) {
    frontendIds(tuner);  // discovery
    sp<IFrontend> frontend;
    Result result = Result::UNKNOWN_ERROR;
    tuner->openFrontendById(id, [&](Result r, const sp<IFrontend>& f) {
        result = r;
        frontend = f;
    });
    if (result != Result::SUCCESS) {
        error = "frontend " + std::to_string(id) + ": " + toString(result);
        return nullptr;
    }
    return frontend;
}

bool frontendInfo(const sp<ITuner>& tuner, uint32_t id, FrontendInfo& info) {
    Result result = Result::UNKNOWN_ERROR;
    tuner->getFrontendInfo(id, [&](Result r, const FrontendInfo& i) {
        result = r;
        info = i;
    });
    return result == Result::SUCCESS;
}

std::optional<uint32_t> defaultLnbOf(const sp<ITuner>& tuner, uint32_t frontendId) {
    std::vector<uint32_t> lnbs;
    tuner->getLnbIds([&](Result, const hidl_vec<uint32_t>& ids) { lnbs = ids; });
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
