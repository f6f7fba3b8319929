// The driver boundary, recorded: the service is linked with --wrap for each entry point, so its
// calls come here first and reach the maker's library through __real_*. With no recorder active a
// call costs one load and a branch more.
#include <cstring>
#include <string>
#include <utility>

#include "driver/MoxTuner.h"
#include "recorder/RealDriver.h"
#include "recorder/TraceRecorder.h"

using mox::trace::DriverCall;
using mox::trace::DriverFunction;

namespace {

// A driver record in memory: copied only when a call is recorded.
struct Record {
    const void* bytes = nullptr;
    size_t size = 0;
    std::string copy() const {
        return bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : std::string();
    }
};

template <typename T>
Record record(const T* value) {
    return {value, sizeof(T)};
}

// Stamps the call as it starts, runs it, and hands the record to the sink: the record passed in
// as it went in (for a buffer the driver fills, before it fills it) and the one it filled.
template <typename Run>
int recorded(DriverFunction function, int64_t target, int64_t value, Record in, Run run,
             Record filled = {}) {
    mox::trace::TraceSink* sink = mox::trace::activeSink();
    if (sink == nullptr) return run();
    const uint64_t timeUs = mox::trace::traceNowUs();
    DriverCall call;
    call.function = function;
    call.target = target;
    call.value = value;
    call.in = in.copy();
    call.result = run();
    call.out = filled.copy();
    const int result = call.result;
    sink->driverCall(timeUs, mox::trace::traceThread(), std::move(call));
    return result;
}

}  // namespace

extern "C" {

int __wrap_MOX_Tuner_Init(void) {
    return recorded(DriverFunction::Init, 0, 0, {}, [] { return __real_MOX_Tuner_Init(); });
}

int __wrap_MOX_Tuner_GetCapabilities(MOX_TunerCapability_t* capability) {
    return recorded(
            DriverFunction::GetCapabilities, 0, 0, record(capability),
            [&] { return __real_MOX_Tuner_GetCapabilities(capability); }, record(capability));
}

int __wrap_MOX_Tuner_Scan(uint8_t tunerIndex, MOX_TunerParam_t param) {
    return recorded(DriverFunction::Scan, tunerIndex, 0, record(&param),
                    [&] { return __real_MOX_Tuner_Scan(tunerIndex, param); });
}

int __wrap_MOX_Tuner_IsLocked(uint8_t tunerIndex) {
    return recorded(DriverFunction::IsLocked, tunerIndex, 0, {},
                    [&] { return __real_MOX_Tuner_IsLocked(tunerIndex); });
}

int __wrap_MOX_Tuner_GetInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info) {
    return recorded(
            DriverFunction::GetInfo, tunerIndex, 0, record(info),
            [&] { return __real_MOX_Tuner_GetInfo(tunerIndex, info); }, record(info));
}

int __wrap_MOX_Tuner_GetParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info) {
    return recorded(
            DriverFunction::GetParamInfo, tunerIndex, 0, record(info),
            [&] { return __real_MOX_Tuner_GetParamInfo(tunerIndex, info); }, record(info));
}

int __wrap_MOX_Tuner_Release(uint8_t tunerIndex) {
    return recorded(DriverFunction::Release, tunerIndex, 0, {},
                    [&] { return __real_MOX_Tuner_Release(tunerIndex); });
}

int __wrap_MOX_Tuner_SetLNBMode(int32_t lnbId, uint32_t mode) {
    return recorded(DriverFunction::SetLNBMode, lnbId, mode, {},
                    [&] { return __real_MOX_Tuner_SetLNBMode(lnbId, mode); });
}

int __wrap_MOX_Tuner_Set22KContinues(int32_t lnbId, uint32_t on) {
    return recorded(DriverFunction::Set22KContinues, lnbId, on, {},
                    [&] { return __real_MOX_Tuner_Set22KContinues(lnbId, on); });
}

int __wrap_MOX_Tuner_SendDiSEqCToneBurst(int32_t lnbId, uint32_t burst) {
    return recorded(DriverFunction::SendDiSEqCToneBurst, lnbId, burst, {},
                    [&] { return __real_MOX_Tuner_SendDiSEqCToneBurst(lnbId, burst); });
}

int __wrap_MOX_Tuner_SendDiSEqCCmd(int32_t lnbId, MOX_DiSEqCCmd_t cmd) {
    return recorded(DriverFunction::SendDiSEqCCmd, lnbId, 0, record(&cmd),
                    [&] { return __real_MOX_Tuner_SendDiSEqCCmd(lnbId, cmd); });
}

int __wrap_MOX_DvbSetSMP(int path, int enable) {
    return recorded(DriverFunction::DvbSetSMP, path, enable, {},
                    [&] { return __real_MOX_DvbSetSMP(path, enable); });
}

}  // extern "C"
