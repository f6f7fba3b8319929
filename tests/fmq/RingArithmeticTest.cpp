// Where runs of messages lie in the ring, and which positions a reader may trust.
#include <fmq/QueueMapping.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using ::android::hardware::details::readableBytes;
using ::android::hardware::details::ringSpan;

constexpr uint64_t kTop = std::numeric_limits<uint64_t>::max();

struct SpanCase {
    const char* name;
    uint64_t position;
    size_t ringBytes;
    size_t quantum;
    size_t count;
    size_t firstOffset;
    size_t firstCount;
    size_t secondCount;
};

TEST(RingArithmeticTest, RunsOfMessagesWrapAtTheRingsEndWithoutSplittingAMessage) {
    const SpanCase cases[] = {
            {"from the start", 0, 16, 1, 4, 0, 4, 0},
            {"up to the end exactly", 12, 16, 1, 4, 12, 4, 0},
            {"across the end", 14, 16, 1, 4, 14, 2, 2},
            {"one lap on", 16, 16, 1, 4, 0, 4, 0},
            {"many laps on", 16 * 1000 + 3, 16, 1, 2, 3, 2, 0},
            {"the whole ring from the middle", 8, 16, 1, 16, 8, 8, 8},
            {"wide messages across the end", 8, 16, 4, 3, 8, 2, 1},
            {"wide messages filling the ring", 4, 16, 4, 4, 4, 3, 1},
            {"nothing", 5, 16, 4, 0, 5, 0, 0},
            // A position that is no multiple of the message (only a broken peer writes one): the
            // first region stops before the end, the second starts at the ring's start.
            {"misaligned position", 6, 16, 4, 3, 6, 2, 1},
            {"ring of no power of two", 20, 12, 4, 3, 8, 1, 2},
            {"positions near 2^64", kTop - 1, 16, 1, 4, 14, 2, 2},
    };
    for (const SpanCase& c : cases) {
        SCOPED_TRACE(c.name);
        const auto span = ringSpan(c.position, c.ringBytes, c.quantum, c.count);
        EXPECT_EQ(span.firstOffset, c.firstOffset);
        EXPECT_EQ(span.firstCount, c.firstCount);
        EXPECT_EQ(span.secondCount, c.secondCount);
        // Whatever the position, both regions lie in the ring.
        EXPECT_LE(span.firstOffset + span.firstCount * c.quantum, c.ringBytes);
        EXPECT_LE(span.secondCount * c.quantum, c.ringBytes);
    }
}

struct ReadableCase {
    const char* name;
    uint64_t read;
    uint64_t write;
    size_t ringBytes;
    int64_t readable;
};

TEST(RingArithmeticTest, AReaderTrustsOnlyPositionsASynchronizedWriterCanLeave) {
    const ReadableCase cases[] = {
            {"empty", 0, 0, 16, 0},
            {"full", 0, 16, 16, 16},
            {"partly filled, laps on", 1000, 1010, 16, 10},
            {"across 2^64", kTop - 3, 4, 16, 8},
            {"full across 2^64", kTop - 7, 8, 16, 16},
            {"writer a byte beyond full", 0, 17, 16, -1},
            {"writer behind the reader", 5, 4, 16, -1},
            {"writer far behind across 2^64", 4, kTop - 3, 16, -1},
    };
    for (const ReadableCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(readableBytes(c.read, c.write, c.ringBytes), c.readable);
    }
}

}  // namespace
