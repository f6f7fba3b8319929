#include <iostream>

#include "Commands.h"
#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

int runFrontends(const GlobalOptions& global) {
    sp<ITuner> tuner = connectTuner();
    std::vector<std::string> json;
    for (uint32_t id : frontendIds(tuner)) {
        FrontendInfo info{};
        if (!frontendInfo(tuner, id, info)) continue;
        if (global.json) {
            json.push_back(frontendJson(id, info));
        } else {
            std::cout << describeFrontend(id, info);
        }
    }
    if (global.json) std::cout << jsonArray(json) << "\n";
    return 0;
}

int runInfo(const GlobalOptions& global, uint32_t id) {
    sp<ITuner> tuner = connectTuner();
    const std::vector<uint32_t> ids = frontendIds(tuner);
    FrontendInfo info{};
    if (!frontendInfo(tuner, id, info)) {
        return reportFailure(global.json, kUsageError, noSuch("frontend", id, ids));
    }
    std::cout << (global.json ? frontendJson(id, info) + "\n" : describeFrontend(id, info));
    return 0;
}

int runOverview(const GlobalOptions& global) {
    if (global.json) {
        // One document: {"frontends": [...], "lnbs": [...]} is what scripts expect.
        sp<ITuner> tuner = connectTuner();
        std::vector<std::string> frontends;
        for (uint32_t id : frontendIds(tuner)) {
            FrontendInfo info{};
            if (frontendInfo(tuner, id, info)) frontends.push_back(frontendJson(id, info));
        }
        std::vector<std::string> lnbs;
        call("getLnbIds", [&] {
            return tuner->getLnbIds([&](Result, const hidl_vec<uint32_t>& ids) {
                for (uint32_t id : ids) lnbs.push_back(std::to_string(id));
            });
        });
        std::cout << JsonObject()
                             .addRaw("frontends", jsonArray(frontends))
                             .addRaw("lnbs", jsonArray(lnbs))
                             .str()
                  << "\n";
        return 0;
    }
    const int status = runFrontends(global);
    return status != 0 ? status : runLnbs(global);
}

int runDump(const GlobalOptions& global) {
    sp<ITuner> tuner = connectTuner();
    // With --json the service's own machine-readable form, checked to be one.
    if (global.json) {
        std::string error;
        const std::string dump = serviceDump(tuner, {kDumpJsonOption});
        if (!parseServiceDump(dump, error)) return reportFailure(true, kServiceError, error);
        std::cout << dump;
    } else {
        std::cout << serviceDump(tuner);
    }
    return kSuccess;
}

}  // namespace tunerctl
