#include <cstdio>
#include <iostream>

#include "Commands.h"
#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"
#include "ValueParsing.h"
#include "World.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

// What the simulated driver holds for the LNB after the commands, as the world tells it (in
// this process or in the service's).
void showDriverState(const GlobalOptions& global, uint32_t id) {
    const std::optional<nlohmann::json> world = describeWorld();
    if (!world || id >= world->at("lnbs").size()) return;
    const nlohmann::json& s = world->at("lnbs")[id];
    if (global.json) {
        // The same words as the text.
        std::cout << JsonObject()
                             .add("lnb", id)
                             .add("mode", s.at("mode").get<uint32_t>())
                             .add("supply", s.at("supply").get<std::string>())
                             .add("tone", s.at("tone").get<std::string>())
                             .add("burst", s.at("burst").get<std::string>())
                             .add("diseqc", s.at("diseqc").get<std::string>())
                             .add("selects", s.at("selects").get<std::string>())
                             .str()
                  << "\n";
        return;
    }
    std::cout << "driver LNB " << id << ": mode " << s.at("mode").get<uint32_t>() << " ("
              << s.at("supply").get<std::string>() << "), 22 kHz tone "
              << s.at("tone").get<std::string>() << ", tone burst "
              << s.at("burst").get<std::string>() << ", last DiSEqC ["
              << s.at("diseqc").get<std::string>() << "]; selects "
              << s.at("selects").get<std::string>() << "\n";
}

bool report(bool json, const char* what, Result result) {
    if (result == Result::SUCCESS) return true;
    reportFailure(json, kServiceError, std::string(what) + ": " + toString(result));
    return false;
}

}  // namespace

int runLnbs(const GlobalOptions& global) {
    sp<ITuner> tuner = connectTuner();
    frontendIds(tuner);  // discovery creates the LNBs
    std::vector<uint32_t> ids;
    call("getLnbIds", [&] {
        return tuner->getLnbIds([&](Result, const hidl_vec<uint32_t>& list) { ids = list; });
    });
    if (global.json) {
        std::vector<std::string> items;
        for (uint32_t id : ids) items.push_back(std::to_string(id));
        std::cout << jsonArray(items) << "\n";
        return 0;
    }
    std::cout << "LNBs: " << ids.size() << "\n";
    for (uint32_t id : ids) std::cout << "  lnb " << id << "\n";
    return 0;
}

int runLnb(const GlobalOptions& global, const LnbOptions& o) {
    sp<ITuner> tuner = connectTuner();
    frontendIds(tuner);
    sp<ILnb> lnb;
    Result result = Result::UNKNOWN_ERROR;
    call("openLnbById", [&] {
        return tuner->openLnbById(o.id, [&](Result r, const sp<ILnb>& l) {
            result = r;
            lnb = l;
        });
    });
    if (result != Result::SUCCESS) {
        std::vector<uint32_t> ids;
        call("getLnbIds", [&] {
            return tuner->getLnbIds([&](Result, const hidl_vec<uint32_t>& list) { ids = list; });
        });
        return reportFailure(global.json, kUsageError, noSuch("LNB", o.id, ids));
    }
    if (o.diseqc && !parseDiseqc(*o.diseqc)) {
        return reportFailure(global.json, kUsageError,
                             "invalid DiSEqC message '" + *o.diseqc +
                                     "': 1 to 6 hex bytes, e.g. \"E0 10 38 F0\"");
    }

    if (!o.voltage.empty()) {
        auto voltage = parseVoltage(o.voltage);
        if (!voltage)
            return reportFailure(global.json, kUsageError, "invalid voltage: " + o.voltage);
        if (!report(global.json, "setVoltage",
                    call("setVoltage", [&] { return lnb->setVoltage(*voltage); })))
            return kServiceError;
    }
    if (!o.tone.empty()) {
        auto tone = parseTone(o.tone);
        if (!tone) return reportFailure(global.json, kUsageError, "invalid tone: " + o.tone);
        if (!report(global.json, "setTone", call("setTone", [&] { return lnb->setTone(*tone); })))
            return kServiceError;
    }
    if (!o.position.empty()) {
        auto position = parsePosition(o.position);
        if (!position)
            return reportFailure(global.json, kUsageError, "invalid position: " + o.position);
        if (!report(global.json, "setSatellitePosition", call("setSatellitePosition", [&] {
                        return lnb->setSatellitePosition(*position);
                    }))) {
            return kServiceError;
        }
    }
    if (o.diseqc) {
        if (!report(global.json, "sendDiseqcMessage", call("sendDiseqcMessage", [&] {
                        return lnb->sendDiseqcMessage(*parseDiseqc(*o.diseqc));
                    }))) {
            return kServiceError;
        }
    }
    showDriverState(global, o.id);
    return 0;
}

}  // namespace tunerctl
