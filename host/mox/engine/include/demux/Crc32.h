// CRC-32/MPEG-2 of PSI/SI sections: a section with its CRC_32 field included gives 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mox::demux {

uint32_t crc32Mpeg2(const uint8_t* data, size_t size);

}  // namespace mox::demux
