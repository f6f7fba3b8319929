// The floor of a recording across processes: a process of its own that takes whole packets out of
// one plain shared-memory ring and puts them in another, as fast as they come, with the same
// queues and event flags a DVR's client uses. Forked before the benchmark process has a thread.
#pragma once

#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>

namespace bench {

using ByteQueue =
        ::android::hardware::MessageQueue<uint8_t, ::android::hardware::kSynchronizedReadWrite>;

struct RingRelay {
    std::unique_ptr<ByteQueue> in;   // written here, read by the relay
    std::unique_ptr<ByteQueue> out;  // written by the relay, read here
    ::android::hardware::EventFlag* inFlag = nullptr;
    ::android::hardware::EventFlag* outFlag = nullptr;
    pid_t pid = -1;
};

// The relay process with its rings; pid -1 when it could not be made. The relay moves at most
// `chunkPackets` at once and waits at most `waitNs` for a write, as the service's playback does.
RingRelay startRingRelay(size_t inBytes, size_t outBytes, size_t chunkPackets, int64_t waitNs);
void stopRingRelay(RingRelay& relay);

}  // namespace bench
