// Any sequence of LNB commands with any values, and DiSEqC messages of any length: every answer
// is SUCCESS but for a message longer than 6 bytes, whatever the driver answers.
#include <cstdlib>

#include "FuzzDriver.h"
#include "FuzzSupport.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

::android::sp<ILnb> openAnyLnb(FuzzedDataProvider& input) {
    ::android::sp<ILnb> lnb;
    if (input.ConsumeBool()) {
        fuzz::service()->openLnbById(input.ConsumeIntegralInRange<uint32_t>(0, 3),
                                     [&](Result, const ::android::sp<ILnb>& l) { lnb = l; });
    } else {
        fuzz::service()->openLnbByName(
                input.ConsumeRandomLengthString(16),
                [&](Result, uint32_t, const ::android::sp<ILnb>& l) { lnb = l; });
    }
    return lnb;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::service();
    FuzzedDataProvider input(data, size);
    fuzz::beginInput(input);
    ::android::sp<ILnb> lnb = openAnyLnb(input);
    for (int step = 0; lnb != nullptr && step < 16 && input.remaining_bytes() > 0; ++step) {
        Result result = Result::SUCCESS;
        switch (input.ConsumeIntegralInRange(0, 5)) {
            case 0:
                result = lnb->setVoltage(fuzz::anyEnum<LnbVoltage>(input));
                break;
            case 1:
                result = lnb->setTone(fuzz::anyEnum<LnbTone>(input));
                break;
            case 2:
                result = lnb->setSatellitePosition(fuzz::anyEnum<LnbPosition>(input));
                break;
            case 3: {
                const std::vector<uint8_t> message =
                        input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 12));
                result = lnb->sendDiseqcMessage(message);
                if ((message.size() > 6) != (result == Result::INVALID_ARGUMENT)) abort();
                continue;
            }
            case 4:
                result = lnb->setCallback(nullptr);
                break;
            default:
                result = lnb->close();
                break;
        }
        if (result != Result::SUCCESS) abort();
    }
    fuzz::endInput();
    return 0;
}
