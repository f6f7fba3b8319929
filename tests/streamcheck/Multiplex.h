// A small DVB-T multiplex for the checker's tests, every table and PID on time: PAT and PMT
// every 100 ms, PCRs every 20 ms on their own PID, video PES every 40 ms, audio every 20 ms,
// a data PID every 100 ms, CAT, NIT, EIT p/f and TDT/TOT every second, SDT every 500 ms.
#pragma once

#include "TsBuilder.h"

namespace multiplex {

constexpr uint16_t kPmtPid = 0x0100;
constexpr uint16_t kPcrPid = 0x0101;
constexpr uint16_t kVideoPid = 0x0102;
constexpr uint16_t kAudioPid = 0x0103;
constexpr uint16_t kDataPid = 0x0104;
constexpr uint16_t kMjd = 60310;  // 2024-01-01

tsbuild::Bytes pat(uint8_t version = 0);
tsbuild::Bytes pmt(uint8_t version = 0);
tsbuild::Bytes cat();
tsbuild::Bytes nit();
tsbuild::Bytes sdt();
tsbuild::Bytes eit(uint8_t sectionNumber);

tsbuild::Timeline timeline(size_t milliseconds);

}  // namespace multiplex
