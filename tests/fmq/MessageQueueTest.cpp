// A queue within one process: sizes, the synchronized flavour's failures, zero-copy transactions
// across the ring's end, and blocking reads and writes between two threads.
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using ::android::hardware::EventFlag;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::details::kMaxQueueBytes;

using ByteQueue = MessageQueue<uint8_t, kSynchronizedReadWrite>;
using WordQueue = MessageQueue<uint32_t, kSynchronizedReadWrite>;

constexpr int64_t kBoundNs = 10'000'000'000;  // a blocking call of these tests ends by then

TEST(MessageQueueTest, ANewQueueDescribesItsRingAndPositions) {
    WordQueue queue(100, true);
    ASSERT_TRUE(queue.isValid());
    EXPECT_EQ(queue.getQuantumSize(), sizeof(uint32_t));
    EXPECT_EQ(queue.getQuantumCount(), 100u);
    EXPECT_EQ(queue.availableToWrite(), 100u);
    EXPECT_EQ(queue.availableToRead(), 0u);
    EXPECT_NE(queue.getEventFlagWord(), nullptr);

    const WordQueue::Descriptor* desc = queue.getDesc();
    ASSERT_NE(desc, nullptr);
    ASSERT_EQ(desc->countGrantors(), 4u);
    EXPECT_EQ(desc->getSize(), 400u);
    EXPECT_EQ(desc->getQuantum(), sizeof(uint32_t));
    ASSERT_NE(desc->handle(), nullptr);
    EXPECT_EQ(desc->handle()->numFds, 1);
    // Read position, write position, ring, event-flag word: in that order, word-aligned.
    const size_t extents[] = {8, 8, 400, 4};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(desc->grantors()[i].extent, extents[i]) << "grantor " << i;
        EXPECT_EQ(desc->grantors()[i].offset % 8, 0u) << "grantor " << i;
    }
    EXPECT_EQ(WordQueue(1).getEventFlagWord(), nullptr);
    EXPECT_EQ(WordQueue(1).getDesc()->countGrantors(), 3u);
}

TEST(MessageQueueTest, QueueSizesOutsideTheBoundMakeNoQueue) {
    EXPECT_FALSE(ByteQueue(0).isValid());
    EXPECT_FALSE(ByteQueue(kMaxQueueBytes + 1).isValid());
    EXPECT_FALSE(WordQueue(kMaxQueueBytes / sizeof(uint32_t) + 1).isValid());
    EXPECT_FALSE(WordQueue(SIZE_MAX / 2).isValid());  // bytes would wrap around
    ByteQueue largest(kMaxQueueBytes);
    EXPECT_TRUE(largest.isValid());
    // An invalid queue answers every call, as an empty queue of no room.
    ByteQueue none(0);
    uint8_t byte = 0;
    EXPECT_FALSE(none.write(&byte));
    EXPECT_FALSE(none.read(&byte));
    EXPECT_EQ(none.availableToRead(), 0u);
    EXPECT_EQ(none.availableToWrite(), 0u);
    EXPECT_EQ(none.getQuantumCount(), 0u);
}

TEST(MessageQueueTest, AWriteThatDoesNotFitAndAReadOfMoreThanIsThereFailWhole) {
    WordQueue queue(8);
    ASSERT_TRUE(queue.isValid());
    std::vector<uint32_t> in(9);
    std::iota(in.begin(), in.end(), 1);
    std::vector<uint32_t> out(9, 0);

    EXPECT_FALSE(queue.read(out.data(), 1));
    EXPECT_FALSE(queue.write(in.data(), 9));  // more than the ring: nothing written
    EXPECT_EQ(queue.availableToRead(), 0u);
    ASSERT_TRUE(queue.write(in.data(), 6));
    EXPECT_FALSE(queue.write(in.data(), 3));  // 2 fit, 3 do not: nothing written
    EXPECT_EQ(queue.availableToWrite(), 2u);
    EXPECT_FALSE(queue.read(out.data(), 7));  // 6 are there: nothing read
    ASSERT_TRUE(queue.read(out.data(), 6));
    EXPECT_EQ(std::vector<uint32_t>(out.begin(), out.begin() + 6),
              std::vector<uint32_t>(in.begin(), in.begin() + 6));
    EXPECT_EQ(queue.availableToWrite(), 8u);
}

TEST(MessageQueueTest, DataSurvivesManyLapsOfARingOfNoPowerOfTwo) {
    MessageQueue<uint16_t, kSynchronizedReadWrite> queue(7);
    ASSERT_TRUE(queue.isValid());
    uint16_t next = 0;
    uint16_t expected = 0;
    // Runs of 1 to 7 messages in and out, so that every offset meets every run length.
    for (int round = 0; round < 200; ++round) {
        const size_t n = size_t(round % 7) + 1;
        std::vector<uint16_t> run(n);
        for (auto& value : run) value = next++;
        ASSERT_TRUE(queue.write(run.data(), n)) << "round " << round;
        std::vector<uint16_t> back(n);
        ASSERT_TRUE(queue.read(back.data(), n)) << "round " << round;
        for (uint16_t value : back) ASSERT_EQ(value, expected++) << "round " << round;
    }
}

TEST(MessageQueueTest, ATransactionAcrossTheRingsEndHasTwoRegionsCommittedOnce) {
    WordQueue queue(8);
    ASSERT_TRUE(queue.isValid());
    uint32_t filler[6] = {};
    ASSERT_TRUE(queue.write(filler, 6));
    ASSERT_TRUE(queue.read(filler, 6));  // both positions at 6

    WordQueue::MemTransaction tx;
    ASSERT_TRUE(queue.beginWrite(5, &tx));
    const auto& first = tx.getFirstRegion();
    const auto& second = tx.getSecondRegion();
    EXPECT_EQ(first.getLength(), 2u);
    EXPECT_EQ(second.getLength(), 3u);
    EXPECT_EQ(first.getLengthInBytes(), 8u);
    EXPECT_EQ(second.getAddress() + 6, first.getAddress());  // the ring's slots 6 and 0
    for (uint32_t i = 0; i < 5; ++i) *tx.getSlot(i) = 100 + i;
    EXPECT_EQ(tx.getSlot(5), nullptr);
    EXPECT_EQ(queue.availableToRead(), 0u);  // nothing is there before the commit
    ASSERT_TRUE(queue.commitWrite(5));
    EXPECT_EQ(queue.availableToRead(), 5u);

    WordQueue::MemTransaction rx;
    ASSERT_TRUE(queue.beginRead(5, &rx));
    EXPECT_EQ(rx.getFirstRegion().getAddress(), first.getAddress());
    uint32_t out[5] = {};
    EXPECT_FALSE(rx.copyFrom(out, 1, 5));  // beyond the transaction
    EXPECT_FALSE(rx.copyFrom(nullptr, 0, 1));
    ASSERT_TRUE(rx.copyFrom(out, 1, 4));
    EXPECT_EQ(out[0], 101u);
    EXPECT_EQ(out[3], 104u);
    ASSERT_TRUE(rx.copyFrom(out, 0, 5));
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(out[i], 100 + i);
    ASSERT_TRUE(queue.commitRead(5));
    EXPECT_EQ(queue.availableToRead(), 0u);
    EXPECT_FALSE(queue.commitRead(1));  // nothing left to give back

    // More than there is room for: no regions, and nothing to commit into.
    ASSERT_TRUE(queue.write(filler, 4));
    ASSERT_FALSE(queue.beginWrite(5, &tx));
    EXPECT_EQ(tx.getFirstRegion().getAddress(), nullptr);
    EXPECT_EQ(tx.getSecondRegion().getLength(), 0u);
    EXPECT_FALSE(queue.commitWrite(5));
    ASSERT_FALSE(queue.beginRead(5, &rx));
    EXPECT_EQ(rx.getFirstRegion().getAddress(), nullptr);
}

TEST(MessageQueueTest, CopyToFillsBothRegionsFromAnyStartSlot) {
    ByteQueue queue(8);
    uint8_t skip[5] = {};
    ASSERT_TRUE(queue.write(skip, 5));
    ASSERT_TRUE(queue.read(skip, 5));
    ByteQueue::MemTransaction tx;
    ASSERT_TRUE(queue.beginWrite(6, &tx));
    const uint8_t head[2] = {'a', 'b'};
    const uint8_t tail[4] = {'c', 'd', 'e', 'f'};
    ASSERT_TRUE(tx.copyTo(tail, 2, 4));  // slots 2..5: the end of the first region and beyond
    ASSERT_TRUE(tx.copyTo(head, 0, 2));
    EXPECT_FALSE(tx.copyTo(head, 5, 2));
    ASSERT_TRUE(queue.commitWrite(6));
    uint8_t out[7] = {};
    ASSERT_TRUE(queue.read(out, 6));
    EXPECT_STREQ(reinterpret_cast<char*>(out), "abcdef");
}

TEST(MessageQueueTest, BlockingCallsRefuseWhatCouldNeverSucceedAtOnce) {
    ByteQueue withoutFlag(16);
    uint8_t data[32] = {};
    EXPECT_FALSE(withoutFlag.readBlocking(data, 1, 1, 2, kBoundNs));  // no event flag
    ByteQueue queue(16, true);
    EXPECT_FALSE(queue.writeBlocking(data, 17, 1, 2, kBoundNs));  // larger than the ring
    EXPECT_FALSE(queue.readBlocking(data, 17, 1, 2, kBoundNs));
    EXPECT_FALSE(queue.writeBlocking(data, 1, 0, 2, kBoundNs));  // nothing to wait for
    EXPECT_FALSE(queue.readBlocking(data, 1, 1, 0, kBoundNs));
}

TEST(MessageQueueTest, ABlockingReadOfAnEmptyQueueTimesOut) {
    ByteQueue queue(16, true);
    uint8_t byte = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(queue.readBlocking(&byte, 1, 1'000'000));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1));
    ASSERT_TRUE(queue.write(&byte, 1));
    // Data written without a wake is found by the attempt before any wait.
    EXPECT_TRUE(queue.readBlocking(&byte, 1, 1'000'000));
}

TEST(MessageQueueTest, AWriterAndAReaderThreadPassMoreThanTheRingHoldsThroughTheEventFlag) {
    constexpr uint32_t kDataReady = 1 << 0;
    constexpr uint32_t kDataConsumed = 1 << 1;
    constexpr size_t kTotal = 64 * 1024;
    ByteQueue queue(256, true);
    ASSERT_TRUE(queue.isValid());
    EventFlag* flag = nullptr;
    ASSERT_EQ(EventFlag::createEventFlag(queue.getEventFlagWord(), &flag), ::android::NO_ERROR);

    // A reader waiting for 96 bytes leaves more than 160 free: the writer's 150 always fit then,
    // so neither waits for the other for ever.
    std::thread writer([&] {
        std::vector<uint8_t> chunk(150);
        for (size_t sent = 0; sent < kTotal; sent += chunk.size()) {
            for (size_t i = 0; i < chunk.size(); ++i) chunk[i] = uint8_t((sent + i) * 7);
            const size_t n = std::min(chunk.size(), kTotal - sent);
            ASSERT_TRUE(queue.writeBlocking(chunk.data(), n, kDataConsumed, kDataReady, kBoundNs,
                                            flag));
        }
    });
    std::vector<uint8_t> got(kTotal);
    for (size_t have = 0; have < kTotal;) {
        const size_t n = std::min<size_t>(96, kTotal - have);
        ASSERT_TRUE(queue.readBlocking(got.data() + have, n, kDataConsumed, kDataReady, kBoundNs,
                                       flag));
        have += n;
    }
    writer.join();
    for (size_t i = 0; i < kTotal; ++i) ASSERT_EQ(got[i], uint8_t(i * 7)) << "byte " << i;
    EventFlag::deleteEventFlag(&flag);
}

TEST(MessageQueueTest, TheQueuesOwnEventFlagServesTheCallsWithoutBitsOfTheirOwn) {
    WordQueue queue(4, true);
    std::thread reader([&] {
        uint32_t out[3] = {};
        ASSERT_TRUE(queue.readBlocking(out, 3, kBoundNs));
        EXPECT_EQ(out[2], 33u);
    });
    const uint32_t in[3] = {11, 22, 33};
    ASSERT_TRUE(queue.writeBlocking(in, 3, kBoundNs));
    reader.join();
}

}  // namespace
