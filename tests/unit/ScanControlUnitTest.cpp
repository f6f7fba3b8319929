// ScanControl on its own: runs take turns in the order they started, a stop waits for the run's
// thread only outside client code, the release always follows the run's last step, and a stop cuts
// the poll wait short. Linked with the device's poll wait, so the waits here are real (and cut
// short long before their length).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "frontend/ScanControl.h"

using ::android::hardware::tv::tuner::V1_0::implementation::ScanControl;
using Clock = std::chrono::steady_clock;

namespace {

bool eventually(const std::function<bool()>& cond) {
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (!cond()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

// A log of what happened, in order, across threads.
class Journal {
  public:
    void add(std::string entry) {
        std::lock_guard<std::mutex> guard(mLock);
        mEntries.push_back(std::move(entry));
    }
    std::vector<std::string> entries() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mEntries;
    }

  private:
    mutable std::mutex mLock;
    std::vector<std::string> mEntries;
};

// What a test run does on its thread: waits until the test opens its gate (or the run is
// stopped), journaling its start and end.
struct TestRun {
    ScanControl* control;
    uint64_t generation;
    Journal* journal;
    std::atomic<bool>* gate;
};

void* runEntry(void* arg) {
    std::unique_ptr<TestRun> run(static_cast<TestRun*>(arg));
    ScanControl::ClientCodeScope clientCode;
    ScanControl::Turn turn(*run->control, run->generation);
    const std::string name = std::to_string(run->generation);
    run->journal->add("start " + name);
    while (!run->gate->load() && run->control->isRunning(run->generation)) {
        std::this_thread::yield();
    }
    run->journal->add("end " + name);
    return nullptr;
}

class ScanControlUnitTest : public ::testing::Test {
  protected:
    uint64_t start() {
        return mControl.start(runEntry, [this](uint64_t g) {
            return std::make_unique<TestRun>(TestRun{&mControl, g, &mJournal, &mGate});
        });
    }
    void waitForEntry(const std::string& entry) {
        ASSERT_TRUE(eventually([&] {
            for (const std::string& e : mJournal.entries()) {
                if (e == entry) return true;
            }
            return false;
        })) << entry;
    }
    void TearDown() override {
        mGate = true;
        mControl.stop([] {});  // waits for every run's thread
    }

    ScanControl mControl;
    Journal mJournal;
    std::atomic<bool> mGate{false};
};

TEST_F(ScanControlUnitTest, RunsTakeTurnsInTheOrderTheyStarted) {
    const uint64_t first = start();
    waitForEntry("start 1");
    const uint64_t second = start();
    const uint64_t third = start();
    EXPECT_EQ(first, 1u);
    EXPECT_EQ(second, 2u);
    EXPECT_EQ(third, 3u);
    // Each start ended the run before; only the newest is to go on.
    EXPECT_FALSE(mControl.isRunning(first));
    EXPECT_FALSE(mControl.isRunning(second));
    EXPECT_TRUE(mControl.isRunning(third));
    mGate = true;
    waitForEntry("end 3");
    EXPECT_EQ(mJournal.entries(), (std::vector<std::string>{"start 1", "end 1", "start 2", "end 2",
                                                            "start 3", "end 3"}));
}

TEST_F(ScanControlUnitTest, AStopWaitsForTheRunThenReleases) {
    start();
    waitForEntry("start 1");
    mControl.stop([this] { mJournal.add("release"); });
    EXPECT_FALSE(mControl.anyRunning());
    EXPECT_EQ(mJournal.entries(), (std::vector<std::string>{"start 1", "end 1", "release"}));
}

TEST_F(ScanControlUnitTest, AStopFromClientCodeLeavesTheReleaseToTheRunsThread) {
    start();
    waitForEntry("start 1");
    start();
    {
        ScanControl::ClientCodeScope clientCode;
        EXPECT_TRUE(ScanControl::runningClientCode());
        mControl.stop([this] { mJournal.add("release"); });
    }
    EXPECT_FALSE(ScanControl::runningClientCode());
    // Both runs were started before the stop: the release follows the second one's end.
    waitForEntry("release");
    EXPECT_EQ(mJournal.entries(),
              (std::vector<std::string>{"start 1", "end 1", "start 2", "end 2", "release"}));
}

TEST_F(ScanControlUnitTest, AStopWithNoRunReleasesAtOnce) {
    int releases = 0;
    mControl.stop([&] { ++releases; });
    {
        ScanControl::ClientCodeScope clientCode;
        mControl.stop([&] { ++releases; });
    }
    EXPECT_EQ(releases, 2);
}

TEST_F(ScanControlUnitTest, AStopCutsThePollWaitShort) {
    const uint64_t run = start();
    auto waited = std::async(std::launch::async, [&] {
        const auto begin = Clock::now();
        mControl.waitBeforePoll(run, 10 * 1000 * 1000);
        return Clock::now() - begin;
    });
    EXPECT_EQ(waited.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout)
            << "the wait ended while its run was still to go on";
    mGate = true;
    mControl.stop([] {});
    EXPECT_LT(waited.get(), std::chrono::seconds(5));
    // A run that no longer goes on does not wait at all.
    const auto begin = Clock::now();
    mControl.waitBeforePoll(run, 10 * 1000 * 1000);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(ScanControlUnitTest, ARunEndingByItselfNeverEndsANewerOne) {
    const uint64_t first = start();
    const uint64_t second = start();
    mControl.endRun(first);
    EXPECT_TRUE(mControl.isRunning(second));
    int actions = 0;
    mControl.ifRunning(first, [&] { ++actions; });
    mControl.ifRunning(second, [&] { ++actions; });
    EXPECT_EQ(actions, 1);
    mControl.endRun(second);
    EXPECT_FALSE(mControl.anyRunning());
    mControl.ifRunning(second, [&] { ++actions; });
    EXPECT_EQ(actions, 1);
}

}  // namespace
