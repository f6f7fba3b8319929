// Host stand-in for the hidl-gen output of android.hardware.tv.tuner@1.0 types.hal: every type the
// tuner, frontend and LNB interfaces use, with the interface package's names and values. As in
// generated code, structs are aggregates without default values: value-initialise them. The
// filter and DVR types that only appear in IDemux's signatures are declared in a reduced form.
#pragma once

#include <android/hidl/safe_union/1.0/types.h>
#include <hidl/HidlHostCodegen.h>
#include <hidl/HidlSupport.h>

#include <cstdint>

// The X(...) tables list one enumerator or alternative per line; the formatter would fold them.
// clang-format off
namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {

using FrontendId = uint32_t;
using LnbId = uint32_t;
using DemuxId = uint32_t;
using AvSyncHwId = uint32_t;
using TunerKeyToken = ::android::hardware::hidl_vec<uint8_t>;
using DemuxTpid = uint16_t;
using DemuxMmtpPid = uint16_t;
using DemuxStreamId = uint16_t;

#define TUNER_RESULT(X)    \
    X(SUCCESS, 0)          \
    X(UNAVAILABLE, 1)      \
    X(NOT_INITIALIZED, 2)  \
    X(INVALID_STATE, 3)    \
    X(INVALID_ARGUMENT, 4) \
    X(OUT_OF_MEMORY, 5)    \
    X(UNKNOWN_ERROR, 6)
HIDL_ENUM(Result, int32_t, TUNER_RESULT)

#define TUNER_FRONTEND_TYPE(X) \
    X(UNDEFINED, 0)            \
    X(ANALOG, 1)               \
    X(ATSC, 2)                 \
    X(ATSC3, 3)                \
    X(DVBC, 4)                 \
    X(DVBS, 5)                 \
    X(DVBT, 6)                 \
    X(ISDBS, 7)                \
    X(ISDBS3, 8)               \
    X(ISDBT, 9)
HIDL_ENUM(FrontendType, uint32_t, TUNER_FRONTEND_TYPE)

#define TUNER_INNER_FEC(X)   \
    X(FEC_UNDEFINED, 0)      \
    X(AUTO, 1ull << 0)       \
    X(FEC_1_2, 1ull << 1)    \
    X(FEC_1_3, 1ull << 2)    \
    X(FEC_1_4, 1ull << 3)    \
    X(FEC_1_5, 1ull << 4)    \
    X(FEC_2_3, 1ull << 5)    \
    X(FEC_2_5, 1ull << 6)    \
    X(FEC_2_9, 1ull << 7)    \
    X(FEC_3_4, 1ull << 8)    \
    X(FEC_3_5, 1ull << 9)    \
    X(FEC_4_5, 1ull << 10)   \
    X(FEC_4_15, 1ull << 11)  \
    X(FEC_5_6, 1ull << 12)   \
    X(FEC_5_9, 1ull << 13)   \
    X(FEC_6_7, 1ull << 14)   \
    X(FEC_7_8, 1ull << 15)   \
    X(FEC_7_9, 1ull << 16)   \
    X(FEC_7_15, 1ull << 17)  \
    X(FEC_8_9, 1ull << 18)   \
    X(FEC_8_15, 1ull << 19)  \
    X(FEC_9_10, 1ull << 20)  \
    X(FEC_9_20, 1ull << 21)  \
    X(FEC_11_15, 1ull << 22) \
    X(FEC_11_20, 1ull << 23) \
    X(FEC_11_45, 1ull << 24) \
    X(FEC_13_18, 1ull << 25) \
    X(FEC_13_45, 1ull << 26) \
    X(FEC_14_45, 1ull << 27) \
    X(FEC_23_36, 1ull << 28) \
    X(FEC_25_36, 1ull << 29) \
    X(FEC_26_45, 1ull << 30) \
    X(FEC_28_45, 0xFFFFFFFF80000000ull) /* 1 << 31 in 32 bits, sign-extended */ \
    X(FEC_29_45, 0x1ull) /* 1 << 32 wraps in 32 bits */ \
    X(FEC_31_45, 0x2ull) \
    X(FEC_32_45, 0x4ull) \
    X(FEC_77_90, 0x8ull)
HIDL_ENUM(FrontendInnerFec, uint64_t, TUNER_INNER_FEC)

#define TUNER_ATSC_MOD(X) \
    X(UNDEFINED, 0)       \
    X(AUTO, 1 << 0)       \
    X(MOD_8VSB, 1 << 2)   \
    X(MOD_16VSB, 1 << 3)
HIDL_ENUM(FrontendAtscModulation, uint32_t, TUNER_ATSC_MOD)

#define TUNER_ATSC3_MOD(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(MOD_QPSK, 0x2)       \
    X(MOD_16QAM, 0x4)      \
    X(MOD_64QAM, 0x8)      \
    X(MOD_256QAM, 0x10)    \
    X(MOD_1024QAM, 0x20)   \
    X(MOD_4096QAM, 0x40)
HIDL_ENUM(FrontendAtsc3Modulation, uint32_t, TUNER_ATSC3_MOD)

#define TUNER_ATSC3_BW(X)  \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(BANDWIDTH_6MHZ, 0x2) \
    X(BANDWIDTH_7MHZ, 0x4) \
    X(BANDWIDTH_8MHZ, 0x8)
HIDL_ENUM(FrontendAtsc3Bandwidth, uint32_t, TUNER_ATSC3_BW)

#define TUNER_ATSC3_TIM(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(CTI, 0x2)            \
    X(HTI, 0x4)
HIDL_ENUM(FrontendAtsc3TimeInterleaveMode, uint32_t, TUNER_ATSC3_TIM)

#define TUNER_ATSC3_CR(X)     \
    X(UNDEFINED, 0)           \
    X(AUTO, 0x1)              \
    X(CODERATE_2_15, 0x2)     \
    X(CODERATE_3_15, 0x4)     \
    X(CODERATE_4_15, 0x8)     \
    X(CODERATE_5_15, 0x10)    \
    X(CODERATE_6_15, 0x20)    \
    X(CODERATE_7_15, 0x40)    \
    X(CODERATE_8_15, 0x80)    \
    X(CODERATE_9_15, 0x100)   \
    X(CODERATE_10_15, 0x200)  \
    X(CODERATE_11_15, 0x400)  \
    X(CODERATE_12_15, 0x800)  \
    X(CODERATE_13_15, 0x1000)
HIDL_ENUM(FrontendAtsc3CodeRate, uint32_t, TUNER_ATSC3_CR)

#define TUNER_ATSC3_FEC(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(BCH_LDPC_16K, 0x2)   \
    X(BCH_LDPC_64K, 0x4)   \
    X(CRC_LDPC_16K, 0x8)   \
    X(CRC_LDPC_64K, 0x10)  \
    X(LDPC_16K, 0x20)      \
    X(LDPC_64K, 0x40)
HIDL_ENUM(FrontendAtsc3Fec, uint32_t, TUNER_ATSC3_FEC)

#define TUNER_ATSC3_DOF(X)         \
    X(UNDEFINED, 0)                \
    X(ATSC3_LINKLAYER_PACKET, 0x1) \
    X(BASEBAND_PACKET, 0x2)
HIDL_ENUM(FrontendAtsc3DemodOutputFormat, uint8_t, TUNER_ATSC3_DOF)

#define TUNER_DVBS_MOD(X)   \
    X(UNDEFINED, 0)         \
    X(AUTO, 0x1)            \
    X(MOD_QPSK, 0x2)        \
    X(MOD_8PSK, 0x4)        \
    X(MOD_16QAM, 0x8)       \
    X(MOD_16PSK, 0x10)      \
    X(MOD_32PSK, 0x20)      \
    X(MOD_ACM, 0x40)        \
    X(MOD_8APSK, 0x80)      \
    X(MOD_16APSK, 0x100)    \
    X(MOD_32APSK, 0x200)    \
    X(MOD_64APSK, 0x400)    \
    X(MOD_128APSK, 0x800)   \
    X(MOD_256APSK, 0x1000)  \
    X(MOD_RESERVED, 0x2000)
HIDL_ENUM(FrontendDvbsModulation, int32_t, TUNER_DVBS_MOD)

#define TUNER_DVBS_ROLLOFF(X) \
    X(UNDEFINED, 0)           \
    X(ROLLOFF_0_35, 1)        \
    X(ROLLOFF_0_25, 2)        \
    X(ROLLOFF_0_20, 3)        \
    X(ROLLOFF_0_15, 4)        \
    X(ROLLOFF_0_10, 5)        \
    X(ROLLOFF_0_5, 6)
HIDL_ENUM(FrontendDvbsRolloff, uint32_t, TUNER_DVBS_ROLLOFF)

#define TUNER_DVBS_PILOT(X) \
    X(UNDEFINED, 0)         \
    X(ON, 1)                \
    X(OFF, 2)               \
    X(AUTO, 3)
HIDL_ENUM(FrontendDvbsPilot, uint32_t, TUNER_DVBS_PILOT)

#define TUNER_DVBS_STANDARD(X) \
    X(AUTO, 0x1)               \
    X(S, 0x2)                  \
    X(S2, 0x4)                 \
    X(S2X, 0x8)
HIDL_ENUM(FrontendDvbsStandard, uint8_t, TUNER_DVBS_STANDARD)

#define TUNER_DVBS_VCM(X) \
    X(UNDEFINED, 0)       \
    X(AUTO, 1)            \
    X(MANUAL, 2)
HIDL_ENUM(FrontendDvbsVcmMode, uint32_t, TUNER_DVBS_VCM)

#define TUNER_DVBC_MOD(X) \
    X(UNDEFINED, 0)       \
    X(AUTO, 0x1)          \
    X(MOD_16QAM, 0x2)     \
    X(MOD_32QAM, 0x4)     \
    X(MOD_64QAM, 0x8)     \
    X(MOD_128QAM, 0x10)   \
    X(MOD_256QAM, 0x20)
HIDL_ENUM(FrontendDvbcModulation, uint32_t, TUNER_DVBC_MOD)

#define TUNER_DVBC_OUTER_FEC(X) \
    X(UNDEFINED, 0)             \
    X(OUTER_FEC_NONE, 1)        \
    X(OUTER_FEC_RS, 2)
HIDL_ENUM(FrontendDvbcOuterFec, uint32_t, TUNER_DVBC_OUTER_FEC)

#define TUNER_DVBC_ANNEX(X) \
    X(UNDEFINED, 0)         \
    X(A, 0x1)               \
    X(B, 0x2)               \
    X(C, 0x4)
HIDL_ENUM(FrontendDvbcAnnex, uint8_t, TUNER_DVBC_ANNEX)

#define TUNER_DVBC_INVERSION(X) \
    X(UNDEFINED, 0)             \
    X(NORMAL, 1)                \
    X(INVERTED, 2)
HIDL_ENUM(FrontendDvbcSpectralInversion, uint32_t, TUNER_DVBC_INVERSION)

#define TUNER_DVBT_BW(X)      \
    X(UNDEFINED, 0)           \
    X(AUTO, 0x1)              \
    X(BANDWIDTH_8MHZ, 0x2)    \
    X(BANDWIDTH_7MHZ, 0x4)    \
    X(BANDWIDTH_6MHZ, 0x8)    \
    X(BANDWIDTH_5MHZ, 0x10)   \
    X(BANDWIDTH_1_7MHZ, 0x20) \
    X(BANDWIDTH_10MHZ, 0x40)
HIDL_ENUM(FrontendDvbtBandwidth, uint32_t, TUNER_DVBT_BW)

#define TUNER_DVBT_CONSTELLATION(X) \
    X(UNDEFINED, 0)                 \
    X(AUTO, 0x1)                    \
    X(CONSTELLATION_QPSK, 0x2)      \
    X(CONSTELLATION_16QAM, 0x4)     \
    X(CONSTELLATION_64QAM, 0x8)     \
    X(CONSTELLATION_256QAM, 0x10)
HIDL_ENUM(FrontendDvbtConstellation, uint32_t, TUNER_DVBT_CONSTELLATION)

#define TUNER_DVBT_HIERARCHY(X)    \
    X(UNDEFINED, 0)                \
    X(AUTO, 0x1)                   \
    X(HIERARCHY_NON_NATIVE, 0x2)   \
    X(HIERARCHY_1_NATIVE, 0x4)     \
    X(HIERARCHY_2_NATIVE, 0x8)     \
    X(HIERARCHY_4_NATIVE, 0x10)    \
    X(HIERARCHY_NON_INDEPTH, 0x20) \
    X(HIERARCHY_1_INDEPTH, 0x40)   \
    X(HIERARCHY_2_INDEPTH, 0x80)   \
    X(HIERARCHY_4_INDEPTH, 0x100)
HIDL_ENUM(FrontendDvbtHierarchy, uint32_t, TUNER_DVBT_HIERARCHY)

#define TUNER_DVBT_CODERATE(X) \
    X(UNDEFINED, 0)            \
    X(AUTO, 0x1)               \
    X(CODERATE_1_2, 0x2)       \
    X(CODERATE_2_3, 0x4)       \
    X(CODERATE_3_4, 0x8)       \
    X(CODERATE_5_6, 0x10)      \
    X(CODERATE_7_8, 0x20)      \
    X(CODERATE_3_5, 0x40)      \
    X(CODERATE_4_5, 0x80)      \
    X(CODERATE_6_7, 0x100)     \
    X(CODERATE_8_9, 0x200)
HIDL_ENUM(FrontendDvbtCoderate, uint32_t, TUNER_DVBT_CODERATE)

#define TUNER_DVBT_GUARD(X)  \
    X(UNDEFINED, 0)          \
    X(AUTO, 0x1)             \
    X(INTERVAL_1_32, 0x2)    \
    X(INTERVAL_1_16, 0x4)    \
    X(INTERVAL_1_8, 0x8)     \
    X(INTERVAL_1_4, 0x10)    \
    X(INTERVAL_1_128, 0x20)  \
    X(INTERVAL_19_128, 0x40) \
    X(INTERVAL_19_256, 0x80)
HIDL_ENUM(FrontendDvbtGuardInterval, uint32_t, TUNER_DVBT_GUARD)

#define TUNER_DVBT_MODE(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(MODE_2K, 0x2)        \
    X(MODE_8K, 0x4)        \
    X(MODE_4K, 0x8)        \
    X(MODE_1K, 0x10)       \
    X(MODE_16K, 0x20)      \
    X(MODE_32K, 0x40)
HIDL_ENUM(FrontendDvbtTransmissionMode, uint32_t, TUNER_DVBT_MODE)

#define TUNER_DVBT_PLP_MODE(X) \
    X(UNDEFINED, 0)            \
    X(AUTO, 1)                 \
    X(MANUAL, 2)
HIDL_ENUM(FrontendDvbtPlpMode, uint32_t, TUNER_DVBT_PLP_MODE)

#define TUNER_DVBT_STANDARD(X) \
    X(AUTO, 0x1)               \
    X(T, 0x2)                  \
    X(T2, 0x4)
HIDL_ENUM(FrontendDvbtStandard, uint8_t, TUNER_DVBT_STANDARD)

using FrontendIsdbtCoderate = FrontendDvbtCoderate;
using FrontendIsdbtGuardInterval = FrontendDvbtGuardInterval;

#define TUNER_ISDBS_ROLLOFF(X) \
    X(UNDEFINED, 0)            \
    X(ROLLOFF_0_35, 1)
HIDL_ENUM(FrontendIsdbsRolloff, uint32_t, TUNER_ISDBS_ROLLOFF)

#define TUNER_ISDBS_MOD(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(MOD_BPSK, 0x2)       \
    X(MOD_QPSK, 0x4)       \
    X(MOD_TC8PSK, 0x8)
HIDL_ENUM(FrontendIsdbsModulation, uint32_t, TUNER_ISDBS_MOD)

#define TUNER_ISDBS_CODERATE(X) \
    X(UNDEFINED, 0)             \
    X(AUTO, 0x1)                \
    X(CODERATE_1_2, 0x2)        \
    X(CODERATE_2_3, 0x4)        \
    X(CODERATE_3_4, 0x8)        \
    X(CODERATE_5_6, 0x10)       \
    X(CODERATE_7_8, 0x20)
HIDL_ENUM(FrontendIsdbsCoderate, uint32_t, TUNER_ISDBS_CODERATE)

#define TUNER_ISDBS_STREAM_ID_TYPE(X) \
    X(STREAM_ID, 0)                   \
    X(RELATIVE_STREAM_NUMBER, 1)
HIDL_ENUM(FrontendIsdbsStreamIdType, uint32_t, TUNER_ISDBS_STREAM_ID_TYPE)

#define TUNER_ISDBS3_ROLLOFF(X) \
    X(UNDEFINED, 0)             \
    X(ROLLOFF_0_03, 1)
HIDL_ENUM(FrontendIsdbs3Rolloff, uint32_t, TUNER_ISDBS3_ROLLOFF)

#define TUNER_ISDBS3_MOD(X) \
    X(UNDEFINED, 0)         \
    X(AUTO, 0x1)            \
    X(MOD_BPSK, 0x2)        \
    X(MOD_QPSK, 0x4)        \
    X(MOD_8PSK, 0x8)        \
    X(MOD_16APSK, 0x10)     \
    X(MOD_32APSK, 0x20)
HIDL_ENUM(FrontendIsdbs3Modulation, uint32_t, TUNER_ISDBS3_MOD)

#define TUNER_ISDBS3_CODERATE(X) \
    X(UNDEFINED, 0)              \
    X(AUTO, 0x1)                 \
    X(CODERATE_1_3, 0x2)         \
    X(CODERATE_2_5, 0x4)         \
    X(CODERATE_1_2, 0x8)         \
    X(CODERATE_3_5, 0x10)        \
    X(CODERATE_2_3, 0x20)        \
    X(CODERATE_3_4, 0x40)        \
    X(CODERATE_7_9, 0x80)        \
    X(CODERATE_4_5, 0x100)       \
    X(CODERATE_5_6, 0x200)       \
    X(CODERATE_7_8, 0x400)       \
    X(CODERATE_9_10, 0x800)
HIDL_ENUM(FrontendIsdbs3Coderate, uint32_t, TUNER_ISDBS3_CODERATE)

#define TUNER_ISDBT_MODE(X) \
    X(UNDEFINED, 0)         \
    X(AUTO, 0x1)            \
    X(MODE_1, 0x2)          \
    X(MODE_2, 0x4)          \
    X(MODE_3, 0x8)
HIDL_ENUM(FrontendIsdbtMode, uint32_t, TUNER_ISDBT_MODE)

#define TUNER_ISDBT_BW(X)  \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(BANDWIDTH_8MHZ, 0x2) \
    X(BANDWIDTH_7MHZ, 0x4) \
    X(BANDWIDTH_6MHZ, 0x8)
HIDL_ENUM(FrontendIsdbtBandwidth, uint32_t, TUNER_ISDBT_BW)

#define TUNER_ISDBT_MOD(X) \
    X(UNDEFINED, 0)        \
    X(AUTO, 0x1)           \
    X(MOD_DQPSK, 0x2)      \
    X(MOD_QPSK, 0x4)       \
    X(MOD_16QAM, 0x8)      \
    X(MOD_64QAM, 0x10)
HIDL_ENUM(FrontendIsdbtModulation, uint32_t, TUNER_ISDBT_MOD)

#define TUNER_ANALOG_TYPE(X) \
    X(UNDEFINED, 0)          \
    X(AUTO, 0x1)             \
    X(PAL, 0x2)              \
    X(PAL_M, 0x4)            \
    X(PAL_N, 0x8)            \
    X(PAL_60, 0x10)          \
    X(NTSC, 0x20)            \
    X(NTSC_443, 0x40)        \
    X(SECAM, 0x80)
HIDL_ENUM(FrontendAnalogType, uint32_t, TUNER_ANALOG_TYPE)

#define TUNER_ANALOG_SIF(X) \
    X(UNDEFINED, 0)         \
    X(AUTO, 0x1)            \
    X(BG, 0x2)              \
    X(BG_A2, 0x4)           \
    X(BG_NICAM, 0x8)        \
    X(I, 0x10)              \
    X(DK, 0x20)             \
    X(DK1_A2, 0x40)         \
    X(DK2_A2, 0x80)         \
    X(DK3_A2, 0x100)        \
    X(DK_NICAM, 0x200)      \
    X(L, 0x400)             \
    X(M, 0x800)             \
    X(M_BTSC, 0x1000)       \
    X(M_A2, 0x2000)         \
    X(M_EIAJ, 0x4000)       \
    X(I_NICAM, 0x8000)      \
    X(L_NICAM, 0x10000)     \
    X(L_PRIME, 0x20000)
HIDL_ENUM(FrontendAnalogSifStandard, uint32_t, TUNER_ANALOG_SIF)

#define TUNER_SCAN_TYPE(X) \
    X(SCAN_UNDEFINED, 0)   \
    X(SCAN_AUTO, 0x1)      \
    X(SCAN_BLIND, 0x2)
HIDL_ENUM(FrontendScanType, uint32_t, TUNER_SCAN_TYPE)

#define TUNER_SCAN_MESSAGE_TYPE(X) \
    X(LOCKED, 0)                   \
    X(END, 1)                      \
    X(PROGRESS_PERCENT, 2)         \
    X(FREQUENCY, 3)                \
    X(SYMBOL_RATE, 4)              \
    X(HIERARCHY, 5)                \
    X(ANALOG_TYPE, 6)              \
    X(PLP_IDS, 7)                  \
    X(GROUP_IDS, 8)                \
    X(INPUT_STREAM_IDS, 9)         \
    X(STANDARD, 10)                \
    X(ATSC3_PLP_INFO, 11)
HIDL_ENUM(FrontendScanMessageType, uint32_t, TUNER_SCAN_MESSAGE_TYPE)

#define TUNER_EVENT_TYPE(X) \
    X(LOCKED, 0)            \
    X(NO_SIGNAL, 1)         \
    X(LOST_LOCK, 2)
HIDL_ENUM(FrontendEventType, uint32_t, TUNER_EVENT_TYPE)

#define TUNER_STATUS_TYPE(X) \
    X(DEMOD_LOCK, 0)         \
    X(SNR, 1)                \
    X(BER, 2)                \
    X(PER, 3)                \
    X(PRE_BER, 4)            \
    X(SIGNAL_QUALITY, 5)     \
    X(SIGNAL_STRENGTH, 6)    \
    X(SYMBOL_RATE, 7)        \
    X(FEC, 8)                \
    X(MODULATION, 9)         \
    X(SPECTRAL, 10)          \
    X(LNB_VOLTAGE, 11)       \
    X(PLP_ID, 12)            \
    X(EWBS, 13)              \
    X(AGC, 14)               \
    X(LNA, 15)               \
    X(LAYER_ERROR, 16)       \
    X(MER, 17)               \
    X(FREQ_OFFSET, 18)       \
    X(HIERARCHY, 19)         \
    X(RF_LOCK, 20)           \
    X(ATSC3_PLP_INFO, 21)
HIDL_ENUM(FrontendStatusType, uint32_t, TUNER_STATUS_TYPE)

#define TUNER_LNB_VOLTAGE(X) \
    X(NONE, 0)               \
    X(VOLTAGE_5V, 1)         \
    X(VOLTAGE_11V, 2)        \
    X(VOLTAGE_12V, 3)        \
    X(VOLTAGE_13V, 4)        \
    X(VOLTAGE_14V, 5)        \
    X(VOLTAGE_15V, 6)        \
    X(VOLTAGE_18V, 7)        \
    X(VOLTAGE_19V, 8)
HIDL_ENUM(LnbVoltage, uint32_t, TUNER_LNB_VOLTAGE)

#define TUNER_LNB_TONE(X) \
    X(NONE, 0)            \
    X(CONTINUOUS, 1)
HIDL_ENUM(LnbTone, int32_t, TUNER_LNB_TONE)

#define TUNER_LNB_POSITION(X) \
    X(UNDEFINED, 0)           \
    X(POSITION_A, 1)          \
    X(POSITION_B, 2)
HIDL_ENUM(LnbPosition, int32_t, TUNER_LNB_POSITION)

#define TUNER_LNB_EVENT_TYPE(X)  \
    X(DISEQC_RX_OVERFLOW, 0)     \
    X(DISEQC_RX_TIMEOUT, 1)      \
    X(DISEQC_RX_PARITY_ERROR, 2) \
    X(LNB_OVERLOAD, 3)
HIDL_ENUM(LnbEventType, uint32_t, TUNER_LNB_EVENT_TYPE)

#define TUNER_DEMUX_MAIN_TYPE(X) \
    X(TS, 0x1)                   \
    X(MMTP, 0x2)                 \
    X(IP, 0x4)                   \
    X(TLV, 0x8)                  \
    X(ALP, 0x10)
HIDL_ENUM(DemuxFilterMainType, uint32_t, TUNER_DEMUX_MAIN_TYPE)

#define TUNER_DEMUX_TS_FILTER(X) \
    X(UNDEFINED, 0)              \
    X(SECTION, 1)                \
    X(PES, 2)                    \
    X(TS, 3)                     \
    X(AUDIO, 4)                  \
    X(VIDEO, 5)                  \
    X(PCR, 6)                    \
    X(RECORD, 7)                 \
    X(TEMI, 8)
HIDL_ENUM(DemuxTsFilterType, uint32_t, TUNER_DEMUX_TS_FILTER)

#define TUNER_DEMUX_MMTP_FILTER(X) \
    X(UNDEFINED, 0)                \
    X(SECTION, 1)                  \
    X(PES, 2)                      \
    X(MMTP, 3)                     \
    X(AUDIO, 4)                    \
    X(VIDEO, 5)                    \
    X(RECORD, 6)                   \
    X(DOWNLOAD, 7)
HIDL_ENUM(DemuxMmtpFilterType, uint32_t, TUNER_DEMUX_MMTP_FILTER)

#define TUNER_DEMUX_IP_FILTER(X) \
    X(UNDEFINED, 0)              \
    X(SECTION, 1)                \
    X(NTP, 2)                    \
    X(IP_PAYLOAD, 3)             \
    X(IP, 4)                     \
    X(PAYLOAD_THROUGH, 5)
HIDL_ENUM(DemuxIpFilterType, uint32_t, TUNER_DEMUX_IP_FILTER)

#define TUNER_DEMUX_TLV_FILTER(X) \
    X(UNDEFINED, 0)               \
    X(SECTION, 1)                 \
    X(TLV, 2)                     \
    X(PAYLOAD_THROUGH, 3)
HIDL_ENUM(DemuxTlvFilterType, uint32_t, TUNER_DEMUX_TLV_FILTER)

#define TUNER_DEMUX_ALP_FILTER(X) \
    X(UNDEFINED, 0)               \
    X(SECTION, 1)                 \
    X(PTP, 2)                     \
    X(PAYLOAD_THROUGH, 3)
HIDL_ENUM(DemuxAlpFilterType, uint32_t, TUNER_DEMUX_ALP_FILTER)

#define TUNER_DEMUX_FILTER_STATUS(X) \
    X(DATA_READY, 0x1)               \
    X(LOW_WATER, 0x2)                \
    X(HIGH_WATER, 0x4)               \
    X(OVERFLOW, 0x8)
HIDL_ENUM(DemuxFilterStatus, uint8_t, TUNER_DEMUX_FILTER_STATUS)
using RecordStatus = DemuxFilterStatus;

#define TUNER_PLAYBACK_STATUS(X) \
    X(SPACE_EMPTY, 0x1)          \
    X(SPACE_ALMOST_EMPTY, 0x2)   \
    X(SPACE_ALMOST_FULL, 0x4)    \
    X(SPACE_FULL, 0x8)
HIDL_ENUM(PlaybackStatus, uint32_t, TUNER_PLAYBACK_STATUS)

#define TUNER_DATA_FORMAT(X) \
    X(TS, 0)                 \
    X(PES, 1)                \
    X(ES, 2)                 \
    X(SHV_TLV, 3)
HIDL_ENUM(DataFormat, uint32_t, TUNER_DATA_FORMAT)

#define TUNER_DVR_TYPE(X) \
    X(RECORD, 0)          \
    X(PLAYBACK, 1)
HIDL_ENUM(DvrType, uint8_t, TUNER_DVR_TYPE)

enum class Constant : uint32_t {
    INVALID_TS_PID = 0xFFFF,
    INVALID_STREAM_ID = 0xFFFF,
    INVALID_FILTER_ID = 0xFFFFFFFF,
    INVALID_AV_SYNC_ID = 0xFFFFFFFF,
};

// ---- Frontend settings ----

struct FrontendAnalogSettings {
    uint32_t frequency;
    FrontendAnalogType type;
    FrontendAnalogSifStandard sifStandard;
};

struct FrontendAtscSettings {
    uint32_t frequency;
    FrontendAtscModulation modulation;
};

struct FrontendAtsc3PlpSettings {
    uint8_t plpId;
    FrontendAtsc3Modulation modulation;
    FrontendAtsc3TimeInterleaveMode interleaveMode;
    FrontendAtsc3CodeRate codeRate;
    FrontendAtsc3Fec fec;
};

struct FrontendAtsc3Settings {
    uint32_t frequency;
    FrontendAtsc3Bandwidth bandwidth;
    FrontendAtsc3DemodOutputFormat demodOutputFormat;
    ::android::hardware::hidl_vec<FrontendAtsc3PlpSettings> plpSettings;
};

struct FrontendDvbsCodeRate {
    FrontendInnerFec fec;
    bool isLinear;
    bool isShortFrames;
    uint32_t bitsPer1000Symbol;
};

struct FrontendDvbsSettings {
    uint32_t frequency;
    FrontendDvbsModulation modulation;
    FrontendDvbsCodeRate coderate;
    uint32_t symbolRate;
    FrontendDvbsRolloff rolloff;
    FrontendDvbsPilot pilot;
    uint32_t inputStreamId;
    FrontendDvbsStandard standard;
    FrontendDvbsVcmMode vcmMode;
};

struct FrontendDvbcSettings {
    uint32_t frequency;
    FrontendDvbcModulation modulation;
    FrontendInnerFec fec;
    uint32_t symbolRate;
    FrontendDvbcOuterFec outerFec;
    FrontendDvbcAnnex annex;
    FrontendDvbcSpectralInversion spectralInversion;
};

struct FrontendDvbtSettings {
    uint32_t frequency;
    FrontendDvbtTransmissionMode transmissionMode;
    FrontendDvbtBandwidth bandwidth;
    FrontendDvbtConstellation constellation;
    FrontendDvbtHierarchy hierarchy;
    FrontendDvbtCoderate hpCoderate;
    FrontendDvbtCoderate lpCoderate;
    FrontendDvbtGuardInterval guardInterval;
    bool isHighPriority;
    FrontendDvbtStandard standard;
    bool isMiso;
    FrontendDvbtPlpMode plpMode;
    uint8_t plpId;
    uint8_t plpGroupId;
};

struct FrontendIsdbsSettings {
    uint32_t frequency;
    uint16_t streamId;
    FrontendIsdbsStreamIdType streamIdType;
    FrontendIsdbsModulation modulation;
    FrontendIsdbsCoderate coderate;
    uint32_t symbolRate;
    FrontendIsdbsRolloff rolloff;
};

struct FrontendIsdbs3Settings {
    uint32_t frequency;
    uint16_t streamId;
    FrontendIsdbsStreamIdType streamIdType;
    FrontendIsdbs3Modulation modulation;
    FrontendIsdbs3Coderate coderate;
    uint32_t symbolRate;
    FrontendIsdbs3Rolloff rolloff;
};

struct FrontendIsdbtSettings {
    uint32_t frequency;
    FrontendIsdbtModulation modulation;
    FrontendIsdbtBandwidth bandwidth;
    FrontendIsdbtMode mode;
    FrontendIsdbtCoderate coderate;
    FrontendIsdbtGuardInterval guardInterval;
    uint32_t serviceAreaId;
};

// The alternatives list dvbs before dvbc, unlike FrontendType.
#define TUNER_FRONTEND_SETTINGS(X)       \
    X(0, analog, FrontendAnalogSettings) \
    X(1, atsc, FrontendAtscSettings)     \
    X(2, atsc3, FrontendAtsc3Settings)   \
    X(3, dvbs, FrontendDvbsSettings)     \
    X(4, dvbc, FrontendDvbcSettings)     \
    X(5, dvbt, FrontendDvbtSettings)     \
    X(6, isdbs, FrontendIsdbsSettings)   \
    X(7, isdbs3, FrontendIsdbs3Settings) \
    X(8, isdbt, FrontendIsdbtSettings)

HIDL_STRUCT_EQUALITY(FrontendAnalogSettings, s.frequency, s.type, s.sifStandard)
HIDL_STRUCT_EQUALITY(FrontendAtscSettings, s.frequency, s.modulation)
HIDL_STRUCT_EQUALITY(FrontendAtsc3PlpSettings, s.plpId, s.modulation, s.interleaveMode, s.codeRate,
                     s.fec)
HIDL_STRUCT_EQUALITY(FrontendAtsc3Settings, s.frequency, s.bandwidth, s.demodOutputFormat,
                     s.plpSettings)
HIDL_STRUCT_EQUALITY(FrontendDvbsCodeRate, s.fec, s.isLinear, s.isShortFrames, s.bitsPer1000Symbol)
HIDL_STRUCT_EQUALITY(FrontendDvbsSettings, s.frequency, s.modulation, s.coderate, s.symbolRate,
                     s.rolloff, s.pilot, s.inputStreamId, s.standard, s.vcmMode)
HIDL_STRUCT_EQUALITY(FrontendDvbcSettings, s.frequency, s.modulation, s.fec, s.symbolRate,
                     s.outerFec, s.annex, s.spectralInversion)
HIDL_STRUCT_EQUALITY(FrontendDvbtSettings, s.frequency, s.transmissionMode, s.bandwidth,
                     s.constellation, s.hierarchy, s.hpCoderate, s.lpCoderate, s.guardInterval,
                     s.isHighPriority, s.standard, s.isMiso, s.plpMode, s.plpId, s.plpGroupId)
HIDL_STRUCT_EQUALITY(FrontendIsdbsSettings, s.frequency, s.streamId, s.streamIdType, s.modulation,
                     s.coderate, s.symbolRate, s.rolloff)
HIDL_STRUCT_EQUALITY(FrontendIsdbs3Settings, s.frequency, s.streamId, s.streamIdType, s.modulation,
                     s.coderate, s.symbolRate, s.rolloff)
HIDL_STRUCT_EQUALITY(FrontendIsdbtSettings, s.frequency, s.modulation, s.bandwidth, s.mode,
                     s.coderate, s.guardInterval, s.serviceAreaId)

struct FrontendSettings final {
    HIDL_SAFE_UNION(FrontendSettings, TUNER_FRONTEND_SETTINGS)
};

// ---- Frontend information ----

struct FrontendAnalogCapabilities {
    uint32_t typeCap;
    uint32_t sifStandardCap;
};
struct FrontendAtscCapabilities {
    uint32_t modulationCap;
};
struct FrontendAtsc3Capabilities {
    uint32_t bandwidthCap;
    uint32_t modulationCap;
    uint32_t timeInterleaveModeCap;
    uint32_t codeRateCap;
    uint32_t fecCap;
    uint8_t demodOutputFormatCap;
};
struct FrontendDvbsCapabilities {
    int32_t modulationCap;
    uint64_t innerfecCap;
    uint8_t standard;
};
struct FrontendDvbcCapabilities {
    uint32_t modulationCap;
    uint64_t fecCap;
    uint8_t annexCap;
};
struct FrontendDvbtCapabilities {
    uint32_t transmissionModeCap;
    uint32_t bandwidthCap;
    uint32_t constellationCap;
    uint32_t coderateCap;
    uint32_t hierarchyCap;
    uint32_t guardIntervalCap;
    bool isT2Supported;
    bool isMisoSupported;
};
struct FrontendIsdbsCapabilities {
    uint32_t modulationCap;
    uint32_t coderateCap;
};
struct FrontendIsdbs3Capabilities {
    uint32_t modulationCap;
    uint32_t coderateCap;
};
struct FrontendIsdbtCapabilities {
    uint32_t modeCap;
    uint32_t bandwidthCap;
    uint32_t modulationCap;
    uint32_t coderateCap;
    uint32_t guardIntervalCap;
};

HIDL_STRUCT_EQUALITY(FrontendAnalogCapabilities, s.typeCap, s.sifStandardCap)
HIDL_STRUCT_EQUALITY(FrontendAtscCapabilities, s.modulationCap)
HIDL_STRUCT_EQUALITY(FrontendAtsc3Capabilities, s.bandwidthCap, s.modulationCap,
                     s.timeInterleaveModeCap, s.codeRateCap, s.fecCap, s.demodOutputFormatCap)
HIDL_STRUCT_EQUALITY(FrontendDvbsCapabilities, s.modulationCap, s.innerfecCap, s.standard)
HIDL_STRUCT_EQUALITY(FrontendDvbcCapabilities, s.modulationCap, s.fecCap, s.annexCap)
HIDL_STRUCT_EQUALITY(FrontendDvbtCapabilities, s.transmissionModeCap, s.bandwidthCap,
                     s.constellationCap, s.coderateCap, s.hierarchyCap, s.guardIntervalCap,
                     s.isT2Supported, s.isMisoSupported)
HIDL_STRUCT_EQUALITY(FrontendIsdbsCapabilities, s.modulationCap, s.coderateCap)
HIDL_STRUCT_EQUALITY(FrontendIsdbs3Capabilities, s.modulationCap, s.coderateCap)
HIDL_STRUCT_EQUALITY(FrontendIsdbtCapabilities, s.modeCap, s.bandwidthCap, s.modulationCap,
                     s.coderateCap, s.guardIntervalCap)

#define TUNER_FRONTEND_CAPABILITIES(X)           \
    X(0, analogCaps, FrontendAnalogCapabilities) \
    X(1, atscCaps, FrontendAtscCapabilities)     \
    X(2, atsc3Caps, FrontendAtsc3Capabilities)   \
    X(3, dvbsCaps, FrontendDvbsCapabilities)     \
    X(4, dvbcCaps, FrontendDvbcCapabilities)     \
    X(5, dvbtCaps, FrontendDvbtCapabilities)     \
    X(6, isdbsCaps, FrontendIsdbsCapabilities)   \
    X(7, isdbs3Caps, FrontendIsdbs3Capabilities) \
    X(8, isdbtCaps, FrontendIsdbtCapabilities)

struct FrontendInfo {
    struct FrontendCapabilities final {
        HIDL_SAFE_UNION(FrontendCapabilities, TUNER_FRONTEND_CAPABILITIES)
    };

    FrontendType type;
    uint32_t minFrequency;
    uint32_t maxFrequency;
    uint32_t minSymbolRate;
    uint32_t maxSymbolRate;
    uint32_t acquireRange;
    uint32_t exclusiveGroupId;
    ::android::hardware::hidl_vec<FrontendStatusType> statusCaps;
    FrontendCapabilities frontendCaps;
};

HIDL_STRUCT_EQUALITY(FrontendInfo, s.type, s.minFrequency, s.maxFrequency, s.minSymbolRate,
                     s.maxSymbolRate, s.acquireRange, s.exclusiveGroupId, s.statusCaps,
                     s.frontendCaps)

// ---- Scan messages ----

struct FrontendScanAtsc3PlpInfo {
    uint8_t plpId;
    bool bLlsFlag;
};
HIDL_STRUCT_EQUALITY(FrontendScanAtsc3PlpInfo, s.plpId, s.bLlsFlag)

#define TUNER_SCAN_MESSAGE_STANDARD(X)      \
    X(0, sStd, FrontendDvbsStandard)        \
    X(1, tStd, FrontendDvbtStandard)        \
    X(2, sifStd, FrontendAnalogSifStandard)

#define TUNER_SCAN_MESSAGE(X)                                                     \
    X(0, isLocked, bool)                                                          \
    X(1, isEnd, bool)                                                             \
    X(2, progressPercent, uint8_t)                                                \
    X(3, frequencies, ::android::hardware::hidl_vec<uint32_t>)                    \
    X(4, symbolRates, ::android::hardware::hidl_vec<uint32_t>)                    \
    X(5, hierarchy, FrontendDvbtHierarchy)                                        \
    X(6, analogType, FrontendAnalogType)                                          \
    X(7, plpIds, ::android::hardware::hidl_vec<uint8_t>)                          \
    X(8, groupIds, ::android::hardware::hidl_vec<uint8_t>)                        \
    X(9, inputStreamIds, ::android::hardware::hidl_vec<uint16_t>)                 \
    X(10, std, Standard)                                                          \
    X(11, atsc3PlpInfos, ::android::hardware::hidl_vec<FrontendScanAtsc3PlpInfo>)

struct FrontendScanMessage final {
    struct Standard final {
        HIDL_SAFE_UNION(Standard, TUNER_SCAN_MESSAGE_STANDARD)
    };
    HIDL_SAFE_UNION(FrontendScanMessage, TUNER_SCAN_MESSAGE)
};

// ---- Status ----

struct FrontendStatusAtsc3PlpInfo {
    uint8_t plpId;
    bool isLocked;
    uint32_t uec;
};
HIDL_STRUCT_EQUALITY(FrontendStatusAtsc3PlpInfo, s.plpId, s.isLocked, s.uec)

#define TUNER_MODULATION_STATUS(X)         \
    X(0, dvbc, FrontendDvbcModulation)     \
    X(1, dvbs, FrontendDvbsModulation)     \
    X(2, isdbs, FrontendIsdbsModulation)   \
    X(3, isdbs3, FrontendIsdbs3Modulation) \
    X(4, isdbt, FrontendIsdbtModulation)

struct FrontendModulationStatus final {
    HIDL_SAFE_UNION(FrontendModulationStatus, TUNER_MODULATION_STATUS)
};

// Alternative i answers FrontendStatusType i.
#define TUNER_FRONTEND_STATUS(X)                                              \
    X(0, isDemodLocked, bool)                                                 \
    X(1, snr, int32_t)                                                        \
    X(2, ber, uint32_t)                                                       \
    X(3, per, uint32_t)                                                       \
    X(4, preBer, uint32_t)                                                    \
    X(5, signalQuality, uint32_t)                                             \
    X(6, signalStrength, int32_t)                                             \
    X(7, symbolRate, uint32_t)                                                \
    X(8, innerFec, FrontendInnerFec)                                          \
    X(9, modulation, FrontendModulationStatus)                                \
    X(10, inversion, FrontendDvbcSpectralInversion)                           \
    X(11, lnbVoltage, LnbVoltage)                                             \
    X(12, plpId, uint8_t)                                                     \
    X(13, isEWBS, bool)                                                       \
    X(14, agc, uint8_t)                                                       \
    X(15, isLnaOn, bool)                                                      \
    X(16, isLayerError, ::android::hardware::hidl_vec<bool>)                  \
    X(17, mer, int32_t)                                                       \
    X(18, freqOffset, int32_t)                                                \
    X(19, hierarchy, FrontendDvbtHierarchy)                                   \
    X(20, isRfLocked, bool)                                                   \
    X(21, plpInfo, ::android::hardware::hidl_vec<FrontendStatusAtsc3PlpInfo>)

struct FrontendStatus final {
    HIDL_SAFE_UNION(FrontendStatus, TUNER_FRONTEND_STATUS)
};

// ---- Demux ----

struct DemuxCapabilities {
    uint32_t numDemux;
    uint32_t numRecord;
    uint32_t numPlayback;
    uint32_t numTsFilter;
    uint32_t numSectionFilter;
    uint32_t numAudioFilter;
    uint32_t numVideoFilter;
    uint32_t numPesFilter;
    uint32_t numPcrFilter;
    uint32_t numBytesInSectionFilter;
    uint32_t filterCaps;
    ::android::hardware::hidl_vec<uint32_t> linkCaps;
    bool bTimeFilter;
};
HIDL_STRUCT_EQUALITY(DemuxCapabilities, s.numDemux, s.numRecord, s.numPlayback, s.numTsFilter,
                     s.numSectionFilter, s.numAudioFilter, s.numVideoFilter, s.numPesFilter,
                     s.numPcrFilter, s.numBytesInSectionFilter, s.filterCaps, s.linkCaps,
                     s.bTimeFilter)

#define TUNER_DEMUX_PID(X)      \
    X(0, tPid, DemuxTpid)       \
    X(1, mmtpPid, DemuxMmtpPid)
struct DemuxPid final {
    HIDL_SAFE_UNION(DemuxPid, TUNER_DEMUX_PID)
};

#define TUNER_DEMUX_FILTER_SUB_TYPE(X)        \
    X(0, tsFilterType, DemuxTsFilterType)     \
    X(1, mmtpFilterType, DemuxMmtpFilterType) \
    X(2, ipFilterType, DemuxIpFilterType)     \
    X(3, tlvFilterType, DemuxTlvFilterType)   \
    X(4, alpFilterType, DemuxAlpFilterType)

// Reduced form: the filter, DVR and time-filter objects are not offered by this service.
struct DemuxFilterType {
    struct DemuxFilterSubType final {
        HIDL_SAFE_UNION(DemuxFilterSubType, TUNER_DEMUX_FILTER_SUB_TYPE)
    };
    DemuxFilterMainType mainType;
    DemuxFilterSubType subType;
};

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
// clang-format on
