#include "streamcheck/SectionAssembler.h"

#include <algorithm>

namespace mox::streamcheck {

namespace {
constexpr size_t kHeaderSize = 3;  // table_id and the 12-bit section_length
}

void SectionAssembler::push(const uint8_t* payload, size_t size, bool unitStart, uint64_t packet,
                            std::vector<Section>& out) {
    if (!unitStart) {
        // Without a start seen, these bytes are the rest of a section we did not get.
        if (mActive) take(payload, size, false, packet, out);
        return;
    }
    if (size == 0) {
        ++mMalformed;
        mActive = false;
        return;
    }
    const size_t pointer = payload[0];
    if (pointer + 1 > size) {
        ++mMalformed;
        mActive = false;
        return;
    }
    // The bytes before the pointer end the section under way (or are the tail of one we lost).
    if (mActive) {
        take(payload + 1, pointer, false, packet, out);
        if (mActive) {
            ++mMalformed;
            mActive = false;
        }
    }
    take(payload + 1 + pointer, size - 1 - pointer, true, packet, out);
}

void SectionAssembler::take(const uint8_t* data, size_t size, bool mayStart, uint64_t packet,
                            std::vector<Section>& out) {
    while (size > 0) {
        if (!mActive) {
            // 0xFF where a table_id would be: stuffing to the end of the packet.
            if (!mayStart || data[0] == 0xFF) return;
            mActive = true;
            mBuffer.clear();
            mExpected = 0;
            mFirstPacket = packet;
        }
        if (mExpected == 0) {
            // The length may itself be split across packets.
            const size_t n = std::min(kHeaderSize - mBuffer.size(), size);
            mBuffer.insert(mBuffer.end(), data, data + n);
            data += n;
            size -= n;
            if (mBuffer.size() < kHeaderSize) return;
            mExpected = kHeaderSize + (((mBuffer[1] & 0x0F) << 8) | mBuffer[2]);
            if (mExpected > kMaxSectionSize) {
                // Where the next section starts is unknown until the next unit start.
                ++mMalformed;
                mActive = false;
                return;
            }
        }
        const size_t n = std::min(mExpected - mBuffer.size(), size);
        mBuffer.insert(mBuffer.end(), data, data + n);
        data += n;
        size -= n;
        if (mBuffer.size() == mExpected) {
            out.push_back(Section{mBuffer, mFirstPacket, packet});
            mActive = false;
        }
    }
}

}  // namespace mox::streamcheck
