#include "FilterQueue.h"

#include <utility>

namespace android::hardware::tv::tuner::V1_0::implementation {

FilterQueue::FilterQueue(size_t queueBytes, size_t avMemoryBytes, sp<IFilterCallback> callback)
    : mQueue(std::make_unique<Queue>(queueBytes, true)), mCallback(std::move(callback)) {
    if (mQueue->isValid()) EventFlag::createEventFlag(mQueue->getEventFlagWord(), &mEventFlag);
    if (avMemoryBytes > 0) mAvMemory = std::make_shared<AvMemoryFile>(avMemoryBytes);
}

FilterQueue::~FilterQueue() {
    if (mEventFlag != nullptr) EventFlag::deleteEventFlag(&mEventFlag);
}

bool FilterQueue::isValid() const {
    return mQueue->isValid() && mEventFlag != nullptr && (!mAvMemory || mAvMemory->isValid());
}

mox::demux::AvRegion FilterQueue::avRegion() const {
    if (!mAvMemory) return {};
    return {mAvMemory->base(), mAvMemory->size()};
}

bool FilterQueue::write(const uint8_t* data, size_t size) {
    if (mRecordTarget != nullptr) return mRecordTarget->record(data, size);
    if (size > mQueue->availableToWrite() || !mQueue->write(data, size)) return false;
    mWritten = true;
    return true;
}

bool FilterQueue::writeRun(const uint8_t* data, size_t size) {
    if (mRecordTarget != nullptr) return mRecordTarget->stage(data, size);
    return write(data, size);  // its own queue counts nothing either way
}

void FilterQueue::signalWritten() {
    if (!mWritten) return;
    mWritten = false;
    mEventFlag->wake(static_cast<uint32_t>(DemuxQueueNotifyBits::DATA_READY));
}

size_t FilterQueue::fill() const {
    if (mRecordTarget != nullptr) return mRecordTarget->recordFill();
    return mQueue->availableToRead();
}

void FilterQueue::event(const mox::demux::FilterEvent& event) {
    const bool media =
            event.getDiscriminator() == DemuxFilterEvent::Event::hidl_discriminator::media;
    std::vector<DemuxFilterEvent::Event>& list = media ? mPending.media : mPending.events;
    if (mPending.events.size() + mPending.media.size() >= kMaxPendingEvents) {
        ++mDroppedEvents;
        return;
    }
    list.push_back(event);
    if (media) list.back().media().avMemory = hidl_handle(mAvMemory->handle());
}

void FilterQueue::status(DemuxFilterStatus status) {
    // A record filter's bytes go to its DVR, whose statuses tell of them; its own queue stays
    // empty and has nothing to report.
    if (mRecordTarget != nullptr) return;
    if (mPending.statuses.size() < kMaxPendingEvents) mPending.statuses.push_back(status);
}

FilterDelivery FilterQueue::take() {
    FilterDelivery out = std::move(mPending);
    mPending = FilterDelivery{};
    out.callback = mCallback;
    out.avMemory = mAvMemory;
    return out;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
