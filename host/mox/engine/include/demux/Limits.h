// Every bound of the demux engine: what a stream, a client's settings or a slow reader could
// otherwise grow without end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::demux {

inline constexpr size_t kTsPacketSize = 188;
inline constexpr uint8_t kTsSyncByte = 0x47;
inline constexpr uint16_t kPidCount = 0x2000;  // 13-bit PIDs
// The PID a TS or record filter is set to for every packet of the stream, as Linux DVB's
// demux takes it: a whole multiplex recorded, or a stream's health measured.
inline constexpr uint16_t kWholeStreamPid = 0x2000;

// Filters one demux holds at once; the PID table keeps one bit per filter.
inline constexpr size_t kMaxFiltersPerDemux = 64;

// A private section (SI) is at most 4096 bytes: 3 header bytes and a section_length of 4093.
inline constexpr size_t kMaxSectionSize = 4096;
inline constexpr size_t kMaxSectionLength = kMaxSectionSize - 3;
// Bytes of a section filter's filter/mask/mode, as Linux DVB's DMX_FILTER_SIZE.
inline constexpr size_t kSectionFilterBytes = 16;
// Sections (table, extension, number) a filter that does not repeat remembers the version of.
inline constexpr size_t kMaxRememberedSections = 256;

// A PES filter's event counts its bytes in 16 bits.
inline constexpr size_t kMaxPesPacketSize = 0xFFFF;
// A media filter's frame: audio frames are small; a video picture may be large.
inline constexpr size_t kMaxAudioFrameSize = 64 * 1024;
inline constexpr size_t kMaxVideoFrameSize = 2 * 1024 * 1024;

// Frames of a media filter handed out and not yet released.
inline constexpr size_t kMaxOutstandingAvFrames = 1024;

// Share of a queue at which LOW_WATER and HIGH_WATER are reported unless told otherwise.
inline constexpr unsigned kDefaultLowWaterPercent = 25;
inline constexpr unsigned kDefaultHighWaterPercent = 75;

}  // namespace mox::demux
