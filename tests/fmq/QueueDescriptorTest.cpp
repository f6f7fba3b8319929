// The side that maps a descriptor it was given trusts nothing in it: every way a descriptor can
// be wrong gives a queue that is not valid (and does nothing), never a crash, and holds no
// descriptor once it is gone.
#include <dirent.h>
#include <fcntl.h>
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

using ::android::hardware::GrantorDescriptor;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::details::kMaxQueueBytes;

using WordQueue = MessageQueue<uint32_t, kSynchronizedReadWrite>;
using Descriptor = WordQueue::Descriptor;

size_t openDescriptors() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

int sealedMemfd(size_t bytes, int seals = F_SEAL_SHRINK | F_SEAL_GROW) {
    const int fd = memfd_create("test-queue", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0 || ftruncate(fd, off_t(bytes)) != 0) return -1;
    if (seals != 0 && fcntl(fd, F_ADD_SEALS, seals) != 0) return -1;
    return fd;
}

// What a test changes in a good descriptor: its grantors, the fds of its handle, its quantum.
struct Parts {
    std::vector<GrantorDescriptor> grantors;
    std::vector<int> fds;  // owned by the descriptor made of them
    size_t quantum = sizeof(uint32_t);
};

Parts goodParts() {
    WordQueue queue(16, true);
    Parts parts;
    parts.grantors = queue.getDesc()->getGrantors();
    parts.fds.push_back(fcntl(queue.getDesc()->handle()->data[0], F_DUPFD_CLOEXEC, 0));
    return parts;
}

template <typename D>
D describe(const Parts& parts) {
    native_handle_t* handle = native_handle_create(int(parts.fds.size()), 0);
    for (size_t i = 0; i < parts.fds.size(); ++i) handle->data[i] = parts.fds[i];
    return D(parts.grantors, handle, parts.quantum);
}

struct BadCase {
    const char* name;
    std::function<void(Parts&)> spoil;
};

TEST(QueueDescriptorTest, EveryWayADescriptorCanBeWrongGivesAnInvalidQueue) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const BadCase cases[] = {
            {"fewer grantors than positions and ring", [](Parts& p) { p.grantors.resize(2); }},
            {"more grantors than a queue has",
             [](Parts& p) { p.grantors.push_back(p.grantors.back()); }},
            {"a message of another size", [](Parts& p) { p.quantum = 2; }},
            {"an empty ring", [](Parts& p) { p.grantors[2].extent = 0; }},
            {"a ring of no whole number of messages", [](Parts& p) { p.grantors[2].extent = 62; }},
            {"a ring beyond the memory", [&](Parts& p) { p.grantors[2].extent = page; }},
            {"a ring beyond the bound",
             [](Parts& p) {
                 close(p.fds[0]);
                 p.fds[0] = sealedMemfd(kMaxQueueBytes + 4096);
                 p.grantors[2].extent = kMaxQueueBytes + 4;
                 p.grantors[3].offset = uint32_t(p.grantors[2].offset + kMaxQueueBytes + 8);
             }},
            {"an offset beyond the memory",
             [&](Parts& p) { p.grantors[3].offset = uint32_t(page); }},
            {"an offset and extent that wrap",
             [](Parts& p) {
                 p.grantors[2].offset = 0xFFFFFFF8u;
                 p.grantors[2].extent = uint64_t(0) - 0xFFFFFFF8u;
             }},
            {"a misaligned position", [](Parts& p) { p.grantors[1].offset = 12; }},
            {"a position too small", [](Parts& p) { p.grantors[0].extent = 4; }},
            {"overlapping positions", [](Parts& p) { p.grantors[1].offset = p.grantors[0].offset; }},
            {"the ring over the event-flag word",
             [](Parts& p) { p.grantors[3].offset = uint32_t(p.grantors[2].offset + 8); }},
            {"a descriptor the handle does not have", [](Parts& p) { p.grantors[2].fdIndex = 1; }},
            {"no descriptor in the handle",
             [](Parts& p) {
                 close(p.fds[0]);
                 p.fds.clear();
             }},
            {"more descriptors than a queue uses",
             [](Parts& p) {
                 for (int i = 0; i < 2; ++i) p.fds.push_back(sealedMemfd(4096));
             }},
            {"a pipe",
             [](Parts& p) {
                 int ends[2];
                 ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
                 close(ends[1]);
                 close(p.fds[0]);
                 p.fds[0] = ends[0];
             }},
            {"a regular file anyone may shrink",
             [](Parts& p) {
                 char path[] = "/tmp/queue-test-XXXXXX";
                 const int fd = mkostemp(path, O_CLOEXEC);
                 unlink(path);
                 ASSERT_EQ(ftruncate(fd, 4096), 0);
                 close(p.fds[0]);
                 p.fds[0] = fd;
             }},
            {"memory not sealed against shrinking",
             [](Parts& p) {
                 close(p.fds[0]);
                 p.fds[0] = sealedMemfd(4096, 0);
             }},
            {"memory open for reading only",
             [](Parts& p) {
                 const std::string path = "/proc/self/fd/" + std::to_string(p.fds[0]);
                 const int readOnly = open(path.c_str(), O_RDONLY | O_CLOEXEC);
                 close(p.fds[0]);
                 p.fds[0] = readOnly;
             }},
            {"a closed descriptor", [](Parts& p) { close(p.fds[0]); }},
    };
    const size_t before = openDescriptors();
    for (const BadCase& c : cases) {
        SCOPED_TRACE(c.name);
        Parts parts = goodParts();
        c.spoil(parts);
        WordQueue queue(describe<Descriptor>(parts));
        EXPECT_FALSE(queue.isValid());
        uint32_t word = 7;
        EXPECT_FALSE(queue.write(&word));
        EXPECT_FALSE(queue.read(&word));
        EXPECT_FALSE(queue.readBlocking(&word, 1, 1000));
        EXPECT_EQ(queue.availableToRead(), 0u);
        EXPECT_EQ(queue.availableToWrite(), 0u);
        WordQueue::MemTransaction tx;
        EXPECT_FALSE(queue.beginWrite(1, &tx));
        EXPECT_EQ(tx.getFirstRegion().getAddress(), nullptr);
    }
    EXPECT_EQ(openDescriptors(), before);

    // The control: the same steps with nothing spoiled give a queue.
    WordQueue good(describe<Descriptor>(goodParts()));
    EXPECT_TRUE(good.isValid());
}

TEST(QueueDescriptorTest, PositionsNoWriterCouldLeaveReadAsNothingAndAreReset) {
    WordQueue queue(8);
    WordQueue peer(*queue.getDesc(), false);  // the other end, as a peer maps it
    ASSERT_TRUE(peer.isValid());
    // A broken peer moves its write position past a full ring.
    auto* write = reinterpret_cast<std::atomic<uint64_t>*>(
            mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED,
                 queue.getDesc()->handle()->data[0], 0));
    ASSERT_NE(write, MAP_FAILED);
    write[1].store(9 * sizeof(uint32_t));
    EXPECT_EQ(queue.availableToRead(), 0u);
    EXPECT_EQ(queue.availableToWrite(), 0u);
    uint32_t out[8] = {};
    EXPECT_FALSE(queue.read(out, 1));
    // The reader dropped what it could not trust: the queue is empty and usable again.
    EXPECT_EQ(queue.availableToRead(), 0u);
    EXPECT_EQ(queue.availableToWrite(), 8u);
    ASSERT_TRUE(peer.write(out, 8));
    EXPECT_TRUE(queue.read(out, 8));
    munmap(write, 4096);
}

TEST(QueueDescriptorTest, ACopiedDescriptorHoldsItsOwnDescriptorsAndClosesThem) {
    const size_t before = openDescriptors();
    {
        WordQueue queue(8, true);
        Descriptor copy(*queue.getDesc());
        ASSERT_NE(copy.handle(), nullptr);
        EXPECT_NE(copy.handle()->data[0], queue.getDesc()->handle()->data[0]);
        Descriptor assigned;
        assigned = copy;
        EXPECT_EQ(assigned.getSize(), copy.getSize());
        WordQueue mapped(assigned);
        EXPECT_TRUE(mapped.isValid());
        EXPECT_EQ(openDescriptors(), before + 4);  // the queue's, the copy's, assigned's, mapped's
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
