#include "simulator/SimulatedDriver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <utility>

namespace mox::sim {

namespace {

constexpr size_t kEntries =
        sizeof(MOX_TunerCapability_t::tFrontend) / sizeof(MOX_TunerCapability_t::tFrontend[0]);
// A demodulator locks to a symbol rate within 1% of the transmitted one.
constexpr uint32_t kSymbolRateTolerancePercent = 1;

uint64_t steadyNowUs() {
    const auto sinceEpoch = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

bool isSatellite(uint32_t system) {
    return system == MOX_TUNER_TYPE_DVBS || system == MOX_TUNER_TYPE_DVBS2;
}

float clampPercent(float value) {
    return std::min(100.0f, std::max(0.0f, value));
}

}  // namespace

SimulatedDriver::SimulatedDriver()
    : mClock(steadyNowUs), mStartUs(steadyNowUs()), mUtcStart(time(nullptr)) {
    setCapabilities(defaultCapabilities());
    mAir = defaultAir();
}

void SimulatedDriver::setClock(Clock clock, uint32_t speed) {
    ::android::Mutex::Autolock guard(mLock);
    mClock = clock ? std::move(clock) : Clock(steadyNowUs);
    mClockSpeed = speed;
}

// One tuner per channel of every listed entry, one LNB per voltage entry of the largest
// satellite list: the same numbering the service uses.
void SimulatedDriver::setCapabilities(const MOX_TunerCapability_t& capability) {
    ::android::Mutex::Autolock guard(mLock);
    mCapability = capability;
    size_t tuners = 0;
    size_t lnbs = 0;
    for (size_t e = 0; e < std::min<size_t>(capability.ucFrontendCnt, kEntries); ++e) {
        const MOX_TunerFrontendCap_t& entry = capability.tFrontend[e];
        tuners += entry.ucChannelCnt;
        if (isSatellite(entry.tTypeSupport.eValues[0])) {
            lnbs = std::max<size_t>(lnbs, entry.tCapability.tDvbs.tLnb.ucCnt);
        }
    }
    mTuners.assign(tuners, TunerState());
    mLnbs.assign(lnbs, LnbState());
    // The satellite tuners, in order, sit behind the LNBs in turn.
    mTunerLnbs.assign(tuners, -1);
    size_t tuner = 0;
    size_t satelliteTuner = 0;
    for (size_t e = 0; e < std::min<size_t>(capability.ucFrontendCnt, kEntries); ++e) {
        const MOX_TunerFrontendCap_t& entry = capability.tFrontend[e];
        for (int c = 0; c < entry.ucChannelCnt; ++c, ++tuner) {
            if (isSatellite(entry.tTypeSupport.eValues[0]) && lnbs > 0) {
                mTunerLnbs[tuner] = static_cast<int>(satelliteTuner++ % lnbs);
            }
        }
    }
}

std::string LnbState::selection() const {
    if (mode == 0) return "off";
    const char* inputs[] = {"A", "B", "C", "D"};
    return std::string(horizontal ? "horizontal" : "vertical") + " (" + polarisationBy + "), " +
           (highBand ? "high band" : "low band") + " (" + bandBy + "), input " + inputs[input & 3] +
           " (" + inputBy + ")";
}

void SimulatedDriver::setEnvironment(const MOX_TunerCapability_t& capability,
                                     std::vector<Transmitter> air, Misbehaviour misbehaviour) {
    setCapabilities(capability);
    ::android::Mutex::Autolock guard(mLock);
    mAir = std::move(air);
    completeAir(mAir);
    ++mAirVersion;
    mNoiseSeed = misbehaviour.seed;
    mCalls.fill(0);
    mTunerNeverLocks.assign(mTuners.size(), false);
    size_t tuner = 0;
    for (size_t e = 0; e < std::min<size_t>(capability.ucFrontendCnt, kEntries); ++e) {
        const bool never =
                e < misbehaviour.entryNeverLocks.size() && misbehaviour.entryNeverLocks[e];
        for (int c = 0; c < capability.tFrontend[e].ucChannelCnt; ++c)
            mTunerNeverLocks[tuner++] = never;
    }
    mMisbehaviour = std::move(misbehaviour);
    mConnected.fill(true);
    mRamps.clear();
    mTimeline.clear();
    mTimelineDone = 0;
    mStartUs = mClock();
}

int SimulatedDriver::faultLocked(DriverFunction function) {
    const size_t f = static_cast<size_t>(function);
    const uint32_t call = ++mCalls[f];
    const Fault& fault = mMisbehaviour.faults[f];
    if (fault.result == 0) return 0;
    if (fault.first != 0 && call > fault.first) return 0;
    if (fault.every != 0 && call % fault.every != 0) return 0;
    return fault.result;
}

LnbState SimulatedDriver::lnb(int32_t lnbId) const {
    ::android::Mutex::Autolock guard(mLock);
    return lnbId >= 0 && static_cast<size_t>(lnbId) < mLnbs.size() ? mLnbs[lnbId] : LnbState();
}

int SimulatedDriver::init() {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    return faultLocked(DriverFunction::Init);
}

int SimulatedDriver::getCapabilities(MOX_TunerCapability_t* capability) {
    if (capability == nullptr) return -1;
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::GetCapabilities)) return fault;
    *capability = mCapability;
    return 0;
}

namespace {
// A universal LNB's local oscillators; the low band reaches up to 11.7 GHz, the high band from
// there.
constexpr uint32_t kLowBandLoMHz = 9750;
constexpr uint32_t kHighBandLoMHz = 10600;
constexpr uint32_t kBandSplitMHz = 11700;
}  // namespace

std::optional<uint32_t> SimulatedDriver::dishIfMHz(const LnbState& lnb, const Transmitter& tx) {
    if (lnb.mode == 0 || lnb.input != tx.switchInput || lnb.horizontal != tx.horizontal) {
        return std::nullopt;
    }
    if (lnb.highBand != (tx.frequencyMHz >= kBandSplitMHz)) return std::nullopt;
    const uint32_t lo = lnb.highBand ? kHighBandLoMHz : kLowBandLoMHz;
    if (tx.frequencyMHz <= lo) return std::nullopt;
    return tx.frequencyMHz - lo;
}

bool SimulatedDriver::dishPassesLocked(uint8_t tunerIndex, const Transmitter& tx,
                                       uint32_t ifMHz) const {
    if (tx.switchInput < 0) return tx.frequencyMHz == ifMHz;
    const int lnbId = tunerIndex < mTunerLnbs.size() ? mTunerLnbs[tunerIndex] : -1;
    if (lnbId < 0) return false;
    return dishIfMHz(mLnbs[lnbId], tx) == ifMHz;
}

int SimulatedDriver::matchLocked(uint8_t tunerIndex, const MOX_TunerParam_t& param) const {
    for (size_t i = 0; i < mAir.size(); ++i) {
        const Transmitter& tx = mAir[i];
        if (tx.system != param.eTunerType || !tx.onAir || !connectedLocked(tx.system)) continue;
        if (!dishPassesLocked(tunerIndex, tx, param.uiFreqMHz)) continue;
        if (tx.symbolRate != 0) {
            const uint64_t difference = param.uiSymbolRate > tx.symbolRate
                                                ? param.uiSymbolRate - tx.symbolRate
                                                : tx.symbolRate - param.uiSymbolRate;
            if (difference * 100 > uint64_t{tx.symbolRate} * kSymbolRateTolerancePercent) continue;
        }
        if (tx.bandwidth != 0 && param.eBandwidth != tx.bandwidth &&
            param.eBandwidth != MOX_TUNER_BW_AUTO) {
            continue;
        }
        // A cable demodulator set to another constellation or annex does not lock.
        if (tx.modulation != 0 && param.eModulation != 0 && param.eModulation != tx.modulation) {
            continue;
        }
        if (tx.annex != 0 && param.eAnnex != 0 && param.eAnnex != tx.annex) continue;
        return static_cast<int>(i);
    }
    return -1;
}

SimulatedDriver::TunerState* SimulatedDriver::tunerLocked(uint8_t tunerIndex) {
    return tunerIndex < mTuners.size() ? &mTuners[tunerIndex] : nullptr;
}

bool SimulatedDriver::lockedLocked(uint8_t tunerIndex, const TunerState& tuner) const {
    if (!tuner.tuned || tuner.transmitter < 0) return false;
    // A transmitter switched off or an input unplugged after tuning takes the lock away.
    if (!mAir[tuner.transmitter].onAir || !connectedLocked(mAir[tuner.transmitter].system)) {
        return false;
    }
    // A change at the dish after tuning takes the transponder away.
    if (!dishPassesLocked(tunerIndex, mAir[tuner.transmitter], tuner.param.uiFreqMHz)) return false;
    if (tunerIndex < mTunerNeverLocks.size() && mTunerNeverLocks[tunerIndex]) return false;
    const Transmitter& tx = mAir[tuner.transmitter];
    const uint64_t delayUs = uint64_t{tx.lockDelayMs} * 1000;
    const uint64_t sinceTuneUs = mClock() - tuner.tunedAtUs;
    if (sinceTuneUs < delayUs) return false;
    if (tx.flapPeriodMs == 0) return true;
    // Locked for a period, unlocked for the next, and so on.
    return ((sinceTuneUs - delayUs) / (uint64_t{tx.flapPeriodMs} * 1000)) % 2 == 0;
}

// Deterministic noise in [-amplitude, amplitude].
float SimulatedDriver::jitterLocked(float amplitude) {
    mNoiseSeed = mNoiseSeed * 1103515245u + 12345u;
    const float unit = static_cast<float>((mNoiseSeed >> 16) & 0x7FFF) / 32767.0f;
    return (unit * 2.0f - 1.0f) * amplitude;
}

int SimulatedDriver::scan(uint8_t tunerIndex, const MOX_TunerParam_t& param) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::Scan)) return fault;
    TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr || param.eTunerType == 0) return -1;
    tuner->tuned = true;
    tuner->param = param;
    tuner->tunedAtUs = mClock();
    tuner->transmitter = matchLocked(tunerIndex, param);
    return 0;
}

int SimulatedDriver::isLocked(uint8_t tunerIndex) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::IsLocked)) return fault;
    const TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr) return -1;
    return lockedLocked(tunerIndex, *tuner) ? 0 : 1;
}

int SimulatedDriver::getInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::GetInfo)) return fault;
    const TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr || info == nullptr) return -1;
    if (!tuner->tuned) return 0;  // an idle tuner reports nothing
    if (!lockedLocked(tunerIndex, *tuner)) {
        info->lock = 0;
        info->strength = static_cast<uint32_t>(5.0f + jitterLocked(2.0f));
        info->snr = std::max(0.0f, 1.5f + jitterLocked(1.0f));
        info->ber = 0.5f;
        info->lber = 0.5f;
        info->agc = 0x1FF;
        info->powerlevel = static_cast<int32_t>(150.0f + jitterLocked(20.0f));
        return 0;
    }
    const Transmitter& tx = mAir[tuner->transmitter];
    const float cn = tx.cnDb + jitterLocked(0.3f);
    info->lock = 1;
    info->strength = static_cast<uint32_t>(clampPercent(tx.levelDbuV * 1.3f));
    info->quality = static_cast<uint32_t>(clampPercent((cn - 8.0f) * 4.0f));
    info->snr = cn;
    info->ber = static_cast<float>(bitErrorRateAt(cn));
    info->lber = info->ber / 100.0f;
    info->agc = 0x100 + static_cast<uint32_t>(std::max(0.0f, 100.0f - tx.levelDbuV));
    info->powerlevel = static_cast<int32_t>(std::lround((tx.levelDbuV + jitterLocked(0.4f)) * 10));
    info->packetError = info->lber * 1000.0f;
    info->mer = cn - 0.8f + jitterLocked(0.2f);
    if (tx.snr) info->snr = *tx.snr;
    if (tx.ber) info->ber = *tx.ber;
    if (tx.mer) info->mer = *tx.mer;
    if (tx.lber) info->lber = *tx.lber;
    if (tx.packetError) info->packetError = *tx.packetError;
    return 0;
}

int SimulatedDriver::getParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::GetParamInfo)) return fault;
    const TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr || info == nullptr) return -1;
    if (!tuner->tuned) return 0;
    info->eTunerType = tuner->param.eTunerType;
    if (lockedLocked(tunerIndex, *tuner)) {
        const Transmitter& tx = mAir[tuner->transmitter];
        info->eHierarchy = tx.hierarchy;
        info->ucPlpId = tx.plpIds.empty() ? 0 : tx.plpIds.front();
    }
    return 0;
}

int SimulatedDriver::release(uint8_t tunerIndex) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::Release)) return fault;
    TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr) return -1;
    *tuner = TunerState();
    return 0;
}

LnbState* SimulatedDriver::lnbLocked(int32_t lnbId) {
    return lnbId >= 0 && static_cast<size_t>(lnbId) < mLnbs.size() ? &mLnbs[lnbId] : nullptr;
}

int SimulatedDriver::setLnbMode(int32_t lnbId, uint32_t mode) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::SetLNBMode)) return fault;
    LnbState* lnb = lnbLocked(lnbId);
    if (lnb == nullptr || mode > 2) return -1;
    lnb->mode = mode;
    if (mode != 0) {
        lnb->horizontal = mode == 2;  // 13 V: vertical, 18 V: horizontal
        lnb->polarisationBy = "voltage";
    }
    return 0;
}

int SimulatedDriver::set22k(int32_t lnbId, uint32_t on) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::Set22KContinues)) return fault;
    LnbState* lnb = lnbLocked(lnbId);
    if (lnb == nullptr) return -1;
    lnb->tone = on;
    lnb->highBand = on != 0;
    lnb->bandBy = "tone";
    return 0;
}

int SimulatedDriver::sendToneBurst(int32_t lnbId, uint32_t burst) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::SendDiSEqCToneBurst)) return fault;
    LnbState* lnb = lnbLocked(lnbId);
    if (lnb == nullptr || burst > 1) return -1;
    lnb->lastBurst = static_cast<int32_t>(burst);
    // A or B of a mini-DiSEqC switch: the position; the option a committed command chose stays.
    lnb->input = (lnb->input & 2) | static_cast<int>(burst);
    lnb->inputBy = "tone burst";
    return 0;
}

int SimulatedDriver::sendDiseqc(int32_t lnbId, const MOX_DiSEqCCmd_t& cmd) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    if (int fault = faultLocked(DriverFunction::SendDiSEqCCmd)) return fault;
    LnbState* lnb = lnbLocked(lnbId);
    if (lnb == nullptr || cmd.ucLen > MOX_DISEQC_MSG_MAX) return -1;
    lnb->lastDiseqc.assign(cmd.ucData, cmd.ucData + cmd.ucLen);
    ++lnb->diseqcCount;
    // A DiSEqC 1.0 committed-switch command: framing E0/E1, an LNB or switch address 10..17,
    // command 38, data 1111 option position polarisation band.
    const uint8_t* d = cmd.ucData;
    if (cmd.ucLen == 4 && (d[0] & 0xFE) == 0xE0 && (d[1] & 0xF8) == 0x10 && d[2] == 0x38 &&
        (d[3] & 0xF0) == 0xF0) {
        lnb->input = ((d[3] >> 3) & 1) * 2 + ((d[3] >> 2) & 1);
        lnb->horizontal = (d[3] >> 1) & 1;
        lnb->highBand = d[3] & 1;
        lnb->inputBy = lnb->polarisationBy = lnb->bandBy = "DiSEqC";
    }
    return 0;
}

SimulatedDriver& simulator() {
    static SimulatedDriver* instance = new SimulatedDriver();  // used until the process ends
    return *instance;
}

}  // namespace mox::sim
