#include "Descrambler.h"

#include <utility>

#include "tuner/Tuner.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

Descrambler::Descrambler(sp<Tuner> tuner) : mTuner(std::move(tuner)) {}

Descrambler::~Descrambler() = default;

Return<Result> Descrambler::setDemuxSource(uint32_t) {
    return Result::SUCCESS;
}

Return<Result> Descrambler::setKeyToken(const hidl_vec<uint8_t>&) {
    return Result::SUCCESS;
}

Return<Result> Descrambler::addPid(const DemuxPid&, const sp<IFilter>&) {
    return Result::SUCCESS;
}

Return<Result> Descrambler::removePid(const DemuxPid&, const sp<IFilter>&) {
    return Result::SUCCESS;
}

Return<Result> Descrambler::close() {
    return Result::SUCCESS;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
