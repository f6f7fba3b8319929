#include "FakeMoxDriver.h"

#include <cstring>

#include "VirtualClock.h"

namespace fake {

Driver& Driver::get() {
    static Driver* instance = new Driver();  // scan threads may still call it at exit
    return *instance;
}

void Driver::reset() {
    ::android::Mutex::Autolock guard(mLock);
    mInitResult = 0;
    mCapabilitiesResult = 0;
    memset(&mCapability, 0, sizeof(mCapability));
    mScan = nullptr;
    mIsLocked = nullptr;
    mGetInfo = nullptr;
    mGetParamInfo = nullptr;
    mCalls.clear();
    mScans.clear();
    mLnbCalls.clear();
    mResults.clear();
}

void Driver::setResult(const std::string& name, int result) {
    ::android::Mutex::Autolock guard(mLock);
    mResults[name] = result;
}

int Driver::resultOf(const std::string& name) const {
    auto it = mResults.find(name);
    return it == mResults.end() ? 0 : it->second;
}

void Driver::setInitResult(int result) {
    ::android::Mutex::Autolock guard(mLock);
    mInitResult = result;
}

void Driver::setCapabilities(int result, const MOX_TunerCapability_t& capability) {
    ::android::Mutex::Autolock guard(mLock);
    mCapabilitiesResult = result;
    mCapability = capability;
}

void Driver::onScan(std::function<int(uint8_t, const MOX_TunerParam_t&)> script) {
    ::android::Mutex::Autolock guard(mLock);
    mScan = std::move(script);
}

void Driver::onIsLocked(std::function<int(uint8_t)> script) {
    ::android::Mutex::Autolock guard(mLock);
    mIsLocked = std::move(script);
}

void Driver::onGetInfo(std::function<int(uint8_t, MOX_TunerSignalInfo_t*)> script) {
    ::android::Mutex::Autolock guard(mLock);
    mGetInfo = std::move(script);
}

void Driver::onGetParamInfo(std::function<int(uint8_t, MOX_TunerParamInfo_t*)> script) {
    ::android::Mutex::Autolock guard(mLock);
    mGetParamInfo = std::move(script);
}

std::vector<DriverCall> Driver::calls() const {
    ::android::Mutex::Autolock guard(mLock);
    return mCalls;
}

int Driver::count(const std::string& name) const {
    ::android::Mutex::Autolock guard(mLock);
    int n = 0;
    for (const DriverCall& call : mCalls) n += call.name == name;
    return n;
}

std::vector<MOX_TunerParam_t> Driver::scans() const {
    ::android::Mutex::Autolock guard(mLock);
    return mScans;
}

std::vector<LnbCall> Driver::lnbCalls() const {
    ::android::Mutex::Autolock guard(mLock);
    return mLnbCalls;
}

void Driver::record(const char* name, int32_t target) {
    mCalls.push_back({name, target, vt::nowUs()});
}

int Driver::init() {
    ::android::Mutex::Autolock guard(mLock);
    record("Init", -1);
    return mInitResult;
}

int Driver::getCapabilities(MOX_TunerCapability_t* capability) {
    ::android::Mutex::Autolock guard(mLock);
    record("GetCapabilities", -1);
    if (mCapabilitiesResult == 0) *capability = mCapability;
    return mCapabilitiesResult;
}

// Scripts run outside the lock, so a script may call back into the service.
int Driver::scan(uint8_t tuner, const MOX_TunerParam_t& param) {
    std::function<int(uint8_t, const MOX_TunerParam_t&)> script;
    {
        ::android::Mutex::Autolock guard(mLock);
        record("Scan", tuner);
        mScans.push_back(param);
        script = mScan;
    }
    return script ? script(tuner, param) : 0;
}

int Driver::isLocked(uint8_t tuner) {
    std::function<int(uint8_t)> script;
    {
        ::android::Mutex::Autolock guard(mLock);
        record("IsLocked", tuner);
        script = mIsLocked;
    }
    return script ? script(tuner) : 1;
}

int Driver::getInfo(uint8_t tuner, MOX_TunerSignalInfo_t* info) {
    std::function<int(uint8_t, MOX_TunerSignalInfo_t*)> script;
    {
        ::android::Mutex::Autolock guard(mLock);
        record("GetInfo", tuner);
        script = mGetInfo;
    }
    return script ? script(tuner, info) : 0;
}

int Driver::getParamInfo(uint8_t tuner, MOX_TunerParamInfo_t* info) {
    std::function<int(uint8_t, MOX_TunerParamInfo_t*)> script;
    {
        ::android::Mutex::Autolock guard(mLock);
        record("GetParamInfo", tuner);
        script = mGetParamInfo;
    }
    return script ? script(tuner, info) : 0;
}

int Driver::release(uint8_t tuner) {
    ::android::Mutex::Autolock guard(mLock);
    record("Release", tuner);
    return resultOf("Release");
}

int Driver::lnb(const LnbCall& call) {
    ::android::Mutex::Autolock guard(mLock);
    record(call.name.c_str(), call.lnbId);
    mLnbCalls.push_back(call);
    return resultOf(call.name);
}

MOX_TunerFrontendCap_t entryOfType(uint32_t typeCode, uint8_t channels) {
    MOX_TunerFrontendCap_t entry;
    memset(&entry, 0, sizeof(entry));
    entry.ucChannelCnt = channels;
    entry.tTypeSupport.ucCnt = 1;
    entry.tTypeSupport.eValues[0] = typeCode;
    entry.tFreqRange = {50, 860};
    entry.tSymbolRateRange = {1000, 7000};
    return entry;
}

MOX_TunerFrontendCap_t dvbtEntry(uint8_t channels) {
    return entryOfType(MOX_TUNER_TYPE_DVBT, channels);
}

MOX_TunerFrontendCap_t dvbcEntry(uint8_t channels) {
    return entryOfType(MOX_TUNER_TYPE_DVBC, channels);
}

MOX_TunerFrontendCap_t dvbsEntry(uint8_t channels, uint8_t lnbs) {
    MOX_TunerFrontendCap_t entry = entryOfType(MOX_TUNER_TYPE_DVBS, channels);
    entry.tCapability.tDvbs.tLnb.ucCnt = lnbs;
    return entry;
}

MOX_TunerCapability_t capabilityOf(const std::vector<MOX_TunerFrontendCap_t>& entries) {
    MOX_TunerCapability_t capability;
    memset(&capability, 0, sizeof(capability));
    capability.ucFrontendCnt = static_cast<uint8_t>(entries.size());
    for (size_t i = 0; i < entries.size() && i < 5; ++i) capability.tFrontend[i] = entries[i];
    return capability;
}

}  // namespace fake

using fake::Driver;

extern "C" {

int MOX_Tuner_Init(void) {
    return Driver::get().init();
}
int MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    return Driver::get().getCapabilities(capability);
}
int MOX_Tuner_Scan(uint8_t tuner, MOX_TunerParam_t param) {
    return Driver::get().scan(tuner, param);
}
int MOX_Tuner_IsLocked(uint8_t tuner) {
    return Driver::get().isLocked(tuner);
}
int MOX_Tuner_GetInfo(uint8_t tuner, MOX_TunerSignalInfo_t* info) {
    return Driver::get().getInfo(tuner, info);
}
int MOX_Tuner_GetParamInfo(uint8_t tuner, MOX_TunerParamInfo_t* info) {
    return Driver::get().getParamInfo(tuner, info);
}
int MOX_Tuner_Release(uint8_t tuner) {
    return Driver::get().release(tuner);
}
int MOX_Tuner_SetLNBMode(int32_t lnbId, uint32_t mode) {
    return Driver::get().lnb({"SetLNBMode", lnbId, mode, {}});
}
int MOX_Tuner_Set22KContinues(int32_t lnbId, uint32_t on) {
    return Driver::get().lnb({"Set22KContinues", lnbId, on, {}});
}
int MOX_Tuner_SendDiSEqCToneBurst(int32_t lnbId, uint32_t burst) {
    return Driver::get().lnb({"SendDiSEqCToneBurst", lnbId, burst, {}});
}
int MOX_Tuner_SendDiSEqCCmd(int32_t lnbId, MOX_DiSEqCCmd_t cmd) {
    return Driver::get().lnb({"SendDiSEqCCmd", lnbId, 0, cmd});
}

}  // extern "C"
