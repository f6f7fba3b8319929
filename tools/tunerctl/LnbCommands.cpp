#include <cstdio>
#include <iostream>

#include "Commands.h"
#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"
#include "ValueParsing.h"
#include "simulator/SimulatedDriver.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

std::string hexBytes(const std::vector<uint8_t>& bytes) {
    std::string out;
    for (uint8_t b : bytes) {
        char text[4];
        snprintf(text, sizeof(text), "%s%02X", out.empty() ? "" : " ", b);
        out += text;
    }
    return out;
}

// What the simulated driver holds for the LNB after the commands.
void showDriverState(const GlobalOptions& global, uint32_t id) {
    const mox::sim::LnbState s = mox::sim::simulator().lnb(static_cast<int32_t>(id));
    const char* burst = s.lastBurst < 0 ? "none" : (s.lastBurst == 0 ? "A" : "B");
    const char* supply = s.mode == 0 ? "off" : s.mode == 1 ? "13 V" : "18 V";
    const char* tone = s.tone ? "on" : "off";
    if (global.json) {
        // The same words as the text.
        std::cout << JsonObject()
                             .add("lnb", id)
                             .add("mode", s.mode)
                             .add("supply", supply)
                             .add("tone", tone)
                             .add("burst", burst)
                             .add("diseqc", hexBytes(s.lastDiseqc))
                             .add("selects", s.selection())
                             .str()
                  << "\n";
        return;
    }
    std::cout << "driver LNB " << id << ": mode " << s.mode << " (" << supply << "), 22 kHz tone "
              << tone << ", tone burst " << burst << ", last DiSEqC [" << hexBytes(s.lastDiseqc)
              << "]; selects " << s.selection() << "\n";
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
        return reportFailure(global.json, kUsageError,
                             "lnb " + std::to_string(o.id) + ": no such LNB");
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
    if (inProcess()) {
        showDriverState(global, o.id);
    } else {
        // The driver is the service's: what it holds stays in that process.
        if (global.json) {
            std::cout << JsonObject().add("lnb", o.id).add("accepted", true).str() << "\n";
        } else {
            std::cout << "LNB " << o.id << ": the service accepted every command\n";
        }
    }
    return 0;
}

}  // namespace tunerctl
