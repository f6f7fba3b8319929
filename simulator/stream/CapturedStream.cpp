#include "simulator/stream/CapturedStream.h"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/ts.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace mox::air {
namespace {

constexpr uint64_t kPcrWrap = (uint64_t{1} << 33) * 300;
constexpr uint64_t kTimestampWrap = uint64_t{1} << 33;
constexpr size_t kReadPackets = 256;

uint64_t pcrOf(const uint8_t* p) {
    return tsaf_get_pcr(p) * 300 + tsaf_get_pcrext(p);
}

bool carriesPcr(const uint8_t* p) {
    return ts_has_adaptation(p) && ts_get_adaptation(p) >= 7 && tsaf_has_pcr(p);
}

// A PES header's timestamp at offset, moved on by ticks.
void shiftTimestamp(uint8_t* t, uint64_t ticks) {
    uint64_t value = (uint64_t(t[0] & 0x0E) << 29) | (uint64_t(t[1]) << 22) |
                     (uint64_t(t[2] & 0xFE) << 14) | (uint64_t(t[3]) << 7) | (t[4] >> 1);
    value = (value + ticks) % kTimestampWrap;
    t[0] = static_cast<uint8_t>((t[0] & 0xF1) | ((value >> 29) & 0x0E));
    t[1] = static_cast<uint8_t>(value >> 22);
    t[2] = static_cast<uint8_t>(((value >> 14) & 0xFE) | 0x01);
    t[3] = static_cast<uint8_t>(value >> 7);
    t[4] = static_cast<uint8_t>(((value << 1) & 0xFE) | 0x01);
}

}  // namespace

CaptureSummary readCaptureSummary(const std::string& path) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rb"), fclose);
    if (!file) throw CaptureError(path + ": cannot be read: " + std::strerror(errno));
    struct stat st {};
    if (fstat(fileno(file.get()), &st) != 0 || !S_ISREG(st.st_mode)) {
        throw CaptureError(path + ": not a regular file");
    }
    if (st.st_size == 0) throw CaptureError(path + ": empty");
    if (st.st_size % TS_SIZE != 0) {
        throw CaptureError(path + ": not a transport stream (" + std::to_string(st.st_size) +
                           " bytes is not a whole number of 188-byte packets)");
    }
    CaptureSummary summary;
    summary.firstCc.fill(0xFF);
    summary.lastCc.fill(0xFF);
    int pcrPid = -1;
    uint64_t firstPcr = 0, firstAt = 0, lastPcr = 0, lastAt = 0, wraps = 0;
    std::vector<uint8_t> buffer(kReadPackets * TS_SIZE);
    size_t got = 0;
    while ((got = fread(buffer.data(), TS_SIZE, kReadPackets, file.get())) > 0) {
        for (size_t i = 0; i < got; ++i, ++summary.packets) {
            const uint8_t* p = buffer.data() + i * TS_SIZE;
            if (p[0] != 0x47) {
                throw CaptureError(path + ": not a transport stream (packet " +
                                   std::to_string(summary.packets) + " has no sync byte)");
            }
            const uint16_t pid = ts_get_pid(p);
            if (ts_has_payload(p)) {
                if (summary.firstCc[pid] == 0xFF) summary.firstCc[pid] = ts_get_cc(p);
                summary.lastCc[pid] = ts_get_cc(p);
            }
            if (!carriesPcr(p)) continue;
            if (pcrPid < 0) {
                pcrPid = pid;
                firstPcr = lastPcr = pcrOf(p);
                firstAt = lastAt = summary.packets;
            } else if (pid == pcrPid) {
                const uint64_t pcr = pcrOf(p);
                if (pcr < lastPcr) ++wraps;
                lastPcr = pcr;
                lastAt = summary.packets;
            }
        }
    }
    const uint64_t span = lastPcr + wraps * kPcrWrap - firstPcr;
    if (lastAt > firstAt && span > 0) {
        summary.bitRate = (lastAt - firstAt) * 1504 * 27000000 / span;
    }
    return summary;
}

CapturedStream::CapturedStream(const std::string& path, uint64_t multiplexRate)
    : mPath(path),
      mSummary(readCaptureSummary(path)),
      mMultiplexRate(std::max<uint64_t>(multiplexRate, 1504)),
      mPlayRate(mSummary.bitRate == 0 ? mMultiplexRate : std::min(mSummary.bitRate, mMultiplexRate)),
      mFile(fopen(path.c_str(), "rb"), fclose),
      mBuffer(kReadPackets * TS_SIZE) {
    if (!mFile) throw CaptureError(path + ": cannot be read: " + std::strerror(errno));
}

CapturedStream::~CapturedStream() = default;

uint64_t CapturedStream::slotOf(uint64_t filePacket) const {
    // Rounded up: never two of the file's packets in one slot, as the play rate is at most the
    // multiplex's.
    const uint64_t whole = filePacket / mPlayRate * mMultiplexRate;
    const uint64_t part = (filePacket % mPlayRate * mMultiplexRate + mPlayRate - 1) / mPlayRate;
    return whole + part;
}

void CapturedStream::seek(uint64_t filePacket) {
    mNext = filePacket;
    fseek(mFile.get(), static_cast<long>(filePacket % mSummary.packets * TS_SIZE), SEEK_SET);
    mBufferPos = mBufferCount = 0;
}

bool CapturedStream::readNext(uint8_t* packet) {
    if (mBufferPos == mBufferCount) {
        if (mNext % mSummary.packets == 0) fseek(mFile.get(), 0, SEEK_SET);
        const uint64_t leftInPass = mSummary.packets - mNext % mSummary.packets;
        const size_t want = static_cast<size_t>(std::min<uint64_t>(kReadPackets, leftInPass));
        mBufferCount = fread(mBuffer.data(), TS_SIZE, want, mFile.get());
        mBufferPos = 0;
        if (mBufferCount == 0) return false;  // the file shrank under us
    }
    std::memcpy(packet, mBuffer.data() + mBufferPos++ * TS_SIZE, TS_SIZE);
    return true;
}

void CapturedStream::restamp(uint8_t* p, uint64_t slot, uint64_t loop) {
    const uint16_t pid = ts_get_pid(p);
    // Counters: each pass moves a PID's counter on by what the file moves it, plus one.
    if (mSummary.firstCc[pid] != 0xFF && loop > 0) {
        const uint64_t step = (mSummary.lastCc[pid] + 1u - mSummary.firstCc[pid]) & 0xF;
        ts_set_cc(p, static_cast<uint8_t>((ts_get_cc(p) + step * loop) & 0xF));
    }
    const uint64_t pcrTicks = slotTicks(slot, mMultiplexRate, 27000000);
    if (carriesPcr(p)) {
        // The first PCR sets the origin; every one after is the packet's time on the air.
        if (!mPcrOriginSet) {
            mPcrOrigin = (pcrOf(p) + kPcrWrap - pcrTicks % kPcrWrap) % kPcrWrap;
            mPcrOriginSet = true;
        }
        const uint64_t pcr = (mPcrOrigin + pcrTicks) % kPcrWrap;
        tsaf_set_pcr(p, pcr / 300);
        tsaf_set_pcrext(p, static_cast<uint16_t>(pcr % 300));
    }
    if (loop == 0 || !ts_get_unitstart(p) || !ts_has_payload(p)) return;
    uint8_t* pes = ts_payload(p);
    const size_t room = static_cast<size_t>(p + TS_SIZE - pes);
    if (room < PES_HEADER_SIZE_PTSDTS || pes[0] != 0 || pes[1] != 0 || pes[2] != 1) return;
    const uint8_t id = pes[3];
    if (id < 0xC0 && id != 0xBD) return;  // streams without the optional header
    if ((pes[6] & 0xC0) != 0x80) return;
    const uint64_t passSlots = slotOf(loop * mSummary.packets);
    const uint64_t ticks = slotTicks(passSlots, mMultiplexRate, 90000);
    if (pes[7] & 0x80) shiftTimestamp(pes + 9, ticks);
    if ((pes[7] & 0xC0) == 0xC0) shiftTimestamp(pes + 14, ticks);
}

size_t CapturedStream::produce(uint64_t untilUs, uint8_t* out, size_t maxPackets) {
    const uint64_t end = slotAt(untilUs, mMultiplexRate);
    size_t count = 0;
    for (; mSlot < end && count < maxPackets; ++mSlot, ++count) {
        uint8_t* p = out + count * TS_SIZE;
        if (slotOf(mNext) > mSlot) {
            ts_pad(p);
            continue;
        }
        const uint64_t loop = mNext / mSummary.packets;
        if (!readNext(p)) {
            ts_pad(p);
            continue;
        }
        ++mNext;
        restamp(p, mSlot, loop);
    }
    return count;
}

void CapturedStream::skipTo(uint64_t us) {
    const uint64_t slot = slotAt(us, mMultiplexRate);
    if (slot <= mSlot) return;
    mSlot = slot;
    uint64_t next =
            slot / mMultiplexRate * mPlayRate + slot % mMultiplexRate * mPlayRate / mMultiplexRate;
    while (slotOf(next) < slot) ++next;
    if (next > mNext) seek(next);
}

}  // namespace mox::air
