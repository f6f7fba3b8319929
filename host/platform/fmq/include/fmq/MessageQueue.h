// Host stand-in for libfmq's MessageQueue: a ring of messages of type T in shared memory, with
// its read and write positions beside it, one reader and one writer (the synchronized flavour:
// a write that does not fit fails, so does a read of more than there is). The side that makes a
// queue owns its memory (a memfd) and hands out its descriptor; the other side maps the
// descriptor it was given, after checking all of it: a descriptor that does not describe a queue
// of T gives a queue whose isValid() is false.
#pragma once

#include <fmq/EventFlag.h>
#include <fmq/QueueMapping.h>
#include <hidl/MQDescriptor.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace android {
namespace hardware {

template <typename T, MQFlavor flavor>
struct MessageQueue {
    static_assert(flavor == kSynchronizedReadWrite,
                  "the host's message queues are of the synchronized flavour");
    static_assert(std::is_trivially_copyable<T>::value, "messages are copied as bytes");
    typedef MQDescriptor<T, flavor> Descriptor;

    // Maps the queue a peer described (the descriptor is copied: the caller keeps its own).
    MessageQueue(const Descriptor& Desc, bool resetPointers = true) : mDesc(Desc) {
        initMemory(resetPointers);
    }
    // A new queue of `numElementsInQueue` messages in memory of its own.
    MessageQueue(size_t numElementsInQueue, bool configureEventFlagWord = false) {
        if (numElementsInQueue == 0 || numElementsInQueue > details::kMaxQueueBytes / sizeof(T)) {
            return;
        }
        const size_t bytes = numElementsInQueue * sizeof(T);
        native_handle_t* handle = details::createQueueMemory(bytes, configureEventFlagWord);
        if (handle == nullptr) return;
        Descriptor made(bytes, handle, sizeof(T), configureEventFlagWord);
        mDesc = made;
        initMemory(true);
    }
    ~MessageQueue() {
        if (mEventFlag != nullptr) EventFlag::deleteEventFlag(&mEventFlag);
    }
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    bool isValid() const { return mMemory.isMapped(); }
    size_t getQuantumSize() const { return mDesc.getQuantum(); }
    size_t getQuantumCount() const {
        return mDesc.getQuantum() == 0 ? 0 : mDesc.getSize() / mDesc.getQuantum();
    }
    size_t availableToWrite() const {
        const int64_t readable = readableNow();
        return readable < 0 ? 0 : (mMemory.ringBytes() - size_t(readable)) / sizeof(T);
    }
    size_t availableToRead() const {
        const int64_t readable = readableNow();
        return readable < 0 ? 0 : size_t(readable) / sizeof(T);
    }

    const Descriptor* getDesc() const { return &mDesc; }
    // The event-flag word in the queue's memory, or null when it has none.
    std::atomic<uint32_t>* getEventFlagWord() const { return mMemory.eventFlagWord(); }

    // A run of messages in the ring.
    struct MemRegion {
        MemRegion() : MemRegion(nullptr, 0) {}
        MemRegion(T* base, size_t size) : address(base), length(size) {}
        T* getAddress() const { return address; }
        size_t getLength() const { return length; }
        size_t getLengthInBytes() const { return length * sizeof(T); }

      private:
        T* address;
        size_t length;
    };

    // Where a read or write of a number of messages lies: up to the ring's end, then from its
    // start. No message is split between the two.
    struct MemTransaction {
        MemTransaction() = default;
        MemTransaction(const MemRegion& regionFirst, const MemRegion& regionSecond)
            : first(regionFirst), second(regionSecond) {}

        // The idx-th message of the transaction, or null beyond it.
        T* getSlot(size_t idx) {
            if (idx >= first.getLength() + second.getLength()) return nullptr;
            if (idx < first.getLength()) return first.getAddress() + idx;
            return second.getAddress() + (idx - first.getLength());
        }
        bool copyTo(const T* data, size_t startIdx, size_t nMessages = 1) {
            return data != nullptr && copy(startIdx, nMessages, [&](T* slot, size_t done, size_t n) {
                       memcpy(slot, data + done, n * sizeof(T));
                   });
        }
        bool copyFrom(T* data, size_t startIdx, size_t nMessages = 1) {
            return data != nullptr && copy(startIdx, nMessages, [&](T* slot, size_t done, size_t n) {
                       memcpy(data + done, slot, n * sizeof(T));
                   });
        }
        const MemRegion& getFirstRegion() const { return first; }
        const MemRegion& getSecondRegion() const { return second; }

      private:
        template <typename Copy>
        bool copy(size_t startIdx, size_t nMessages, Copy&& each) {
            const size_t total = first.getLength() + second.getLength();
            if (startIdx > total || nMessages > total - startIdx) return false;
            size_t done = 0;
            if (startIdx < first.getLength()) {
                done = std::min(nMessages, first.getLength() - startIdx);
                if (done > 0) each(first.getAddress() + startIdx, 0, done);
            }
            if (nMessages > done) {
                const size_t secondStart = startIdx + done - first.getLength();
                each(second.getAddress() + secondStart, done, nMessages - done);
            }
            return true;
        }

        MemRegion first;
        MemRegion second;
    };

    bool beginWrite(size_t nMessages, MemTransaction* result) const {
        *result = MemTransaction();
        if (!isValid() || nMessages > availableToWrite()) return false;
        *result = transaction(mMemory.writePosition()->load(std::memory_order_relaxed), nMessages);
        return true;
    }
    bool commitWrite(size_t nMessages) {
        if (!isValid() || nMessages > availableToWrite()) return false;
        std::atomic<uint64_t>* position = mMemory.writePosition();
        position->store(position->load(std::memory_order_relaxed) + nMessages * sizeof(T),
                        std::memory_order_release);
        return true;
    }
    bool beginRead(size_t nMessages, MemTransaction* result) const {
        *result = MemTransaction();
        if (!isValid()) return false;
        const uint64_t read = mMemory.readPosition()->load(std::memory_order_relaxed);
        const uint64_t written = mMemory.writePosition()->load(std::memory_order_acquire);
        const int64_t readable = details::readableBytes(read, written, mMemory.ringBytes());
        if (readable < 0) {
            // Positions no writer of this queue could have left: what was there is lost.
            mMemory.readPosition()->store(written, std::memory_order_release);
            return false;
        }
        if (nMessages > size_t(readable) / sizeof(T)) return false;
        *result = transaction(read, nMessages);
        return true;
    }
    bool commitRead(size_t nMessages) {
        if (!isValid() || nMessages > availableToRead()) return false;
        std::atomic<uint64_t>* position = mMemory.readPosition();
        position->store(position->load(std::memory_order_relaxed) + nMessages * sizeof(T),
                        std::memory_order_release);
        return true;
    }

    bool write(const T* data) { return write(data, 1); }
    bool read(T* data) { return read(data, 1); }
    bool write(const T* data, size_t count) {
        MemTransaction tx;
        return beginWrite(count, &tx) && tx.copyTo(data, 0, count) && commitWrite(count);
    }
    bool read(T* data, size_t count) {
        MemTransaction tx;
        return beginRead(count, &tx) && tx.copyFrom(data, 0, count) && commitRead(count);
    }

    // Writes all `count` messages, waiting on `readNotification` while they do not fit; wakes
    // `writeNotification` once written. False at once without an event flag, without a
    // readNotification or for more than the queue holds; false when the time runs out.
    bool writeBlocking(const T* data, size_t count, uint32_t readNotification,
                       uint32_t writeNotification, int64_t timeOutNanos = 0,
                       EventFlag* evFlag = nullptr) {
        return blocking([&] { return write(data, count); }, count, readNotification,
                        writeNotification, timeOutNanos, evFlag);
    }
    bool writeBlocking(const T* data, size_t count, int64_t timeOutNanos = 0) {
        return writeBlocking(data, count, FMQ_NOT_FULL, FMQ_NOT_EMPTY, timeOutNanos);
    }
    // Reads all `count` messages, waiting on `writeNotification` while fewer are there; wakes
    // `readNotification` once read.
    bool readBlocking(T* data, size_t count, uint32_t readNotification, uint32_t writeNotification,
                      int64_t timeOutNanos = 0, EventFlag* evFlag = nullptr) {
        return blocking([&] { return read(data, count); }, count, writeNotification,
                        readNotification, timeOutNanos, evFlag);
    }
    bool readBlocking(T* data, size_t count, int64_t timeOutNanos = 0) {
        return readBlocking(data, count, FMQ_NOT_FULL, FMQ_NOT_EMPTY, timeOutNanos);
    }

  private:
    // The bits the blocking calls without bits of their own use.
    enum DefaultEventNotification : uint32_t { FMQ_NOT_FULL = 0x01, FMQ_NOT_EMPTY = 0x02 };

    void initMemory(bool resetPointers) {
        if (mDesc.getQuantum() != sizeof(T) || mDesc.getFlags() != int32_t(flavor)) return;
        if (!mMemory.map(mDesc.grantors(), mDesc.handle(), sizeof(T))) return;
        if (resetPointers) {
            mMemory.readPosition()->store(0, std::memory_order_release);
            mMemory.writePosition()->store(0, std::memory_order_release);
        }
        if (mMemory.eventFlagWord() != nullptr) {
            EventFlag::createEventFlag(mMemory.eventFlagWord(), &mEventFlag);
        }
    }

    // Readable bytes now; -1 for an invalid queue or positions no writer could have left.
    int64_t readableNow() const {
        if (!isValid()) return -1;
        return details::readableBytes(mMemory.readPosition()->load(std::memory_order_acquire),
                                      mMemory.writePosition()->load(std::memory_order_acquire),
                                      mMemory.ringBytes());
    }

    MemTransaction transaction(uint64_t position, size_t nMessages) const {
        const details::RingSpan span =
                details::ringSpan(position, mMemory.ringBytes(), sizeof(T), nMessages);
        T* first = reinterpret_cast<T*>(mMemory.ring() + span.firstOffset);
        T* start = reinterpret_cast<T*>(mMemory.ring());
        return MemTransaction(MemRegion(first, span.firstCount),
                              MemRegion(span.secondCount > 0 ? start : nullptr, span.secondCount));
    }

    // Tries `attempt`; while it fails, waits for `awaited` and tries again, within the time.
    template <typename Attempt>
    bool blocking(Attempt&& attempt, size_t count, uint32_t awaited, uint32_t done,
                  int64_t timeOutNanos, EventFlag* evFlag) {
        if (evFlag == nullptr) evFlag = mEventFlag;
        if (evFlag == nullptr || awaited == 0 || count > getQuantumCount()) return false;
        using Clock = std::chrono::steady_clock;
        const Clock::time_point deadline = Clock::now() + std::chrono::nanoseconds(timeOutNanos);
        bool result = attempt();
        while (!result) {
            int64_t left = 0;  // for ever
            if (timeOutNanos != 0) {
                left = std::max<int64_t>(1, std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                    deadline - Clock::now())
                                                    .count());
            }
            uint32_t state = 0;
            // A wait returns at once for a notification that came before it.
            const status_t status = evFlag->wait(awaited, &state, left, true);
            if (status != NO_ERROR) {
                // The time ran out: one last try, for a notification that came just then.
                result = status == TIMED_OUT && attempt();
                break;
            }
            result = attempt();
        }
        if (result && done != 0) evFlag->wake(done);
        return result;
    }

    Descriptor mDesc;
    details::QueueMapping mMemory;
    EventFlag* mEventFlag = nullptr;
};

}  // namespace hardware
}  // namespace android
