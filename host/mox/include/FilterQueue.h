// What one filter of a host demux hands its client: the fast message queue its bytes go to,
// the media memory its frames go to, and the events and statuses waiting to be sent. The engine
// writes into it while the demux's lock is held; the demux's input thread takes what waits
// under the same lock and sends it with no lock held, so a client's callback never runs under
// the demux's lock.
#pragma once

#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <fmq/EventFlag.h>
#include <fmq/MessageQueue.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "AvMemoryFile.h"
#include "DvrQueue.h"
#include "demux/AvMemory.h"
#include "demux/FilterSink.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

// Events and statuses taken out of a filter to be sent, with what they need to stay valid.
struct FilterDelivery {
    sp<IFilterCallback> callback;
    std::vector<DemuxFilterEvent::Event> events;  // sections, PES, TS index: sent together
    std::vector<DemuxFilterEvent::Event> media;   // one a call: each carries the memory's handle
    std::vector<DemuxFilterStatus> statuses;
    std::shared_ptr<AvMemoryFile> avMemory;

    bool empty() const { return events.empty() && media.empty() && statuses.empty(); }
};

class FilterQueue : public mox::demux::FilterSink {
  public:
    // Events a filter keeps for its next delivery; beyond it they are dropped and counted.
    static constexpr size_t kMaxPendingEvents = 4096;

    FilterQueue(size_t queueBytes, size_t avMemoryBytes, sp<IFilterCallback> callback);
    ~FilterQueue() override;

    bool isValid() const;
    const MQDescriptorSync<uint8_t>& descriptor() const { return *mQueue->getDesc(); }
    mox::demux::AvRegion avRegion() const;

    // The engine's side.
    bool write(const uint8_t* data, size_t size) override;
    bool writeRun(const uint8_t* data, size_t size) override;
    size_t fill() const override;
    void event(const mox::demux::FilterEvent& event) override;
    void status(DemuxFilterStatus status) override;
    const void* destination() const override {
        return mRecordTarget != nullptr ? static_cast<const void*>(mRecordTarget) : this;
    }

    // A record filter attached to a DVR writes its packets there; null: to its own queue.
    void setRecordTarget(DvrQueue* target) { mRecordTarget = target; }
    DvrQueue* recordTarget() const { return mRecordTarget; }

    // Tells the client that what was written since the last call is there: once a round of
    // packets, not once a write.
    void signalWritten();

    // What waits to be sent, taken out.
    FilterDelivery take();
    uint64_t droppedEvents() const { return mDroppedEvents; }

  private:
    using Queue = MessageQueue<uint8_t, kSynchronizedReadWrite>;
    std::unique_ptr<Queue> mQueue;
    EventFlag* mEventFlag = nullptr;
    std::shared_ptr<AvMemoryFile> mAvMemory;
    sp<IFilterCallback> mCallback;
    FilterDelivery mPending;
    uint64_t mDroppedEvents = 0;
    DvrQueue* mRecordTarget = nullptr;
    bool mWritten = false;  // since the last signalWritten()
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
