#include "PlpInUse.h"

#include "ChannelSettings.h"
#include "ServiceCalls.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::sp;
using ::android::hardware::hidl_vec;

std::optional<uint32_t> plpInUse(const sp<IFrontend>& frontend, const FrontendSettings& settings,
                                 const FrontendInfo& info) {
    if (settings.getDiscriminator() != FrontendSettings::hidl_discriminator::dvbt ||
        settings.dvbt().standard != FrontendDvbtStandard::T2 ||
        !lists(info, FrontendStatusType::PLP_ID)) {
        return std::nullopt;
    }
    std::optional<uint32_t> plp;
    call("getStatus", [&] {
        return frontend->getStatus(
                hidl_vec<FrontendStatusType>{FrontendStatusType::PLP_ID},
                [&](Result r, const hidl_vec<FrontendStatus>& s) {
                    if (r == Result::SUCCESS && s.size() == 1 &&
                        s[0].getDiscriminator() == FrontendStatus::hidl_discriminator::plpId) {
                        plp = s[0].plpId();
                    }
                });
    });
    return plp;
}

}  // namespace tunerctl
