// Any signal and parameter records and any requested status types: getStatus answers without
// undefined behaviour (NaN, infinities and huge floats included).
#include <android/log.h>

#include <cstring>

#include "FuzzDriver.h"
#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

using namespace ::android::hardware::tv::tuner::V1_0;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    static ::android::sp<implementation::Frontend> frontend =
            new implementation::Frontend(FrontendType::DVBT, 0, new implementation::Tuner());
    constexpr size_t kRecords = sizeof(fuzz::gSignal) + sizeof(fuzz::gParamInfo);
    if (size < kRecords) return 0;
    memcpy(&fuzz::gSignal, data, sizeof(fuzz::gSignal));
    memcpy(&fuzz::gParamInfo, data + sizeof(fuzz::gSignal), sizeof(fuzz::gParamInfo));
    std::vector<FrontendStatusType> types;
    for (size_t i = kRecords; i < size; ++i)
        types.push_back(static_cast<FrontendStatusType>(data[i]));
    frontend->getStatus(types, [](Result, const ::android::hardware::hidl_vec<FrontendStatus>&) {});
    return 0;
}
