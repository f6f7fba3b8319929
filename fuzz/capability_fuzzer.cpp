// A hostile capability record: discovery must never read outside the record or a list in it.
#include <android/log.h>

#include <cstring>

#include "FuzzDriver.h"
#include "tuner/Tuner.h"

using namespace ::android::hardware::tv::tuner::V1_0;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    memset(&fuzz::gCapability, 0, sizeof(fuzz::gCapability));
    memcpy(&fuzz::gCapability, data, std::min(size, sizeof(fuzz::gCapability)));
    // The Tuner and its frontends keep each other alive, as in the service: one per input.
    ::android::sp<implementation::Tuner> tuner = new implementation::Tuner();
    std::vector<uint32_t> ids;
    tuner->getFrontendIds(
            [&](Result, const ::android::hardware::hidl_vec<uint32_t>& list) { ids = list; });
    for (uint32_t id : ids) tuner->getFrontendInfo(id, [](Result, const FrontendInfo&) {});
    tuner->getLnbIds([](Result, const ::android::hardware::hidl_vec<uint32_t>&) {});
    return 0;
}
