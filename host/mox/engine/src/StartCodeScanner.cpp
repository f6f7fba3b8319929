#include "demux/StartCodeScanner.h"

#include <cstring>

namespace mox::demux {
namespace {

using ::android::hardware::tv::tuner::V1_0::DemuxScHevcIndex;
using ::android::hardware::tv::tuner::V1_0::DemuxScIndex;

constexpr uint32_t bit(DemuxScIndex index) {
    return static_cast<uint32_t>(index);
}
constexpr uint32_t bit(DemuxScHevcIndex index) {
    return static_cast<uint32_t>(index);
}

// MPEG-2 video start codes (ISO/IEC 13818-2).
constexpr uint8_t kPictureStart = 0x00;
constexpr uint8_t kSequenceHeader = 0xB3;
// H.264 NAL unit types (ITU-T H.264, Table 7-1).
constexpr uint8_t kAvcSlice = 1;
constexpr uint8_t kAvcIdrSlice = 5;
constexpr uint8_t kAvcSps = 7;
constexpr uint8_t kAvcAud = 9;
// HEVC NAL unit types (ITU-T H.265, Table 7-1).
constexpr uint8_t kHevcTrailN = 0;
constexpr uint8_t kHevcTrailR = 1;
constexpr uint8_t kHevcBlaWLp = 16;
constexpr uint8_t kHevcBlaWRadl = 17;
constexpr uint8_t kHevcBlaNLp = 18;
constexpr uint8_t kHevcIdrWRadl = 19;
constexpr uint8_t kHevcIdrNLp = 20;
constexpr uint8_t kHevcCra = 21;
constexpr uint8_t kHevcSps = 33;
constexpr uint8_t kHevcAud = 35;

// Exp-Golomb codes of a slice header, within the bytes at hand.
class BitReader {
  public:
    BitReader(const uint8_t* data, size_t size) : mData(data), mBits(size * 8) {}
    bool ue(uint32_t& value) {
        int zeros = 0;
        while (true) {
            if (mAt >= mBits || zeros > 16) return false;
            if (next()) break;
            ++zeros;
        }
        uint32_t rest = 0;
        for (int i = 0; i < zeros; ++i) {
            if (mAt >= mBits) return false;
            rest = (rest << 1) | next();
        }
        value = (1u << zeros) - 1 + rest;
        return true;
    }

  private:
    uint32_t next() {
        const uint32_t b = (mData[mAt / 8] >> (7 - mAt % 8)) & 1;
        ++mAt;
        return b;
    }
    const uint8_t* mData;
    size_t mBits;
    size_t mAt = 0;
};

}  // namespace

void StartCodeScanner::reset() {
    mCarried = 0;
}

uint32_t StartCodeScanner::scan(const uint8_t* payload, size_t size) {
    if (mType == DemuxRecordScIndexType::NONE) return 0;
    if (size > kTsPacketSize) size = kTsPacketSize;
    std::memcpy(mWindow.data() + mCarried, payload, size);
    const size_t total = mCarried + size;
    // A prefix is looked at once its code and look-ahead are in; later ones wait for the next
    // payload.
    const size_t end = total >= kCarry ? total - kCarry + 1 : 0;
    uint32_t bits = 0;
    for (size_t i = 0; i < end; ++i) {
        if (mWindow[i] != 0 || mWindow[i + 1] != 0 || mWindow[i + 2] != 1) continue;
        const uint8_t* code = mWindow.data() + i + 3;
        const size_t available = total - (i + 3);
        bits |= mType == DemuxRecordScIndexType::SC_HEVC ? hevcOf(code, available)
                                                         : scOf(code, available);
    }
    mCarried = total - end;
    std::memmove(mWindow.data(), mWindow.data() + end, mCarried);
    return bits;
}

// MPEG-2 and H.264 share the start code prefix; the first code only one of them has tells which
// the PID carries.
uint32_t StartCodeScanner::scOf(const uint8_t* code, size_t available) {
    const uint8_t c = code[0];
    if (mCodec == Codec::kUnknown) {
        if (c == kSequenceHeader || c == kPictureStart) {
            mCodec = Codec::kMpeg2;
        } else if (c == kAvcAud) {
            mCodec = Codec::kH264;
        } else {
            return 0;
        }
    }
    if (mCodec == Codec::kMpeg2) {
        if (c == kSequenceHeader) return bit(DemuxScIndex::SEQUENCE);
        if (c != kPictureStart || available < 3) return 0;
        switch ((code[2] >> 3) & 7) {  // picture_coding_type
            case 1:
                return bit(DemuxScIndex::I_FRAME);
            case 2:
                return bit(DemuxScIndex::P_FRAME);
            case 3:
                return bit(DemuxScIndex::B_FRAME);
            default:
                return 0;
        }
    }
    if ((c & 0x80) != 0) return 0;  // forbidden_zero_bit
    const uint8_t type = c & 0x1F;
    if (type == kAvcSps) return bit(DemuxScIndex::SEQUENCE);
    if (type != kAvcSlice && type != kAvcIdrSlice) return 0;
    // A picture's first slice: first_mb_in_slice 0, then slice_type.
    BitReader reader(code + 1, available - 1);
    uint32_t firstMb = 0;
    uint32_t sliceType = 0;
    if (!reader.ue(firstMb) || firstMb != 0 || !reader.ue(sliceType)) return 0;
    if (type == kAvcIdrSlice) return bit(DemuxScIndex::I_FRAME);
    switch (sliceType % 5) {
        case 0:  // P
        case 3:  // SP
            return bit(DemuxScIndex::P_FRAME);
        case 1:
            return bit(DemuxScIndex::B_FRAME);
        default:  // I, SI
            return bit(DemuxScIndex::I_FRAME);
    }
}

uint32_t StartCodeScanner::hevcOf(const uint8_t* code, size_t available) const {
    if ((code[0] & 0x80) != 0 || available < 3) return 0;
    const uint8_t type = (code[0] >> 1) & 0x3F;
    if (type == kHevcSps) return bit(DemuxScHevcIndex::SPS);
    if (type == kHevcAud) return bit(DemuxScHevcIndex::AUD);
    // Slices count at a picture's first segment only.
    if ((code[2] & 0x80) == 0) return 0;
    switch (type) {
        case kHevcBlaWLp:
            return bit(DemuxScHevcIndex::SLICE_CE_BLA_W_LP);
        case kHevcBlaWRadl:
            return bit(DemuxScHevcIndex::SLICE_BLA_W_RADL);
        case kHevcBlaNLp:
            return bit(DemuxScHevcIndex::SLICE_BLA_N_LP);
        case kHevcIdrWRadl:
            return bit(DemuxScHevcIndex::SLICE_IDR_W_RADL);
        case kHevcIdrNLp:
            return bit(DemuxScHevcIndex::SLICE_IDR_N_LP);
        case kHevcTrailN:
        case kHevcTrailR:
        case kHevcCra:
            return bit(DemuxScHevcIndex::SLICE_TRAIL_CRA);
        default:
            return 0;
    }
}

}  // namespace mox::demux
