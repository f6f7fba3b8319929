// The MOX tuner driver library's interface: its binary records (little-endian, laid out byte for
// byte as the closed library expects), its code values, and its entry points. The service declares
// them itself because the library ships no header for this platform.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Codes ----

// Delivery systems. The driver reports 2, 3 and 8 in its capability record; the service writes
// only 1, 4, 5, 6 and 7 into a tuning record.
enum MOX_Tuner_Type : uint32_t {
    MOX_TUNER_TYPE_DVBC = 1,
    MOX_TUNER_TYPE_2 = 2,
    MOX_TUNER_TYPE_3 = 3,
    MOX_TUNER_TYPE_DVBT = 4,
    MOX_TUNER_TYPE_DVBS = 5,
    MOX_TUNER_TYPE_DVBS2 = 6,
    MOX_TUNER_TYPE_DVBT2 = 7,
    MOX_TUNER_TYPE_ISDBT = 8,
};

enum MOX_Tuner_Bandwidth : uint32_t {
    MOX_TUNER_BW_6MHZ = 1,
    MOX_TUNER_BW_7MHZ = 2,
    MOX_TUNER_BW_8MHZ = 3,
    MOX_TUNER_BW_5MHZ = 4,
    MOX_TUNER_BW_10MHZ = 5,
    MOX_TUNER_BW_1_7MHZ = 6,
    MOX_TUNER_BW_AUTO = 7,
};

enum MOX_CableTnr_Mod : uint32_t {
    MOX_CABLE_MOD_16QAM = 1,
    MOX_CABLE_MOD_32QAM = 2,
    MOX_CABLE_MOD_64QAM = 3,
    MOX_CABLE_MOD_128QAM = 4,
    MOX_CABLE_MOD_256QAM = 5,
};

enum MOX_DVBC_ANNEX_TYPE : uint32_t {
    MOX_DVBC_ANNEX_B = 1,
    MOX_DVBC_ANNEX_A = 2,
    MOX_DVBC_ANNEX_C = 3,
};

// The terrestrial and satellite capability codes; the conversion tables of the frontend give
// their meaning.
using MOX_DVBT_Hierarchy = uint32_t;          // 0..3
using MOX_DVBT_Mode = uint32_t;               // 0..3
using MOX_DVBT2_Mode = uint32_t;              // 0..6
using MOX_DVBT_Constellation = uint32_t;      // 0..3
using MOX_DVBT2_PlpConstellation = uint32_t;  // 0..4
using MOX_DVBT_CodeRate = uint32_t;           // 0..5
using MOX_DVBT2_PlpCodeRate = uint32_t;       // 0..8
using MOX_DVBT_Guard = uint32_t;              // 0..4
using MOX_DVBT2_Guard = uint32_t;             // 0..7
using MOX_DVBS_S2_Modulation = uint32_t;      // 0..12
using MOX_DVBS_S2_CodeRate = uint32_t;        // 0..13
// Status capabilities are single bits: bit n stands for the framework's status type n.
using MOX_TunerStatusCapability_e = uint32_t;

// ---- Tuning parameter record ----

struct MOX_TunerParam_t {
    uint32_t eTunerType;    // MOX_Tuner_Type
    uint32_t eBandwidth;    // MOX_Tuner_Bandwidth, 0 when unused
    uint32_t uiFreqMHz;     // centre frequency, whole MHz
    uint32_t uiSymbolRate;  // as the client gave it, 0 when unused
    uint32_t eModulation;   // MOX_CableTnr_Mod, 0 when unused
    uint32_t eAnnex;        // MOX_DVBC_ANNEX_TYPE, 0 when unused
};
static_assert(sizeof(MOX_TunerParam_t) == 24);
static_assert(offsetof(MOX_TunerParam_t, eTunerType) == 0);
static_assert(offsetof(MOX_TunerParam_t, eBandwidth) == 4);
static_assert(offsetof(MOX_TunerParam_t, uiFreqMHz) == 8);
static_assert(offsetof(MOX_TunerParam_t, uiSymbolRate) == 12);
static_assert(offsetof(MOX_TunerParam_t, eModulation) == 16);
static_assert(offsetof(MOX_TunerParam_t, eAnnex) == 20);

// ---- Signal information records ----

struct MOX_TunerSignalInfo_t {
    uint32_t reserved0;
    uint32_t lock;  // 1 when the demodulator has lock
    uint32_t strength;
    uint32_t quality;
    float snr;  // dB
    float ber;
    uint32_t agc;
    int32_t powerlevel;  // tenths of dBuV
    float packetError;
    float mer;  // dB
    float lber;
    uint32_t reserved1;
};
static_assert(sizeof(float) == 4);
static_assert(sizeof(MOX_TunerSignalInfo_t) == 48);
static_assert(offsetof(MOX_TunerSignalInfo_t, lock) == 4);
static_assert(offsetof(MOX_TunerSignalInfo_t, strength) == 8);
static_assert(offsetof(MOX_TunerSignalInfo_t, quality) == 12);
static_assert(offsetof(MOX_TunerSignalInfo_t, snr) == 16);
static_assert(offsetof(MOX_TunerSignalInfo_t, ber) == 20);
static_assert(offsetof(MOX_TunerSignalInfo_t, agc) == 24);
static_assert(offsetof(MOX_TunerSignalInfo_t, powerlevel) == 28);
static_assert(offsetof(MOX_TunerSignalInfo_t, packetError) == 32);
static_assert(offsetof(MOX_TunerSignalInfo_t, mer) == 36);
static_assert(offsetof(MOX_TunerSignalInfo_t, lber) == 40);
static_assert(offsetof(MOX_TunerSignalInfo_t, reserved1) == 44);

// The current-parameter record; the rest of the buffer belongs to the driver.
struct MOX_TunerParamInfo_t {
    uint32_t eTunerType;  // MOX_Tuner_Type of the current delivery system
    uint8_t reserved0[8];
    uint32_t eHierarchy;  // MOX_DVBT_Hierarchy, meaningful for DVB-T2
    uint8_t reserved1[8];
    uint8_t ucPlpId;  // meaningful for DVB-T2
    uint8_t reserved2[259];
};
static_assert(sizeof(MOX_TunerParamInfo_t) == 284);
static_assert(offsetof(MOX_TunerParamInfo_t, eTunerType) == 0);
static_assert(offsetof(MOX_TunerParamInfo_t, eHierarchy) == 12);
static_assert(offsetof(MOX_TunerParamInfo_t, ucPlpId) == 24);

// ---- Capability record ----

// Every list is a count followed by the codes; only the first ucCnt codes are valid.
template <size_t Room>
struct MOX_CodeList_t {
    uint8_t ucCnt;
    uint32_t eValues[Room];
};
static_assert(sizeof(MOX_CodeList_t<9>) == 40);
static_assert(offsetof(MOX_CodeList_t<9>, eValues) == 4);

struct MOX_TunerRange_t {
    uint32_t uiMin;
    uint32_t uiMax;
};

struct MOX_TunerLnbVoltage_t {
    uint32_t uiLow;
    uint32_t uiHigh;
};

struct MOX_TunerDvbcCap_t {
    MOX_CodeList_t<10> tQam;
    MOX_CodeList_t<51> tAnnex;  // the room left in the entry
};

struct MOX_TunerDvbsCap_t {
    struct {
        uint8_t ucCnt;
        MOX_TunerLnbVoltage_t tVoltage[2];
    } tLnb;
    struct {
        MOX_CodeList_t<13> tDvbs;
        MOX_CodeList_t<13> tDvbs2;
    } tModulation;
    struct {
        MOX_CodeList_t<14> tDvbs;
        MOX_CodeList_t<14> tDvbs2;
    } tCodeRate;
};

struct MOX_TunerDvbtCap_t {
    uint8_t ucMisoSupport;
    uint8_t ucT2Support;
    struct {
        MOX_CodeList_t<4> tDvbt;
        MOX_CodeList_t<5> tDvbt2;
    } tConstellation;
    struct {
        MOX_CodeList_t<6> tDvbt;
        MOX_CodeList_t<9> tDvbt2;
    } tCodeRate;
    struct {
        MOX_CodeList_t<5> tDvbt;
        MOX_CodeList_t<8> tDvbt2;
    } tGuardInterval;
    MOX_CodeList_t<4> tHierarchy;
    struct {
        MOX_CodeList_t<4> tDvbt;
        MOX_CodeList_t<8> tDvbt2;
    } tTransmissionMode;
};

struct MOX_TunerFrontendCap_t {
    uint8_t ucChannelCnt;
    uint32_t uiStatusCap;  // bit set of MOX_TunerStatusCapability_e
    MOX_CodeList_t<9> tTypeSupport;
    MOX_TunerRange_t tFreqRange;        // MHz
    MOX_TunerRange_t tSymbolRateRange;  // thousands of symbols per second
    MOX_CodeList_t<8> tBwSupport;
    union {
        MOX_TunerDvbcCap_t tDvbc;
        MOX_TunerDvbsCap_t tDvbs;
        MOX_TunerDvbtCap_t tDvbt;
    } tCapability;
};

struct MOX_TunerCapability_t {
    uint8_t ucFrontendCnt;
    MOX_TunerFrontendCap_t tFrontend[5];
};

#define MOX_CAP_AT(field, offset) static_assert(offsetof(MOX_TunerFrontendCap_t, field) == offset)
static_assert(sizeof(MOX_TunerCapability_t) == 1764);
static_assert(offsetof(MOX_TunerCapability_t, tFrontend) == 4);
static_assert(sizeof(MOX_TunerFrontendCap_t) == 352);
static_assert(sizeof(MOX_TunerDvbcCap_t) == 252);
static_assert(sizeof(MOX_TunerDvbsCap_t) == 252);
static_assert(sizeof(MOX_TunerDvbtCap_t) == 252);
MOX_CAP_AT(uiStatusCap, 0x04);
MOX_CAP_AT(tTypeSupport, 0x08);
MOX_CAP_AT(tTypeSupport.eValues, 0x0c);
MOX_CAP_AT(tFreqRange.uiMin, 0x30);
MOX_CAP_AT(tFreqRange.uiMax, 0x34);
MOX_CAP_AT(tSymbolRateRange.uiMin, 0x38);
MOX_CAP_AT(tSymbolRateRange.uiMax, 0x3c);
MOX_CAP_AT(tBwSupport, 0x40);
MOX_CAP_AT(tBwSupport.eValues, 0x44);
MOX_CAP_AT(tCapability, 0x64);
MOX_CAP_AT(tCapability.tDvbc.tQam.eValues, 0x68);
MOX_CAP_AT(tCapability.tDvbc.tAnnex, 0x90);
MOX_CAP_AT(tCapability.tDvbc.tAnnex.eValues, 0x94);
MOX_CAP_AT(tCapability.tDvbs.tLnb.tVoltage, 0x68);
MOX_CAP_AT(tCapability.tDvbs.tModulation.tDvbs, 0x78);
MOX_CAP_AT(tCapability.tDvbs.tModulation.tDvbs.eValues, 0x7c);
MOX_CAP_AT(tCapability.tDvbs.tModulation.tDvbs2, 0xb0);
MOX_CAP_AT(tCapability.tDvbs.tModulation.tDvbs2.eValues, 0xb4);
MOX_CAP_AT(tCapability.tDvbs.tCodeRate.tDvbs, 0xe8);
MOX_CAP_AT(tCapability.tDvbs.tCodeRate.tDvbs.eValues, 0xec);
MOX_CAP_AT(tCapability.tDvbs.tCodeRate.tDvbs2, 0x124);
MOX_CAP_AT(tCapability.tDvbs.tCodeRate.tDvbs2.eValues, 0x128);
MOX_CAP_AT(tCapability.tDvbt.ucMisoSupport, 0x64);
MOX_CAP_AT(tCapability.tDvbt.ucT2Support, 0x65);
MOX_CAP_AT(tCapability.tDvbt.tConstellation.tDvbt, 0x68);
MOX_CAP_AT(tCapability.tDvbt.tConstellation.tDvbt.eValues, 0x6c);
MOX_CAP_AT(tCapability.tDvbt.tConstellation.tDvbt2, 0x7c);
MOX_CAP_AT(tCapability.tDvbt.tCodeRate.tDvbt, 0x94);
MOX_CAP_AT(tCapability.tDvbt.tCodeRate.tDvbt2, 0xb0);
MOX_CAP_AT(tCapability.tDvbt.tGuardInterval.tDvbt, 0xd8);
MOX_CAP_AT(tCapability.tDvbt.tGuardInterval.tDvbt2, 0xf0);
MOX_CAP_AT(tCapability.tDvbt.tHierarchy, 0x114);
MOX_CAP_AT(tCapability.tDvbt.tTransmissionMode.tDvbt, 0x128);
MOX_CAP_AT(tCapability.tDvbt.tTransmissionMode.tDvbt2, 0x13c);
MOX_CAP_AT(tCapability.tDvbt.tTransmissionMode.tDvbt2.eValues, 0x140);
#undef MOX_CAP_AT

// ---- DiSEqC command record ----

#define MOX_DISEQC_MSG_MAX 6

struct MOX_DiSEqCCmd_t {
    uint8_t ucData[MOX_DISEQC_MSG_MAX];  // message bytes; bytes past ucLen are 0
    uint8_t ucLen;
};
static_assert(sizeof(MOX_DiSEqCCmd_t) == 7);
static_assert(alignof(MOX_DiSEqCCmd_t) == 1);
static_assert(offsetof(MOX_DiSEqCCmd_t, ucLen) == 6);

// ---- Entry points (0 means success unless stated otherwise) ----

extern "C" {
#define MOX_ENTRY_POINT(id, name, library, params) int name params;
#include "driver/MoxEntryPoints.def"
#undef MOX_ENTRY_POINT
}

// Passthrough service hooks (C++ linkage, in the service's namespace).
namespace android::hardware::tv::tuner::V1_0::implementation {
class Tuner;
void MOX_TunerPassthCallback(Tuner* tuner);
void MOX_TunerReleasePassth(Tuner* tuner);
}  // namespace android::hardware::tv::tuner::V1_0::implementation
