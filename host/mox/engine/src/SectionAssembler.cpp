#include "demux/SectionAssembler.h"

#include <algorithm>

namespace mox::demux {

SectionAssembler::SectionAssembler() {
    mBuffer.reserve(kMaxSectionSize);
}

bool SectionAssembler::lose() {
    const bool had = mActive;
    mActive = false;
    return had;
}

uint64_t SectionAssembler::push(const TsPacket& packet, Handler& handler) {
    const uint64_t malformedBefore = mMalformed;
    if (!packet.hasPayload()) return 0;
    const uint8_t* data = packet.payload;
    const size_t size = packet.payloadSize;
    if (!packet.unitStart) {
        take(data, size, false, handler);
        return mMalformed - malformedBefore;
    }
    const size_t pointer = data[0];
    if (1 + pointer > size) {
        // The pointer_field points past the packet: neither the old section's end nor the new
        // one's start can be found.
        ++mMalformed;
        mActive = false;
        return mMalformed - malformedBefore;
    }
    take(data + 1, pointer, false, handler);
    if (mActive) {
        // The next section begins before this one ended.
        ++mMalformed;
        mActive = false;
    }
    take(data + 1 + pointer, size - 1 - pointer, true, handler);
    return mMalformed - malformedBefore;
}

void SectionAssembler::take(const uint8_t* data, size_t size, bool mayStart, Handler& handler) {
    while (size > 0) {
        if (!mActive) {
            // Only where a unit starts may a section begin; 0xFF is stuffing to the end.
            if (!mayStart || data[0] == 0xFF) return;
            mActive = true;
            mBuffer.clear();
            mExpected = 0;
        }
        if (mExpected == 0) {
            const size_t n = std::min(size, 3 - mBuffer.size());
            mBuffer.insert(mBuffer.end(), data, data + n);
            data += n;
            size -= n;
            if (mBuffer.size() < 3) return;
            const size_t length = ((mBuffer[1] & 0x0F) << 8) | mBuffer[2];
            if (length > kMaxSectionLength) {
                ++mMalformed;
                mActive = false;
                return;
            }
            mExpected = 3 + length;
        }
        const size_t n = std::min(size, mExpected - mBuffer.size());
        mBuffer.insert(mBuffer.end(), data, data + n);
        data += n;
        size -= n;
        if (mBuffer.size() == mExpected) {
            mActive = false;
            handler.section(mBuffer.data(), mBuffer.size());
        }
    }
}

}  // namespace mox::demux
