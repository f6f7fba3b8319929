#include "PlayedFile.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <vector>

#include "streamcheck/Packet.h"

namespace tunerctl {

namespace {

using Clock = std::chrono::steady_clock;
namespace sc = ::mox::streamcheck;

// Packets checked for their sync byte before a file is taken for a transport stream.
constexpr size_t kSyncPackets = 5;
// What the player reads and writes at a time.
constexpr size_t kChunkPackets = 64;

// When each packet is due, from the PCRs of the first PID that carries them: the file plays at
// the pace it was sent.
class PcrPacer {
  public:
    // The time the packet is due at; now for packets before the first PCR.
    Clock::time_point due(const uint8_t* packet) {
        sc::PacketHeader h;
        if (!sc::parsePacket(packet, h) || !h.hasPcr) return mLastDue;
        if (mPid < 0) {
            mPid = h.pid;
            mFirst = h.pcr;
            mStart = Clock::now();
        }
        if (h.pid != mPid) return mLastDue;
        // A new time base (a loop of the file, a discontinuity) starts the pace afresh.
        if (h.pcr < mLast || h.pcr - mLast > 10 * sc::kPcrHz || h.discontinuity) {
            mFirst = h.pcr;
            mStart = mLastDue;
        }
        mLast = h.pcr;
        const double seconds = double(h.pcr - mFirst) / double(sc::kPcrHz);
        mLastDue = mStart + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(seconds));
        return mLastDue;
    }

  private:
    int mPid = -1;
    uint64_t mFirst = 0;
    uint64_t mLast = 0;
    Clock::time_point mStart = Clock::now();
    Clock::time_point mLastDue = Clock::now();
};

}  // namespace

bool looksLikeTransportStream(const std::string& file, std::string& error) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        error = file + ": " + std::strerror(errno);
        return false;
    }
    std::vector<char> head(kSyncPackets * kTsPacket);
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    const size_t got = static_cast<size_t>(in.gcount());
    if (got < kTsPacket) {
        error = file + ": not a transport stream (shorter than one 188-byte packet)";
        return false;
    }
    for (size_t at = 0; at + kTsPacket <= got; at += kTsPacket) {
        if (static_cast<uint8_t>(head[at]) != 0x47) {
            error = file + ": not a transport stream (no sync byte 0x47 at byte " +
                    std::to_string(at) + ")";
            return false;
        }
    }
    return true;
}

std::unique_ptr<PlayedFile> PlayedFile::start(const sp<hal::IDemux>& demux, const std::string& file,
                                              bool fast, std::string& error) {
    if (!looksLikeTransportStream(file, error)) return nullptr;
    std::unique_ptr<PlayedFile> played(new PlayedFile());
    played->mPlayer = Player::start(demux, error);
    if (!played->mPlayer) return nullptr;
    played->mThread = std::thread(&PlayedFile::play, played.get(), file, fast);
    return played;
}

PlayedFile::~PlayedFile() {
    stop();
}

void PlayedFile::stop() {
    mStop = true;
    if (mThread.joinable()) mThread.join();
    if (mPlayer) mPlayer->stop();
}

void PlayedFile::play(std::string file, bool fast) {
    std::ifstream in(file, std::ios::binary);
    PcrPacer pacer;
    std::vector<uint8_t> chunk(kChunkPackets * kTsPacket);
    while (!mStop && in) {
        in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
        const size_t n = static_cast<size_t>(in.gcount()) / kTsPacket * kTsPacket;
        size_t from = 0;
        for (size_t at = 0; !fast && at < n && !mStop; at += kTsPacket) {
            if (chunk[at] != 0x47) continue;
            const Clock::time_point due = pacer.due(&chunk[at]);
            if (due <= Clock::now()) continue;
            // What came before this packet goes now; the packet waits for its time.
            if (at > from && !mPlayer->write(&chunk[from], at - from, std::chrono::seconds(5))) {
                return;
            }
            mWritten += at - from;
            from = at;
            while (!mStop && Clock::now() < due) {
                std::this_thread::sleep_until(
                        std::min(due, Clock::now() + std::chrono::milliseconds(50)));
            }
        }
        if (mStop) return;
        if (n > from && !mPlayer->write(&chunk[from], n - from, std::chrono::seconds(5))) return;
        mWritten += n - from;
    }
    if (mPlayer->drain(std::chrono::seconds(5))) mFinished = true;
}

}  // namespace tunerctl
