// Any capability record, or a failed read of it: discovery reads nothing outside the record or a
// list in it, numbers the frontends densely from 0 and numbers the LNBs in order.
#include <android/log.h>

#include <cstdlib>

#include "FuzzDriver.h"
#include "tuner/FrontendDiscovery.h"

using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

class CheckingSink : public implementation::DiscoverySink {
  public:
    void addFrontend(uint32_t id, FrontendType, FrontendInfo&& info) override {
        if (id != mFrontends++) abort();
        if (info.minFrequency > info.maxFrequency || info.minSymbolRate > info.maxSymbolRate) {
            abort();
        }
    }
    void frontendAdded(uint32_t id, size_t) override {
        if (id + 1 != mFrontends) abort();
    }
    void addLnb(int lnbIndex) override {
        if (lnbIndex != mLnbs++) abort();
    }

  private:
    uint32_t mFrontends = 0;
    int mLnbs = 0;
};

}  // namespace

// Input: the driver's result, then the record's bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    FuzzedDataProvider input(data, size);
    fuzz::beginInput(input);
    CheckingSink sink;
    implementation::discoverFrontends(sink);
    fuzz::endInput();
    return 0;
}
