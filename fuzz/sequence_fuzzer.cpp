// Any sequence of ITuner, IFrontend, ILnb and demux operations with any arguments, the driver's
// answers chosen by the input, in virtual time: nothing crashes, every ITuner operation answers
// exactly once, and the demux registry gives every open demux its own id.
#include <cstdlib>
#include <set>

#include "FuzzDriver.h"
#include "FuzzSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_vec;

namespace {

struct Session {
    FuzzedDataProvider& input;
    std::vector<sp<IFrontend>> frontends;
    std::vector<std::pair<uint32_t, sp<IDemux>>> demuxes;
    std::vector<sp<ILnb>> lnbs;
};

uint32_t anyId(FuzzedDataProvider& input) {
    return input.ConsumeBool() ? input.ConsumeIntegralInRange<uint32_t>(0, 5)
                               : input.ConsumeIntegral<uint32_t>();
}

template <typename T>
const sp<T>* pick(FuzzedDataProvider& input, const std::vector<sp<T>>& list) {
    if (list.empty()) return nullptr;
    return &list[input.ConsumeIntegralInRange<size_t>(0, list.size() - 1)];
}

void tunerOperation(Session& s) {
    const sp<ITuner> tuner = fuzz::service();
    int answers = 0;
    switch (s.input.ConsumeIntegralInRange(0, 7)) {
        case 0:
            tuner->getFrontendIds([&](Result, const hidl_vec<uint32_t>&) { ++answers; });
            break;
        case 1:
            tuner->openFrontendById(anyId(s.input), [&](Result r, const sp<IFrontend>& f) {
                ++answers;
                if ((r == Result::SUCCESS) != (f != nullptr)) abort();
                if (f != nullptr) s.frontends.push_back(f);
            });
            break;
        case 2:
            tuner->getFrontendInfo(anyId(s.input), [&](Result, const FrontendInfo&) { ++answers; });
            break;
        case 3:
            tuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
                ++answers;
                if (d == nullptr) abort();
                if (r == Result::SUCCESS) {
                    for (const auto& open : s.demuxes) {
                        if (open.first == id) abort();
                    }
                    s.demuxes.emplace_back(id, d);
                }
            });
            break;
        case 4:
            tuner->getDemuxCaps([&](Result, const DemuxCapabilities&) { ++answers; });
            break;
        case 5:
            tuner->openDescrambler([&](Result, const sp<IDescrambler>&) { ++answers; });
            break;
        case 6:
            tuner->openLnbById(anyId(s.input), [&](Result, const sp<ILnb>& l) {
                ++answers;
                if (l != nullptr) s.lnbs.push_back(l);
            });
            break;
        default:
            tuner->openLnbByName(s.input.ConsumeRandomLengthString(8),
                                 [&](Result, uint32_t, const sp<ILnb>& l) {
                                     ++answers;
                                     s.lnbs.push_back(l);
                                 });
            break;
    }
    if (answers != 1) abort();
}

void frontendOperation(Session& s, const sp<IFrontend>& f) {
    switch (s.input.ConsumeIntegralInRange(0, 9)) {
        case 0:
            f->setCallback(s.input.ConsumeBool() ? fuzz::checkingCallback() : nullptr);
            break;
        case 1:
            f->tune(fuzz::anySettings(s.input));
            break;
        case 2:
            f->stopTune();
            break;
        case 3:
            f->scan(fuzz::anySettings(s.input), fuzz::anyEnum<FrontendScanType>(s.input));
            fuzz::waitForScanEnd(f);
            break;
        case 4:
            f->stopScan();
            break;
        case 5:
            f->close();
            break;
        case 6: {
            std::vector<FrontendStatusType> types(s.input.ConsumeIntegralInRange(0, 8));
            for (auto& t : types) t = fuzz::anyEnum<FrontendStatusType>(s.input);
            f->getStatus(types, [](Result, const hidl_vec<FrontendStatus>&) {});
            break;
        }
        case 7:
            f->setLnb(s.input.ConsumeIntegral<uint32_t>());
            break;
        default:
            f->setLna(s.input.ConsumeBool());
            break;
    }
}

void demuxOperation(Session& s) {
    if (s.demuxes.empty()) return;
    const size_t index = s.input.ConsumeIntegralInRange<size_t>(0, s.demuxes.size() - 1);
    const sp<IDemux> demux = s.demuxes[index].second;
    if (s.input.ConsumeBool()) {
        demux->setFrontendDataSource(anyId(s.input));
    } else {
        demux->close();
        s.demuxes.erase(s.demuxes.begin() + static_cast<long>(index));
    }
}

void lnbOperation(Session& s, const sp<ILnb>& lnb) {
    switch (s.input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            lnb->setVoltage(fuzz::anyEnum<LnbVoltage>(s.input));
            break;
        case 1:
            lnb->setTone(fuzz::anyEnum<LnbTone>(s.input));
            break;
        case 2:
            lnb->setSatellitePosition(fuzz::anyEnum<LnbPosition>(s.input));
            break;
        default:
            lnb->sendDiseqcMessage(
                    s.input.ConsumeBytes<uint8_t>(s.input.ConsumeIntegralInRange(0, 8)));
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::service();
    FuzzedDataProvider input(data, size);
    fuzz::beginInput(input);
    Session session{input, {}, {}, {}};
    for (int step = 0; step < 32 && input.remaining_bytes() > 0; ++step) {
        switch (input.ConsumeIntegralInRange(0, 3)) {
            case 0:
                tunerOperation(session);
                break;
            case 1:
                if (const auto* f = pick(input, session.frontends)) frontendOperation(session, *f);
                break;
            case 2:
                demuxOperation(session);
                break;
            default:
                if (const auto* l = pick(input, session.lnbs)) lnbOperation(session, *l);
                break;
        }
    }
    // What this input opened is closed again, so the next input finds the service as it was.
    for (const auto& demux : session.demuxes) demux.second->close();
    fuzz::settleService();
    fuzz::endInput();
    return 0;
}
