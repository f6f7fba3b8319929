#include "demux/Crc32.h"

#include <array>

namespace mox::demux {
namespace {

constexpr std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i << 24;
        for (int k = 0; k < 8; ++k) c = (c & 0x80000000u) ? (c << 1) ^ 0x04C11DB7u : c << 1;
        table[i] = c;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = makeTable();

}  // namespace

uint32_t crc32Mpeg2(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) crc = (crc << 8) ^ kTable[((crc >> 24) ^ data[i]) & 0xFF];
    return crc;
}

}  // namespace mox::demux
