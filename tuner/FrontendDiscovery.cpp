// Discovery: the driver's capability record becomes the frontends' information and the LNBs.
#include "tuner/FrontendDiscovery.h"

#include <algorithm>
#include <cstring>

#include "frontend/Frontend.h"
#include "frontend/FrontendConstants.h"
#include "tuner/CapabilityTranslation.h"
#include "tuner/TunerLog.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

#define DISCOVERY_LOG(priority, fmt, ...) \
    SERVICE_LOG_AS(priority, TUNER_TAG, "Tuner", "getFrontendIds", fmt, ##__VA_ARGS__)
#define DLOGD(fmt, ...) DISCOVERY_LOG(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define DLOGE(fmt, ...) DISCOVERY_LOG(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

namespace {

constexpr uint32_t kMaxFrequencyMHz = 2140;
constexpr uint32_t kMaxSymbolRateKsym = 2140000;
constexpr uint32_t kSymPerKsym = 1000;
constexpr uint32_t kAcquireRangeHz = 30;
constexpr uint32_t kExclusiveGroupBase = 57;
constexpr size_t kFrontendRoom =
        sizeof(MOX_TunerCapability_t::tFrontend) / sizeof(MOX_TunerCapability_t::tFrontend[0]);
constexpr uint32_t kLnbVoltageRoom = 2;

// One status type per set bit of the driver's mask, in bit order, even where it converts to 0.
hidl_vec<FrontendStatusType> statusCapsOf(uint32_t statusCap) {
    std::vector<FrontendStatusType> caps;
    for (uint32_t bit = 0; bit < 32; ++bit) {
        if (statusCap & (1u << bit)) caps.push_back(Frontend::fromMoxStatusType(1u << bit));
    }
    return caps;
}

// Limits a driver range to the maximum, the minimum to the limited maximum, and scales both.
void limitRange(const MOX_TunerRange_t& range, uint32_t maximum, uint32_t factor, uint32_t& low,
                uint32_t& high) {
    const uint32_t limitedMax = std::min(range.uiMax, maximum);
    low = std::min(range.uiMin, limitedMax) * factor;
    high = limitedMax * factor;
}

void logEntry(int e, const MOX_TunerFrontendCap_t& cap) {
    DLOGD("[%d] ucChannelCnt:%d", e, cap.ucChannelCnt);
    DLOGD("[%d] uiStatusCap:%#x", e, cap.uiStatusCap);
    DLOGD("[%d] tTypeSupport.ucCnt:%d", e, cap.tTypeSupport.ucCnt);
    DLOGD("[%d] tFreqRange min:%u max:%u", e, cap.tFreqRange.uiMin, cap.tFreqRange.uiMax);
    DLOGD("[%d] tSymbolRateRange min:%u max:%u", e, cap.tSymbolRateRange.uiMin,
          cap.tSymbolRateRange.uiMax);
}

void discoverFromCapabilities(MOX_TunerCapability_t& capability, DiscoverySink& sink) {
    size_t entries = capability.ucFrontendCnt;
    if (entries > kFrontendRoom) {
        DLOGE("ucFrontendCnt:%d is beyond the record's room of %d, reading %d",
              capability.ucFrontendCnt, static_cast<int>(kFrontendRoom),
              static_cast<int>(kFrontendRoom));
        entries = kFrontendRoom;
    }
    uint32_t id = 0;
    uint32_t lnbIndex = 0;
    for (size_t e = 0; e < entries; ++e) {
        MOX_TunerFrontendCap_t& cap = capability.tFrontend[e];
        const int entry = static_cast<int>(e);
        logEntry(entry, cap);
        const hidl_vec<FrontendStatusType> statusCaps = statusCapsOf(cap.uiStatusCap);
        for (int channel = 0; channel < cap.ucChannelCnt; ++channel) {
            FrontendInfo info{};
            const FrontendType type = translateCapabilities(entry, cap, info.frontendCaps);
            if (type == FrontendType::DVBS) {
                const auto& lnb = cap.tCapability.tDvbs.tLnb;
                for (; lnbIndex < lnb.ucCnt; ++lnbIndex) {
                    if (lnbIndex < kLnbVoltageRoom) {
                        DLOGD("[%d] tCapability.tDvbs.tLnb.tVoltage[%d].uiLow:%u uiHigh:%u", entry,
                              lnbIndex, lnb.tVoltage[lnbIndex].uiLow, lnb.tVoltage[lnbIndex].uiHigh);
                    }
                    sink.addLnb(static_cast<int>(lnbIndex));
                }
            }
            info.type = type;
            limitRange(cap.tFreqRange, kMaxFrequencyMHz, kHzPerMHz, info.minFrequency,
                       info.maxFrequency);
            limitRange(cap.tSymbolRateRange, kMaxSymbolRateKsym, kSymPerKsym, info.minSymbolRate,
                       info.maxSymbolRate);
            info.acquireRange = kAcquireRangeHz;
            info.exclusiveGroupId = id + kExclusiveGroupBase;
            info.statusCaps = statusCaps;

            sink.addFrontend(id, type, std::move(info));
            sink.frontendAdded(id, statusCaps.size());
            ++id;
        }
    }
}

// Without capabilities the service still offers one cable frontend, whose information is empty.
void addFallbackFrontend(DiscoverySink& sink) {
    FrontendInfo info{};
    info.frontendCaps.dvbcCaps(FrontendDvbcCapabilities{});
    sink.addFrontend(0, FrontendType::DVBC, std::move(info));
}

}  // namespace

void discoverFrontends(DiscoverySink& sink) {
    MOX_TunerCapability_t capability;
    memset(&capability, 0, sizeof(capability));
    if (MOX_Tuner_GetCapabilities(&capability) != 0) {
        DLOGE("MOX_Tuner_GetCapabilities fail!! set FrontendDvbcCapabilities!");
        addFallbackFrontend(sink);
        return;
    }
    DLOGD("ucFrontendCnt:%d", capability.ucFrontendCnt);
    discoverFromCapabilities(capability, sink);
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
