#include "demux/PesAssembler.h"

#include <algorithm>

#include "demux/PacketFilter.h"

namespace mox::demux {
namespace {

constexpr size_t kFixedHeaderSize = 6;     // start code prefix, stream_id, PES_packet_length
constexpr size_t kOptionalHeaderSize = 3;  // flags and PES_header_data_length
constexpr size_t kTimestampSize = 5;

// Streams whose packets carry no optional header (ISO/IEC 13818-1, Table 2-21).
bool hasOptionalHeader(uint8_t streamId) {
    switch (streamId) {
        case 0xBC:  // program_stream_map
        case 0xBE:  // padding_stream
        case 0xBF:  // private_stream_2
        case 0xF0:  // ECM
        case 0xF1:  // EMM
        case 0xF2:  // DSMCC
        case 0xF8:  // H.222.1 type E
        case 0xFF:  // program_stream_directory
            return false;
        default:
            return true;
    }
}

uint64_t readTimestamp(const uint8_t* t) {
    return (uint64_t{t[0] & 0x0Eu} << 29) | (uint64_t{t[1]} << 22) |
           (uint64_t{t[2] & 0xFEu} << 14) | (uint64_t{t[3]} << 7) | (t[4] >> 1);
}

}  // namespace

std::optional<PesHeader> parsePesHeader(const uint8_t* d, size_t size) {
    if (size < kFixedHeaderSize || d[0] != 0 || d[1] != 0 || d[2] != 1) return std::nullopt;
    PesHeader header;
    header.streamId = d[3];
    header.payloadStart = kFixedHeaderSize;
    if (!hasOptionalHeader(header.streamId)) return header;
    if (size < kFixedHeaderSize + kOptionalHeaderSize || (d[6] & 0xC0) != 0x80) {
        return std::nullopt;
    }
    const size_t headerLength = d[8];
    header.payloadStart = kFixedHeaderSize + kOptionalHeaderSize + headerLength;
    if (header.payloadStart > size) return std::nullopt;
    if ((d[7] & 0x80) != 0) {
        if (headerLength < kTimestampSize) return std::nullopt;
        header.hasPts = true;
        header.pts = readTimestamp(d + kFixedHeaderSize + kOptionalHeaderSize);
    }
    return header;
}

bool PesAssembler::lose() {
    const bool had = mActive;
    mActive = false;
    return had;
}

void PesAssembler::push(const TsPacket& packet, Handler& handler, FilterCounters& counters) {
    if (!packet.hasPayload()) return;
    if (packet.unitStart) {
        if (mActive) {
            // An unbounded packet ends where the next begins; a bounded one should have ended.
            if (mExpected == 0 && mBuffer.size() >= kFixedHeaderSize) {
                handler.pes(mBuffer.data(), mBuffer.size());
            } else {
                ++counters.malformed;
            }
        }
        mActive = true;
        mBuffer.clear();
        mExpected = 0;
    }
    if (!mActive) return;
    append(packet.payload, packet.payloadSize, handler, counters);
}

void PesAssembler::append(const uint8_t* data, size_t size, Handler& handler,
                          FilterCounters& counters) {
    const size_t had = mBuffer.size();
    const size_t wanted = mExpected != 0 ? std::min(size, mExpected - had) : size;
    if (had + wanted > mMaxSize) {
        ++counters.oversizeDrops;
        mActive = false;
        return;
    }
    if (mBuffer.capacity() < had + wanted) {
        // Grow by doubling, never past the bound.
        mBuffer.reserve(std::min(mMaxSize, std::max(had + wanted, mBuffer.capacity() * 2)));
    }
    mBuffer.insert(mBuffer.end(), data, data + wanted);
    if (had < kFixedHeaderSize && mBuffer.size() >= kFixedHeaderSize) {
        if (mBuffer[0] != 0 || mBuffer[1] != 0 || mBuffer[2] != 1) {
            ++counters.malformed;
            mActive = false;
            return;
        }
        const size_t length = (mBuffer[4] << 8) | mBuffer[5];
        if (length != 0) {
            mExpected = kFixedHeaderSize + length;
            if (mExpected > mMaxSize) {
                ++counters.oversizeDrops;
                mActive = false;
                return;
            }
            // The rest of this packet beyond the PES packet's end is not part of it.
            if (mBuffer.size() > mExpected) mBuffer.resize(mExpected);
        }
    }
    if (mExpected != 0 && mBuffer.size() == mExpected) {
        mActive = false;
        handler.pes(mBuffer.data(), mBuffer.size());
    }
}

}  // namespace mox::demux
