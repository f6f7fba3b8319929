// A queue between two processes, as a client and the service share one: the descriptor's memory
// crosses a Unix socket (SCM_RIGHTS), the other process maps it, and data flows both ways through
// blocking calls on the event flag, more than the ring holds.
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "ServiceProcess.h"

namespace {

using ::android::hardware::EventFlag;
using ::android::hardware::GrantorDescriptor;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using Queue = MessageQueue<uint8_t, kSynchronizedReadWrite>;

constexpr uint32_t kDataReady = 1 << 0;
constexpr uint32_t kDataConsumed = 1 << 1;
constexpr int64_t kBoundNs = 10'000'000'000;
constexpr size_t kTotal = 1 << 20;

// The grantors in the bytes of one message, the memory's descriptor beside them.
bool sendDescriptor(int socket, const Queue::Descriptor& desc) {
    std::vector<GrantorDescriptor> grantors = desc.getGrantors();
    iovec iov{grantors.data(), grantors.size() * sizeof(GrantorDescriptor)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
    cmsg->cmsg_level = SOL_SOCKET;
    cmsg->cmsg_type = SCM_RIGHTS;
    cmsg->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(cmsg), &desc.handle()->data[0], sizeof(int));
    return sendmsg(socket, &msg, 0) == ssize_t(iov.iov_len);
}

// The descriptor as the other process gets it; one without a handle if nothing came.
Queue::Descriptor receiveDescriptor(int socket) {
    std::vector<GrantorDescriptor> grantors(4);
    iovec iov{grantors.data(), grantors.size() * sizeof(GrantorDescriptor)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    const ssize_t n = recvmsg(socket, &msg, MSG_CMSG_CLOEXEC);
    cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
    if (n <= 0 || cmsg == nullptr || cmsg->cmsg_type != SCM_RIGHTS) return Queue::Descriptor();
    native_handle_t* handle = native_handle_create(1, 0);
    memcpy(&handle->data[0], CMSG_DATA(cmsg), sizeof(int));
    grantors.resize(size_t(n) / sizeof(GrantorDescriptor));
    return Queue::Descriptor(grantors, handle, sizeof(uint8_t));
}

uint8_t patternAt(size_t i) {
    return uint8_t(i * 13 + (i >> 8));
}

TEST(MessageQueueProcessTest, AnotherProcessMapsTheDescriptorAndWritesMoreThanTheRingHolds) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Queue queue(4096, true);
    ASSERT_TRUE(queue.isValid());

    const pid_t writer = testing_support::forkClient([&]() -> int {
        close(ends[0]);
        Queue::Descriptor desc = receiveDescriptor(ends[1]);
        Queue mapped(desc, false);
        if (!mapped.isValid()) return 10;
        // The flag from the memory's descriptor and the word's offset, as libfmq's users may.
        EventFlag* flag = nullptr;
        if (EventFlag::createEventFlag(desc.handle()->data[0], off_t(desc.grantors()[3].offset),
                                       &flag) != 0) {
            return 11;
        }
        std::vector<uint8_t> chunk(1000);
        for (size_t sent = 0; sent < kTotal; sent += chunk.size()) {
            const size_t n = std::min(chunk.size(), kTotal - sent);
            for (size_t i = 0; i < n; ++i) chunk[i] = patternAt(sent + i);
            if (!mapped.writeBlocking(chunk.data(), n, kDataConsumed, kDataReady, kBoundNs, flag)) {
                return 12;
            }
        }
        EventFlag::deleteEventFlag(&flag);
        return 0;
    });
    ASSERT_GT(writer, 0);
    close(ends[1]);
    ASSERT_TRUE(sendDescriptor(ends[0], *queue.getDesc()));
    close(ends[0]);

    std::vector<uint8_t> got(kTotal);
    bool allRead = true;
    for (size_t have = 0; have < kTotal && allRead;) {
        const size_t n = std::min<size_t>(777, kTotal - have);
        allRead = queue.readBlocking(got.data() + have, n, kDataConsumed, kDataReady, kBoundNs);
        have += n;
    }
    const int status = testing_support::waitForChild(writer);
    ASSERT_TRUE(allRead);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "writer's status " << status;
    size_t wrong = 0;
    for (size_t i = 0; i < kTotal; ++i) wrong += got[i] != patternAt(i);
    EXPECT_EQ(wrong, 0u);
}

}  // namespace
