// The simulated box's built-in hardware and the transmitters on its virtual air.
#include <cstring>

#include "simulator/SimulatedDriver.h"

namespace mox::sim {

namespace {

template <size_t Room>
void setList(MOX_CodeList_t<Room>& list, std::initializer_list<uint32_t> codes) {
    list.ucCnt = 0;
    for (uint32_t code : codes) {
        if (list.ucCnt < Room) list.eValues[list.ucCnt++] = code;
    }
}

// Status capability bits: DEMOD_LOCK, SNR, BER, PRE_BER, SIGNAL_QUALITY, AGC, MER.
constexpr uint32_t kCommonStatus =
        (1u << 0) | (1u << 1) | (1u << 2) | (1u << 4) | (1u << 5) | (1u << 14) | (1u << 17);
// Terrestrial tuners also report PLP_ID, HIERARCHY and RF_LOCK.
constexpr uint32_t kTerrestrialStatus = kCommonStatus | (1u << 12) | (1u << 19) | (1u << 20);

void terrestrialEntry(MOX_TunerFrontendCap_t& e) {
    e.ucChannelCnt = 2;
    e.uiStatusCap = kTerrestrialStatus;
    setList(e.tTypeSupport, {MOX_TUNER_TYPE_DVBT, MOX_TUNER_TYPE_DVBT2});
    e.tFreqRange = {42, 870};
    e.tSymbolRateRange = {0, 0};
    setList(e.tBwSupport, {MOX_TUNER_BW_6MHZ, MOX_TUNER_BW_7MHZ, MOX_TUNER_BW_8MHZ,
                           MOX_TUNER_BW_5MHZ, MOX_TUNER_BW_1_7MHZ, MOX_TUNER_BW_AUTO});
    MOX_TunerDvbtCap_t& t = e.tCapability.tDvbt;
    t.ucMisoSupport = 1;
    t.ucT2Support = 1;
    setList(t.tTransmissionMode.tDvbt, {0, 1, 2, 3});
    setList(t.tTransmissionMode.tDvbt2, {0, 1, 2, 3, 4, 5, 6});
    setList(t.tConstellation.tDvbt, {0, 1, 2, 3});
    setList(t.tConstellation.tDvbt2, {0, 1, 2, 3, 4});
    setList(t.tCodeRate.tDvbt, {0, 1, 2, 3, 4, 5});
    setList(t.tCodeRate.tDvbt2, {0, 1, 2, 3, 4, 5, 8});
    setList(t.tGuardInterval.tDvbt, {0, 1, 2, 3, 4});
    setList(t.tGuardInterval.tDvbt2, {0, 1, 2, 3, 4, 5, 6, 7});
    setList(t.tHierarchy, {0, 1, 2, 3});
}

void cableEntry(MOX_TunerFrontendCap_t& e) {
    e.ucChannelCnt = 1;
    e.uiStatusCap = kCommonStatus;
    setList(e.tTypeSupport, {MOX_TUNER_TYPE_DVBC});
    e.tFreqRange = {47, 862};
    e.tSymbolRateRange = {1000, 7200};
    setList(e.tBwSupport, {MOX_TUNER_BW_6MHZ, MOX_TUNER_BW_8MHZ});
    MOX_TunerDvbcCap_t& c = e.tCapability.tDvbc;
    setList(c.tQam, {MOX_CABLE_MOD_16QAM, MOX_CABLE_MOD_32QAM, MOX_CABLE_MOD_64QAM,
                     MOX_CABLE_MOD_128QAM, MOX_CABLE_MOD_256QAM});
    setList(c.tAnnex, {MOX_DVBC_ANNEX_A, MOX_DVBC_ANNEX_C});
}

void satelliteEntry(MOX_TunerFrontendCap_t& e) {
    e.ucChannelCnt = 1;
    e.uiStatusCap = kCommonStatus;
    setList(e.tTypeSupport, {MOX_TUNER_TYPE_DVBS, MOX_TUNER_TYPE_DVBS2});
    e.tFreqRange = {950, 2150};
    e.tSymbolRateRange = {1000, 45000};
    MOX_TunerDvbsCap_t& s = e.tCapability.tDvbs;
    s.tLnb.ucCnt = 2;
    s.tLnb.tVoltage[0] = {13000, 14000};  // mV: vertical
    s.tLnb.tVoltage[1] = {18000, 19000};  // mV: horizontal
    setList(s.tModulation.tDvbs, {1});
    setList(s.tModulation.tDvbs2, {1, 2, 3, 4});
    setList(s.tCodeRate.tDvbs, {4, 6, 7, 9, 11});
    setList(s.tCodeRate.tDvbs2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 13});
}

}  // namespace

MOX_TunerCapability_t SimulatedDriver::defaultCapabilities() {
    MOX_TunerCapability_t capability;
    memset(&capability, 0, sizeof(capability));
    capability.ucFrontendCnt = 3;
    terrestrialEntry(capability.tFrontend[0]);
    cableEntry(capability.tFrontend[1]);
    satelliteEntry(capability.tFrontend[2]);
    return capability;
}

std::vector<Transmitter> SimulatedDriver::defaultAir() {
    std::vector<Transmitter> air = {
            // Terrestrial multiplexes, 8 MHz channels.
            {MOX_TUNER_TYPE_DVBT2, 474, 0, MOX_TUNER_BW_8MHZ, 62.0f, 24.5f, 400, 0, {0, 1}},
            {MOX_TUNER_TYPE_DVBT, 482, 0, MOX_TUNER_BW_8MHZ, 58.0f, 21.0f, 300, 1, {}},
            {MOX_TUNER_TYPE_DVBT2, 506, 0, MOX_TUNER_BW_8MHZ, 55.5f, 19.0f, 600, 2, {3}},
            {MOX_TUNER_TYPE_DVBT, 650, 0, MOX_TUNER_BW_8MHZ, 49.0f, 16.5f, 800, 0, {}},
            {MOX_TUNER_TYPE_DVBT, 177, 0, MOX_TUNER_BW_7MHZ, 51.0f, 18.0f, 500, 0, {}},
            // Cable multiplexes on the 8 MHz raster.
            {MOX_TUNER_TYPE_DVBC, 306, 6900000, MOX_TUNER_BW_8MHZ, 66.0f, 36.0f, 200, 0, {}},
            {MOX_TUNER_TYPE_DVBC, 314, 6875000, MOX_TUNER_BW_8MHZ, 65.0f, 35.0f, 200, 0, {}},
            {MOX_TUNER_TYPE_DVBC, 322, 6900000, MOX_TUNER_BW_8MHZ, 64.0f, 34.5f, 250, 0, {}},
            {MOX_TUNER_TYPE_DVBC, 474, 6875000, MOX_TUNER_BW_8MHZ, 63.0f, 33.0f, 300, 0, {}},
            {MOX_TUNER_TYPE_DVBC, 482, 6900000, MOX_TUNER_BW_8MHZ, 63.0f, 32.0f, 300, 0, {}},
            // Satellite transponders at the LNB's intermediate frequency.
            {MOX_TUNER_TYPE_DVBS2, 1210, 27500000, 0, 70.0f, 11.5f, 500, 0, {}},
            {MOX_TUNER_TYPE_DVBS, 1318, 27500000, 0, 68.0f, 9.0f, 400, 0, {}},
            {MOX_TUNER_TYPE_DVBS2, 1550, 22000000, 0, 66.0f, 8.5f, 600, 0, {}},
    };
    air[2].bitsPerSymbol = 6;  // 506 MHz: DVB-T2 in 64QAM, for its C/N of 19 dB
    completeAir(air);
    return air;
}

}  // namespace mox::sim
