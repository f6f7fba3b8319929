// Any signal and parameter records and any requested status types: getStatus answers without
// undefined behaviour (NaN, infinities and huge floats included).
#include <android/log.h>

#include <algorithm>
#include <cstring>

#include "FuzzDriver.h"
#include "frontend/Frontend.h"
#include "tuner/Tuner.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {
// Copies what is left of the input into a record, zero-filling the rest.
template <typename Record>
void fill(Record& record, const uint8_t*& data, size_t& size) {
    memset(&record, 0, sizeof(record));
    const size_t n = std::min(size, sizeof(record));
    memcpy(&record, data, n);
    data += n;
    size -= n;
}
}  // namespace

// Input: a count n, n status type numbers, then the signal record and the parameter record.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    static ::android::sp<implementation::Frontend> frontend =
            new implementation::Frontend(FrontendType::DVBT, 0, new implementation::Tuner());
    if (size == 0) return 0;
    const size_t count = std::min<size_t>(data[0], size - 1);
    std::vector<FrontendStatusType> types;
    for (size_t i = 0; i < count; ++i)
        types.push_back(static_cast<FrontendStatusType>(data[1 + i]));
    data += 1 + count;
    size -= 1 + count;
    fill(fuzz::gSignal, data, size);
    fill(fuzz::gParamInfo, data, size);
    frontend->getStatus(types, [](Result, const ::android::hardware::hidl_vec<FrontendStatus>&) {});
    return 0;
}
