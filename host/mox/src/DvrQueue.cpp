#include "DvrQueue.h"

#include <cstring>
#include <utility>

namespace android::hardware::tv::tuner::V1_0::implementation {
namespace {

// Statuses a DVR keeps for its next delivery.
constexpr size_t kMaxPendingStatuses = 64;

}  // namespace

DvrQueue::DvrQueue(DvrType type, size_t bytes, sp<IDvrCallback> callback)
    : mType(type), mQueue(std::make_unique<Queue>(bytes, true)), mCallback(std::move(callback)) {
    if (mQueue->isValid()) EventFlag::createEventFlag(mQueue->getEventFlagWord(), &mEventFlag);
}

DvrQueue::~DvrQueue() {
    if (mEventFlag != nullptr) EventFlag::deleteEventFlag(&mEventFlag);
}

bool DvrQueue::isValid() const {
    return mQueue->isValid() && mEventFlag != nullptr;
}

Result DvrQueue::configure(const DvrSettings& settings) {
    const size_t capacity = mQueue->getQuantumCount();
    if (mType == DvrType::RECORD) {
        if (settings.getDiscriminator() != DvrSettings::hidl_discriminator::record)
            return Result::INVALID_ARGUMENT;
        const RecordSettings& r = settings.record();
        if (r.dataFormat != DataFormat::TS || r.packetSize != kPacketSize ||
            r.lowThreshold >= r.highThreshold || r.highThreshold > capacity) {
            return Result::INVALID_ARGUMENT;
        }
        mRecordTracker.emplace(r.lowThreshold, r.highThreshold, static_cast<uint8_t>(r.statusMask));
    } else {
        if (settings.getDiscriminator() != DvrSettings::hidl_discriminator::playback)
            return Result::INVALID_ARGUMENT;
        const PlaybackSettings& p = settings.playback();
        if (p.dataFormat != DataFormat::TS || p.packetSize != kPacketSize ||
            p.lowThreshold >= p.highThreshold || p.highThreshold > capacity) {
            return Result::INVALID_ARGUMENT;
        }
        mPlaybackMask = p.statusMask;
        mLow = p.lowThreshold;
        mHigh = p.highThreshold;
        mPlaybackLevel.reset();
    }
    mConfigured = true;
    return Result::SUCCESS;
}

bool DvrQueue::record(const uint8_t* data, size_t size) {
    if (stage(data, size)) return true;
    ++mRecordDrops;
    if (mRecordTracker && mRunning) reportRecord(mRecordTracker->refused());
    return false;
}

bool DvrQueue::stage(const uint8_t* data, size_t size) {
    if (!mRunning || mType != DvrType::RECORD || !mRecordTracker) return false;
    if (mStaged + size > mRoom) refreshRoom();
    if (mStaged + size > mRoom || !mTransaction.copyTo(data, mStaged, size)) return false;
    mStaged += size;
    reportRecord(mRecordTracker->filled(recordFill()));
    return true;
}

void DvrQueue::commitStaged() {
    if (mStaged > 0 && mQueue->commitWrite(mStaged)) {
        mFillSeen += mStaged;
        mRecorded = true;
    }
    mStaged = 0;
    mRoom = 0;  // the transaction began where the queue's end was
}

void DvrQueue::refreshRoom() {
    commitStaged();
    mRoom = mQueue->availableToWrite();
    mFillSeen = mQueue->getQuantumCount() - mRoom;
    if (mRoom == 0 || !mQueue->beginWrite(mRoom, &mTransaction)) mRoom = 0;
}

void DvrQueue::recordDrained() {
    if (!mRecordTracker) return;
    refreshRoom();
    reportRecord(mRecordTracker->filled(recordFill()));
}

void DvrQueue::signalRecorded() {
    commitStaged();
    if (!mRecorded) return;
    mRecorded = false;
    mEventFlag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY));
}

void DvrQueue::reportRecord(uint8_t bits) {
    if (bits == 0) return;
    for (uint8_t b = 1; b != 0 && b <= 0x08; b <<= 1) {
        if ((bits & b) && mPending.recordStatuses.size() < kMaxPendingStatuses)
            mPending.recordStatuses.push_back(static_cast<DemuxFilterStatus>(b));
    }
}

DvrQueue::PlayRound DvrQueue::beginPlay(size_t maxPackets) {
    PlayRound round;
    if (mType != DvrType::PLAYBACK || !mRunning) return round;
    // The level the client's writes left, before this round makes room: a client that fills the
    // queue hears SPACE_FULL even when the round empties it.
    playbackLevel();
    const size_t packets = std::min(maxPackets, mQueue->availableToRead() / kPacketSize);
    Queue::MemTransaction tx;
    if (packets == 0 || !mQueue->beginRead(packets * kPacketSize, &tx)) return round;
    const auto& first = tx.getFirstRegion();
    const auto& second = tx.getSecondRegion();
    round.first = first.getAddress();
    round.firstPackets = first.getLength() / kPacketSize;
    const size_t cut = first.getLength() % kPacketSize;
    size_t secondSkip = 0;
    if (cut > 0) {
        std::memcpy(mStraddling.data(), first.getAddress() + first.getLength() - cut, cut);
        std::memcpy(mStraddling.data() + cut, second.getAddress(), kPacketSize - cut);
        round.straddling = mStraddling.data();
        secondSkip = kPacketSize - cut;
    }
    if (second.getLength() > secondSkip) {
        round.second = second.getAddress() + secondSkip;
        round.secondPackets = (second.getLength() - secondSkip) / kPacketSize;
    }
    round.packets = packets;
    return round;
}

void DvrQueue::endPlay(size_t packets) {
    if (packets > 0 && mQueue->commitRead(packets * kPacketSize))
        mEventFlag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_CONSUMED));
    playbackLevel();
}

void DvrQueue::awaitPlayback(int64_t timeoutNs) {
    uint32_t state = 0;
    mEventFlag->wait(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY), &state, timeoutNs,
                     false);
}

// The space left, as one of four levels (nothing between the thresholds); each change of level
// is reported once.
void DvrQueue::playbackLevel() {
    const size_t fill = mQueue->availableToRead();
    const size_t capacity = mQueue->getQuantumCount();
    PlaybackStatus level;
    if (fill == 0) {
        level = PlaybackStatus::SPACE_EMPTY;
    } else if (capacity - fill < kPacketSize) {
        level = PlaybackStatus::SPACE_FULL;
    } else if (fill >= mHigh) {
        level = PlaybackStatus::SPACE_ALMOST_FULL;
    } else if (fill <= mLow) {
        level = PlaybackStatus::SPACE_ALMOST_EMPTY;
    } else {
        return;
    }
    if (mPlaybackLevel == level) return;
    mPlaybackLevel = level;
    if ((mPlaybackMask & static_cast<uint32_t>(level)) != 0 &&
        mPending.playbackStatuses.size() < kMaxPendingStatuses) {
        mPending.playbackStatuses.push_back(level);
    }
}

DvrDelivery DvrQueue::take() {
    DvrDelivery out = std::move(mPending);
    mPending = DvrDelivery{};
    out.callback = mCallback;
    return out;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
