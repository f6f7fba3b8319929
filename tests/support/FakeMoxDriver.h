// A scriptable MOX tuner driver for unit tests: every entry point answers what the test set up
// and records what it was called with. Like the real driver it zero-fills nothing on the caller's
// behalf.
#pragma once

#include <utils/Mutex.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "driver/MoxTuner.h"

namespace fake {

struct DriverCall {
    std::string name;  // entry point without the MOX_Tuner_ prefix, e.g. "Scan"
    int32_t target;    // tuner index or LNB id; -1 for Init and GetCapabilities
    uint64_t atUs;     // virtual time of the call
};

struct LnbCall {
    std::string name;  // SetLNBMode, Set22KContinues, SendDiSEqCToneBurst, SendDiSEqCCmd
    int32_t lnbId;
    uint32_t value;           // mode, switch or burst
    MOX_DiSEqCCmd_t command;  // SendDiSEqCCmd only
};

class Driver {
  public:
    static Driver& get();
    void reset();

    // Scripts (all default to success; IsLocked defaults to "no lock", GetInfo to writing
    // nothing).
    void setInitResult(int result);
    void setCapabilities(int result, const MOX_TunerCapability_t& capability);
    void onScan(std::function<int(uint8_t, const MOX_TunerParam_t&)> script);
    void onIsLocked(std::function<int(uint8_t)> script);
    void onGetInfo(std::function<int(uint8_t, MOX_TunerSignalInfo_t*)> script);
    void onGetParamInfo(std::function<int(uint8_t, MOX_TunerParamInfo_t*)> script);
    // A fixed result for Release or an LNB entry point (by its name in the records).
    void setResult(const std::string& name, int result);

    // Records.
    std::vector<DriverCall> calls() const;
    int count(const std::string& name) const;
    std::vector<MOX_TunerParam_t> scans() const;
    std::vector<LnbCall> lnbCalls() const;

    // Entry points.
    int init();
    int getCapabilities(MOX_TunerCapability_t* capability);
    int scan(uint8_t tuner, const MOX_TunerParam_t& param);
    int isLocked(uint8_t tuner);
    int getInfo(uint8_t tuner, MOX_TunerSignalInfo_t* info);
    int getParamInfo(uint8_t tuner, MOX_TunerParamInfo_t* info);
    int release(uint8_t tuner);
    int lnb(const LnbCall& call);

  private:
    void record(const char* name, int32_t target) REQUIRES(mLock);
    int resultOf(const std::string& name) const REQUIRES(mLock);

    mutable ::android::Mutex mLock;
    int mInitResult GUARDED_BY(mLock) = 0;
    int mCapabilitiesResult GUARDED_BY(mLock) = 0;
    MOX_TunerCapability_t mCapability GUARDED_BY(mLock){};
    std::function<int(uint8_t, const MOX_TunerParam_t&)> mScan GUARDED_BY(mLock);
    std::function<int(uint8_t)> mIsLocked GUARDED_BY(mLock);
    std::function<int(uint8_t, MOX_TunerSignalInfo_t*)> mGetInfo GUARDED_BY(mLock);
    std::function<int(uint8_t, MOX_TunerParamInfo_t*)> mGetParamInfo GUARDED_BY(mLock);
    std::vector<DriverCall> mCalls GUARDED_BY(mLock);
    std::vector<MOX_TunerParam_t> mScans GUARDED_BY(mLock);
    std::vector<LnbCall> mLnbCalls GUARDED_BY(mLock);
    std::map<std::string, int> mResults GUARDED_BY(mLock);
};

// Capability entries for tests.
MOX_TunerFrontendCap_t dvbtEntry(uint8_t channels);
MOX_TunerFrontendCap_t dvbcEntry(uint8_t channels);
MOX_TunerFrontendCap_t dvbsEntry(uint8_t channels, uint8_t lnbs);
MOX_TunerFrontendCap_t entryOfType(uint32_t typeCode, uint8_t channels);
MOX_TunerCapability_t capabilityOf(const std::vector<MOX_TunerFrontendCap_t>& entries);

}  // namespace fake
