// Settings of any alternative with any values into the settings translation, tune and scan of any
// frontend, with the driver's answers from the input, in virtual time.
#include "FuzzDriver.h"
#include "FuzzSupport.h"
#include "frontend/Frontend.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using implementation::Frontend;

namespace {

// The service's frontends, and one of a type that has no scan.
::android::sp<Frontend> anyFrontend(FuzzedDataProvider& input) {
    static const ::android::sp<Frontend> isdbt =
            new Frontend(FrontendType::ISDBT, 4, fuzz::service());
    const uint32_t id = input.ConsumeIntegralInRange<uint32_t>(0, 4);
    return id < 4 ? fuzz::service()->getFrontendById(id) : isdbt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::service();
    FuzzedDataProvider input(data, size);
    fuzz::beginInput(input);
    for (int step = 0; step < 8 && input.remaining_bytes() > 0; ++step) {
        const ::android::sp<Frontend> frontend = anyFrontend(input);
        frontend->setCallback(fuzz::checkingCallback());
        const FrontendSettings settings = fuzz::anySettings(input);
        switch (input.ConsumeIntegralInRange(0, 3)) {
            case 0: {
                MOX_TunerParam_t param{};
                Frontend::toMoxTunerParam(fuzz::anyEnum<FrontendType>(input), settings, param);
                break;
            }
            case 1:
                frontend->tune(settings);
                break;
            case 2:
                frontend->scan(settings, fuzz::anyEnum<FrontendScanType>(input));
                fuzz::waitForScanEnd(frontend);
                break;
            default:
                frontend->stopTune();
                break;
        }
    }
    fuzz::settleService();
    fuzz::endInput();
    return 0;
}
