#include "FuzzSupport.h"

#include <android/log.h>

#include <cstdlib>
#include <thread>

#include "FuzzDriver.h"
#include "frontend/Frontend.h"

namespace fuzz {

using namespace hal;

namespace {

template <typename Settings>
Settings withFrequency(FuzzedDataProvider& input) {
    Settings settings{};
    settings.frequency = input.ConsumeIntegral<uint32_t>();
    return settings;
}

FrontendDvbtSettings anyDvbt(FuzzedDataProvider& input) {
    FrontendDvbtSettings s{};
    s.frequency = input.ConsumeIntegral<uint32_t>();
    s.transmissionMode = anyEnum<FrontendDvbtTransmissionMode>(input);
    s.bandwidth = anyEnum<FrontendDvbtBandwidth>(input);
    s.constellation = anyEnum<FrontendDvbtConstellation>(input);
    s.hierarchy = anyEnum<FrontendDvbtHierarchy>(input);
    s.hpCoderate = anyEnum<FrontendDvbtCoderate>(input);
    s.lpCoderate = anyEnum<FrontendDvbtCoderate>(input);
    s.guardInterval = anyEnum<FrontendDvbtGuardInterval>(input);
    s.isHighPriority = input.ConsumeBool();
    s.standard = anyEnum<FrontendDvbtStandard>(input);
    s.isMiso = input.ConsumeBool();
    s.plpMode = anyEnum<FrontendDvbtPlpMode>(input);
    s.plpId = input.ConsumeIntegral<uint8_t>();
    s.plpGroupId = input.ConsumeIntegral<uint8_t>();
    return s;
}

FrontendDvbcSettings anyDvbc(FuzzedDataProvider& input) {
    FrontendDvbcSettings s{};
    s.frequency = input.ConsumeIntegral<uint32_t>();
    s.modulation = anyEnum<FrontendDvbcModulation>(input);
    s.fec = anyEnum<FrontendInnerFec>(input);
    s.symbolRate = input.ConsumeIntegral<uint32_t>();
    s.outerFec = anyEnum<FrontendDvbcOuterFec>(input);
    s.annex = anyEnum<FrontendDvbcAnnex>(input);
    s.spectralInversion = anyEnum<FrontendDvbcSpectralInversion>(input);
    return s;
}

FrontendDvbsSettings anyDvbs(FuzzedDataProvider& input) {
    FrontendDvbsSettings s{};
    s.frequency = input.ConsumeIntegral<uint32_t>();
    s.modulation = anyEnum<FrontendDvbsModulation>(input);
    s.coderate.fec = anyEnum<FrontendInnerFec>(input);
    s.coderate.isLinear = input.ConsumeBool();
    s.coderate.isShortFrames = input.ConsumeBool();
    s.coderate.bitsPer1000Symbol = input.ConsumeIntegral<uint32_t>();
    s.symbolRate = input.ConsumeIntegral<uint32_t>();
    s.rolloff = anyEnum<FrontendDvbsRolloff>(input);
    s.pilot = anyEnum<FrontendDvbsPilot>(input);
    s.inputStreamId = input.ConsumeIntegral<uint32_t>();
    s.standard = anyEnum<FrontendDvbsStandard>(input);
    s.vcmMode = anyEnum<FrontendDvbsVcmMode>(input);
    return s;
}

class CheckingCallback : public IFrontendCallback {
  public:
    ::android::hardware::Return<void> onEvent(FrontendEventType) override {
        return ::android::hardware::Void();
    }
    ::android::hardware::Return<void> onScanMessage(FrontendScanMessageType type,
                                                    const FrontendScanMessage& message) override {
        using D = FrontendScanMessage::hidl_discriminator;
        switch (type) {
            case FrontendScanMessageType::FREQUENCY:
                if (message.getDiscriminator() != D::frequencies ||
                    message.frequencies().size() != 1) {
                    abort();
                }
                break;
            case FrontendScanMessageType::PROGRESS_PERCENT:
                if (message.progressPercent() > 100) abort();
                break;
            default:
                break;
        }
        return ::android::hardware::Void();
    }
};

}  // namespace

::android::sp<IFrontendCallback> checkingCallback() {
    return new CheckingCallback();
}

void waitForScanEnd(const ::android::sp<IFrontend>& frontend) {
    auto* f = static_cast<implementation::Frontend*>(frontend.get());
    while (f->isScanRunning()) std::this_thread::yield();
}

FrontendSettings anySettings(FuzzedDataProvider& input) {
    FrontendSettings settings;
    switch (input.ConsumeIntegralInRange<int>(0, 8)) {
        case 0:
            settings.analog(withFrequency<FrontendAnalogSettings>(input));
            break;
        case 1:
            settings.atsc(withFrequency<FrontendAtscSettings>(input));
            break;
        case 2:
            settings.atsc3(withFrequency<FrontendAtsc3Settings>(input));
            break;
        case 3:
            settings.dvbs(anyDvbs(input));
            break;
        case 4:
            settings.dvbc(anyDvbc(input));
            break;
        case 5:
            settings.dvbt(anyDvbt(input));
            break;
        case 6:
            settings.isdbs(withFrequency<FrontendIsdbsSettings>(input));
            break;
        case 7:
            settings.isdbs3(withFrequency<FrontendIsdbs3Settings>(input));
            break;
        default:
            settings.isdbt(withFrequency<FrontendIsdbtSettings>(input));
            break;
    }
    return settings;
}

const ::android::sp<implementation::Tuner>& service() {
    static const ::android::sp<implementation::Tuner> tuner = [] {
        __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
        setFixedCapabilities(boxCapabilities());
        ::android::sp<implementation::Tuner> t = new implementation::Tuner();
        t->getFrontendIds([](Result, const ::android::hardware::hidl_vec<uint32_t>&) {});
        return t;
    }();
    return tuner;
}

void settleService() {
    std::vector<::android::sp<implementation::Frontend>> frontends;
    for (uint32_t id = 0;; ++id) {
        ::android::sp<implementation::Frontend> f = service()->getFrontendById(id);
        if (f == nullptr) break;
        frontends.push_back(f);
    }
    // Closed frontends refuse new scans; the second round stops what a callback already under
    // way started during the first.
    for (const auto& f : frontends) f->close();
    for (int round = 0; round < 2; ++round) {
        for (const auto& f : frontends) f->stopScan();
    }
}

}  // namespace fuzz
