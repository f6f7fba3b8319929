// Any list of status types against any signal and parameter records and read results: getStatus
// answers exactly once, without undefined behaviour (NaN, infinities and huge floats included).
#include <cstdlib>

#include "FuzzDriver.h"
#include "FuzzSupport.h"
#include "frontend/Frontend.h"

using namespace ::android::hardware::tv::tuner::V1_0;

// Input: the requested types, then the driver's answers.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto& tuner = fuzz::service();
    FuzzedDataProvider input(data, size);
    std::vector<FrontendStatusType> types(input.ConsumeIntegralInRange<size_t>(0, 64));
    for (FrontendStatusType& type : types) {
        type = static_cast<FrontendStatusType>(input.ConsumeBool()
                                                       ? input.ConsumeIntegral<uint32_t>()
                                                       : input.ConsumeIntegralInRange(0, 23));
    }
    const uint32_t id = input.ConsumeIntegralInRange(0, 3);
    fuzz::beginInput(input);
    int answers = 0;
    tuner->getFrontendById(id)->getStatus(
            types, [&](Result result, const ::android::hardware::hidl_vec<FrontendStatus>& s) {
                ++answers;
                if (s.size() > types.size()) abort();
                if (result != Result::SUCCESS && s.size() != 0) abort();
            });
    fuzz::endInput();
    if (answers != 1) abort();
    return 0;
}
