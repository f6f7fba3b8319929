// The event flag's word: what wake sets, what wait returns and clears, and its refusals.
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using ::android::BAD_VALUE;
using ::android::NO_ERROR;
using ::android::TIMED_OUT;
using ::android::hardware::EventFlag;

constexpr int64_t kBoundNs = 10'000'000'000;

class EventFlagTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(EventFlag::createEventFlag(&mWord, &mFlag), NO_ERROR); }
    void TearDown() override { EXPECT_EQ(EventFlag::deleteEventFlag(&mFlag), NO_ERROR); }
    std::atomic<uint32_t> mWord{0};
    EventFlag* mFlag = nullptr;
};

TEST_F(EventFlagTest, AWaitTakesTheAwaitedBitsAlreadySetAndLeavesTheOthers) {
    ASSERT_EQ(mFlag->wake(0b0101), NO_ERROR);
    EXPECT_EQ(mWord.load(), 0b0101u);
    uint32_t state = 0;
    ASSERT_EQ(mFlag->wait(0b0110, &state, kBoundNs), NO_ERROR);
    EXPECT_EQ(state, 0b0100u);
    EXPECT_EQ(mWord.load(), 0b0001u);  // a bit nobody waited for stays for its waiter
}

TEST_F(EventFlagTest, AWaitWithNothingSetTimesOutWithNoState) {
    ASSERT_EQ(mFlag->wake(0b1000), NO_ERROR);
    uint32_t state = 99;
    EXPECT_EQ(mFlag->wait(0b0001, &state, 1'000'000), TIMED_OUT);
    EXPECT_EQ(state, 0u);
    EXPECT_EQ(mWord.load(), 0b1000u);
    EXPECT_EQ(mFlag->wait(0b0001, &state, -1), TIMED_OUT);  // time already over
}

TEST_F(EventFlagTest, AThreadAsleepOnABitWakesForItAndNotForOthers) {
    uint32_t state = 0;
    std::atomic<bool> returned{false};
    std::thread waiter([&] {
        EXPECT_EQ(mFlag->wait(0b0010, &state, kBoundNs), NO_ERROR);
        returned = true;
    });
    ASSERT_EQ(mFlag->wake(0b0001), NO_ERROR);  // not the awaited bit
    ASSERT_EQ(mFlag->wake(0b0010), NO_ERROR);
    waiter.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(state, 0b0010u);
    EXPECT_EQ(mWord.load(), 0b0001u);
}

TEST_F(EventFlagTest, BadArgumentsAreRefused) {
    uint32_t state = 0;
    EXPECT_EQ(mFlag->wait(0, &state, kBoundNs), BAD_VALUE);
    EXPECT_EQ(mFlag->wait(1, nullptr, kBoundNs), BAD_VALUE);
    EXPECT_EQ(mFlag->wake(0), NO_ERROR);  // nothing to set
    EventFlag* none = reinterpret_cast<EventFlag*>(1);
    EXPECT_EQ(EventFlag::createEventFlag(static_cast<std::atomic<uint32_t>*>(nullptr), &none),
              BAD_VALUE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(EventFlag::createEventFlag(-1, 0, &none), BAD_VALUE);
    EXPECT_EQ(EventFlag::createEventFlag(&mWord, nullptr), BAD_VALUE);
    EXPECT_EQ(EventFlag::deleteEventFlag(&none), BAD_VALUE);
    EXPECT_EQ(EventFlag::deleteEventFlag(nullptr), BAD_VALUE);
}

TEST(EventFlagMappedTest, AFlagOverAQueuesMemoryMapsTheSameWord) {
    using Queue =
            ::android::hardware::MessageQueue<uint8_t, ::android::hardware::kSynchronizedReadWrite>;
    Queue queue(64, true);
    const auto& word = queue.getDesc()->grantors()[3];
    EventFlag* mapped = nullptr;
    ASSERT_EQ(EventFlag::createEventFlag(queue.getDesc()->handle()->data[0], off_t(word.offset),
                                         &mapped),
              NO_ERROR);
    ASSERT_EQ(mapped->wake(0b100), NO_ERROR);
    EXPECT_EQ(queue.getEventFlagWord()->load(), 0b100u);
    EXPECT_EQ(EventFlag::deleteEventFlag(&mapped), NO_ERROR);
    EXPECT_EQ(mapped, nullptr);
}

}  // namespace
