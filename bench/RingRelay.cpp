#include "RingRelay.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace bench {
namespace {

constexpr uint32_t kDataReady = 1 << 0;     // as DemuxQueueNotifyBits
constexpr uint32_t kDataConsumed = 1 << 1;  // as DemuxQueueNotifyBits
constexpr size_t kPacketSize = 188;

[[noreturn]] void relay(RingRelay& r, pid_t parent, size_t chunkPackets, int64_t waitNs) {
    std::vector<uint8_t> buffer(chunkPackets * kPacketSize);
    for (;;) {
        uint32_t state = 0;
        r.inFlag->wait(kDataReady, &state, waitNs, false);
        if (getppid() != parent) _exit(0);
        // Everything there is, a chunk at a time; the writer keeps within the out ring's room.
        for (;;) {
            const size_t packets = std::min(chunkPackets, r.in->availableToRead() / kPacketSize);
            if (packets == 0) break;
            const size_t bytes = packets * kPacketSize;
            if (!r.in->read(buffer.data(), bytes)) break;
            r.inFlag->wake(kDataConsumed);
            if (!r.out->write(buffer.data(), bytes)) _exit(1);
            r.outFlag->wake(kDataReady);
        }
    }
}

}  // namespace

RingRelay startRingRelay(size_t inBytes, size_t outBytes, size_t chunkPackets, int64_t waitNs) {
    RingRelay r;
    r.in = std::make_unique<ByteQueue>(inBytes, true);
    r.out = std::make_unique<ByteQueue>(outBytes, true);
    using ::android::hardware::EventFlag;
    if (!r.in->isValid() || !r.out->isValid() ||
        EventFlag::createEventFlag(r.in->getEventFlagWord(), &r.inFlag) != ::android::OK ||
        EventFlag::createEventFlag(r.out->getEventFlagWord(), &r.outFlag) != ::android::OK) {
        return r;
    }
    const pid_t parent = getpid();
    r.pid = fork();
    if (r.pid == 0) relay(r, parent, chunkPackets, waitNs);
    return r;
}

void stopRingRelay(RingRelay& relay) {
    if (relay.pid <= 0) return;
    kill(relay.pid, SIGTERM);
    waitpid(relay.pid, nullptr, 0);
    relay.pid = -1;
}

}  // namespace bench
