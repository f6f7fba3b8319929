#include "FuzzDriver.h"

#include <utils/Mutex.h>

#include <cstring>

namespace fuzz {
namespace {

::android::Mutex gLock;
FuzzedDataProvider* gInput GUARDED_BY(gLock) = nullptr;
std::optional<MOX_TunerCapability_t> gFixedCapability GUARDED_BY(gLock);

// Half of the results are success; the rest are whatever the input says.
int takeResult() {
    ::android::Mutex::Autolock guard(gLock);
    if (gInput == nullptr) return 0;
    const int8_t value = gInput->ConsumeIntegral<int8_t>();
    return (value & 1) == 0 ? 0 : value;
}

template <typename Record>
void takeRecord(Record* record) {
    memset(record, 0, sizeof(*record));
    ::android::Mutex::Autolock guard(gLock);
    if (gInput != nullptr) gInput->ConsumeData(record, sizeof(*record));
}

}  // namespace

void beginInput(FuzzedDataProvider& input) {
    ::android::Mutex::Autolock guard(gLock);
    gInput = &input;
}

void endInput() {
    ::android::Mutex::Autolock guard(gLock);
    gInput = nullptr;
}

void setFixedCapabilities(std::optional<MOX_TunerCapability_t> capability) {
    ::android::Mutex::Autolock guard(gLock);
    gFixedCapability = capability;
}

MOX_TunerCapability_t boxCapabilities() {
    MOX_TunerCapability_t capability;
    memset(&capability, 0, sizeof(capability));
    capability.ucFrontendCnt = 3;
    const uint32_t types[] = {MOX_TUNER_TYPE_DVBT2, MOX_TUNER_TYPE_DVBC, MOX_TUNER_TYPE_DVBS2};
    const uint8_t channels[] = {2, 1, 1};
    for (int e = 0; e < 3; ++e) {
        MOX_TunerFrontendCap_t& entry = capability.tFrontend[e];
        entry.ucChannelCnt = channels[e];
        entry.uiStatusCap = 0x3FFFFF;
        entry.tTypeSupport.ucCnt = 1;
        entry.tTypeSupport.eValues[0] = types[e];
        entry.tFreqRange = {50, 2150};
        entry.tSymbolRateRange = {1000, 45000};
    }
    capability.tFrontend[0].tCapability.tDvbt.ucT2Support = 1;
    capability.tFrontend[2].tCapability.tDvbs.tLnb.ucCnt = 2;
    return capability;
}

}  // namespace fuzz

using fuzz::takeRecord;
using fuzz::takeResult;

extern "C" {
int MOX_Tuner_Init(void) {
    return takeResult();
}
int MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    {
        ::android::Mutex::Autolock guard(fuzz::gLock);
        if (fuzz::gFixedCapability) {
            *capability = *fuzz::gFixedCapability;
            return 0;
        }
    }
    const int result = takeResult();
    takeRecord(capability);
    return result;
}
int MOX_Tuner_Scan(uint8_t, MOX_TunerParam_t) {
    return takeResult();
}
int MOX_Tuner_IsLocked(uint8_t) {
    return takeResult();
}
int MOX_Tuner_GetInfo(uint8_t, MOX_TunerSignalInfo_t* info) {
    const int result = takeResult();
    takeRecord(info);
    return result;
}
int MOX_Tuner_GetParamInfo(uint8_t, MOX_TunerParamInfo_t* info) {
    const int result = takeResult();
    takeRecord(info);
    return result;
}
int MOX_Tuner_Release(uint8_t) {
    return takeResult();
}
int MOX_Tuner_SetLNBMode(int32_t, uint32_t) {
    return takeResult();
}
int MOX_Tuner_Set22KContinues(int32_t, uint32_t) {
    return takeResult();
}
int MOX_Tuner_SendDiSEqCToneBurst(int32_t, uint32_t) {
    return takeResult();
}
int MOX_Tuner_SendDiSEqCCmd(int32_t, MOX_DiSEqCCmd_t) {
    return takeResult();
}
}
