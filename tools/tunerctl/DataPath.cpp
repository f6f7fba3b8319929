#include "DataPath.h"

#include <algorithm>

#include "ServiceCalls.h"
#include "TunerClient.h"

namespace tunerctl {

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::EventFlag;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;

namespace {

// A DVR's queue: a quarter of a second of a 40 Mbit/s multiplex, in whole packets.
constexpr uint32_t kDvrQueueBytes = 188 * 7000;
// A record filter's own queue: its packets go to the DVR it is attached to.
constexpr uint32_t kRecordFilterBytes = 188 * 64;
// A section filter's queue: room for a few whole SI sections (4096 bytes at most each).
constexpr uint32_t kSectionQueueBytes = 64 * 1024;

DvrSettings dvrSettings(DvrType type) {
    DvrSettings settings;
    if (type == DvrType::RECORD) {
        RecordSettings record{};
        record.statusMask = static_cast<uint8_t>(DemuxFilterStatus::OVERFLOW);
        record.lowThreshold = kDvrQueueBytes / 4;
        record.highThreshold = kDvrQueueBytes * 3 / 4;
        record.dataFormat = DataFormat::TS;
        record.packetSize = kTsPacket;
        settings.record(record);
    } else {
        PlaybackSettings playback{};
        playback.statusMask = 0;
        playback.lowThreshold = kDvrQueueBytes / 4;
        playback.highThreshold = kDvrQueueBytes * 3 / 4;
        playback.dataFormat = DataFormat::TS;
        playback.packetSize = kTsPacket;
        settings.playback(playback);
    }
    return settings;
}

DemuxFilterType tsFilter(DemuxTsFilterType type) {
    DemuxFilterType t{};
    t.mainType = DemuxFilterMainType::TS;
    t.subType.tsFilterType(type);
    return t;
}

// A filter's or DVR's queue, mapped.
// Record filters report nothing this client waits for.
struct NoFilterEvents : public IFilterCallback {
    Return<void> onFilterEvent(const DemuxFilterEvent&) override { return Void(); }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
};

template <typename Owner>
bool queueOf(const char* what, Owner& owner, MappedQueue& mapped) {
    bool ok = false;
    call(what, [&] {
        return owner.getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& d) {
            ok = r == Result::SUCCESS && mapped.map(d);
        });
    });
    return ok;
}

}  // namespace

MappedQueue::~MappedQueue() {
    if (mFlag != nullptr) EventFlag::deleteEventFlag(&mFlag);
}

bool MappedQueue::map(const MQDescriptorSync<uint8_t>& descriptor) {
    mQueue = std::make_unique<ByteQueue>(descriptor, false);
    if (!mQueue->isValid()) return false;
    return EventFlag::createEventFlag(mQueue->getEventFlagWord(), &mFlag) == ::android::OK;
}

uint32_t MappedQueue::wait(DemuxQueueNotifyBits bits, std::chrono::milliseconds timeout) {
    uint32_t state = 0;
    const int64_t ns = std::max<int64_t>(1, int64_t{timeout.count()} * 1000000);
    if (mFlag->wait(static_cast<uint32_t>(bits), &state, ns) != ::android::OK) return 0;
    return state;
}

void MappedQueue::wake(DemuxQueueNotifyBits bits) {
    mFlag->wake(static_cast<uint32_t>(bits));
}

std::unique_ptr<DemuxSession> DemuxSession::open(const sp<ITuner>& tuner, std::string& error) {
    sp<IDemux> demux;
    uint32_t id = 0;
    Result result = Result::UNKNOWN_ERROR;
    call("openDemux", [&] {
        return tuner->openDemux([&](Result r, uint32_t i, const sp<IDemux>& d) {
            result = r;
            id = i;
            demux = d;
        });
    });
    if (result != Result::SUCCESS || demux == nullptr) {
        error = "openDemux: " + toString(result);
        return nullptr;
    }
    return std::unique_ptr<DemuxSession>(new DemuxSession(demux, id));
}

DemuxSession::~DemuxSession() {
    // A service that died took its demuxes with it.
    if (!serviceDied()) call("close", [&] { return mDemux->close(); });
}

bool DemuxSession::bindFrontend(uint32_t frontendId, std::string& error) {
    const Result r = call("setFrontendDataSource",
                          [&] { return mDemux->setFrontendDataSource(frontendId); });
    if (r != Result::SUCCESS) error = "setFrontendDataSource: " + toString(r);
    return r == Result::SUCCESS;
}

// Section lengths per filter, in the order the filters' events came.
struct SectionTaps::Inbox {
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::pair<size_t, uint32_t>> sections;  // tap index, length
};

struct SectionTaps::Tap {
    struct Events : public IFilterCallback {
        std::shared_ptr<Inbox> inbox;
        size_t index = 0;
        Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
            std::lock_guard<std::mutex> guard(inbox->lock);
            for (const auto& e : event.events) {
                if (e.getDiscriminator() == DemuxFilterEvent::Event::hidl_discriminator::section) {
                    inbox->sections.emplace_back(index, e.section().dataLength);
                }
            }
            inbox->changed.notify_all();
            return Void();
        }
        Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
    };
    uint16_t pid = 0;
    uint8_t tableId = 0;
    sp<IFilter> filter;
    MappedQueue queue;
};

SectionTaps::SectionTaps(const sp<IDemux>& demux) : mDemux(demux) {}

SectionTaps::~SectionTaps() {
    for (auto& tap : mTaps) {
        call("close", [&] { return tap->filter->close(); });
    }
}

bool SectionTaps::add(uint16_t pid, uint8_t tableId, std::string& error) {
    if (!mInbox) mInbox = std::make_shared<Inbox>();
    auto tap = std::make_unique<Tap>();
    tap->pid = pid;
    tap->tableId = tableId;
    sp<Tap::Events> events = new Tap::Events();
    events->inbox = mInbox;
    events->index = mTaps.size();
    Result result = Result::UNKNOWN_ERROR;
    call("openFilter", [&] {
        return mDemux->openFilter(tsFilter(DemuxTsFilterType::SECTION), kSectionQueueBytes, events,
                                  [&](Result r, const sp<IFilter>& f) {
                                      result = r;
                                      tap->filter = f;
                                  });
    });
    if (result != Result::SUCCESS || tap->filter == nullptr) {
        error = "openFilter: " + toString(result);
        return false;
    }
    DemuxFilterSectionBits bits{};
    bits.filter = std::vector<uint8_t>{tableId};
    bits.mask = std::vector<uint8_t>{0xFF};
    bits.mode = std::vector<uint8_t>{0x00};
    DemuxFilterSectionSettings section{};
    section.condition.sectionBits(bits);
    section.isCheckCrc = true;
    section.isRepeat = true;
    section.isRaw = false;
    DemuxTsFilterSettings ts{};
    ts.tpid = pid;
    ts.filterSettings.section(section);
    DemuxFilterSettings settings;
    settings.ts(ts);
    result = call("configure", [&] { return tap->filter->configure(settings); });
    if (result == Result::SUCCESS && !queueOf("getQueueDesc", *tap->filter, tap->queue)) {
        result = Result::UNKNOWN_ERROR;
    }
    if (result == Result::SUCCESS) result = call("start", [&] { return tap->filter->start(); });
    if (result != Result::SUCCESS) {
        error = "section filter on PID " + std::to_string(pid) + ": " + toString(result);
        call("close", [&] { return tap->filter->close(); });
        return false;
    }
    mTaps.push_back(std::move(tap));
    return true;
}

bool SectionTaps::has(uint16_t pid, uint8_t tableId) const {
    return std::any_of(mTaps.begin(), mTaps.end(),
                       [&](const auto& t) { return t->pid == pid && t->tableId == tableId; });
}

std::optional<SectionTaps::Received> SectionTaps::next(
        std::chrono::steady_clock::time_point deadline) {
    if (!mInbox) return std::nullopt;
    std::pair<size_t, uint32_t> entry;
    {
        std::unique_lock<std::mutex> lock(mInbox->lock);
        if (!mInbox->changed.wait_until(lock, deadline, [&] { return !mInbox->sections.empty(); })) {
            return std::nullopt;
        }
        entry = mInbox->sections.front();
        mInbox->sections.pop_front();
    }
    Tap& tap = *mTaps[entry.first];
    Received received;
    received.pid = tap.pid;
    received.section.resize(entry.second);
    if (!tap.queue.queue().read(received.section.data(), entry.second)) received.section.clear();
    tap.queue.wake(DemuxQueueNotifyBits::DATA_CONSUMED);
    return received;
}

// What a DVR reports: a recording's overflows (packets dropped because this side read late).
class DvrStatuses : public IDvrCallback {
  public:
    std::atomic<uint64_t> overflows{0};
    Return<void> onRecordStatus(DemuxFilterStatus status) override {
        if (status == DemuxFilterStatus::OVERFLOW) ++overflows;
        return Void();
    }
    Return<void> onPlaybackStatus(PlaybackStatus) override { return Void(); }
};

std::unique_ptr<Recorder> Recorder::start(const sp<IDemux>& demux,
                                          const std::vector<uint16_t>& pids, std::string& error) {
    std::unique_ptr<Recorder> r(new Recorder());
    r->mStatuses = new DvrStatuses();
    Result result = Result::UNKNOWN_ERROR;
    call("openDvr", [&] {
        return demux->openDvr(DvrType::RECORD, kDvrQueueBytes, r->mStatuses,
                              [&](Result res, const sp<IDvr>& d) {
                                  result = res;
                                  r->mDvr = d;
                              });
    });
    if (result != Result::SUCCESS || r->mDvr == nullptr) {
        error = "openDvr: " + toString(result);
        r->mStopped = true;
        return nullptr;
    }
    // The first step that fails names itself.
    const char* step = "configure";
    result = call(step, [&] { return r->mDvr->configure(dvrSettings(DvrType::RECORD)); });
    if (result == Result::SUCCESS && !queueOf("getQueueDesc", *r->mDvr, r->mQueue)) {
        step = "getQueueDesc";
        result = Result::UNKNOWN_ERROR;
    }
    sp<IFilterCallback> quiet = new NoFilterEvents();
    for (uint16_t pid : pids) {
        if (result != Result::SUCCESS) break;
        sp<IFilter> filter;
        step = "openFilter";
        call(step, [&] {
            return demux->openFilter(tsFilter(DemuxTsFilterType::RECORD), kRecordFilterBytes, quiet,
                                     [&](Result res, const sp<IFilter>& f) {
                                         result = res;
                                         filter = f;
                                     });
        });
        if (result != Result::SUCCESS) break;
        r->mFilters.push_back(filter);
        DemuxFilterRecordSettings record{};
        record.tsIndexMask = 0;
        record.scIndexType = DemuxRecordScIndexType::NONE;
        record.scIndexMask.sc(0);
        DemuxTsFilterSettings ts{};
        ts.tpid = pid;
        ts.filterSettings.record(record);
        DemuxFilterSettings settings;
        settings.ts(ts);
        step = "configure record filter";
        result = call(step, [&] { return filter->configure(settings); });
        if (result == Result::SUCCESS) {
            step = "attachFilter";
            result = call(step, [&] { return r->mDvr->attachFilter(filter); });
        }
        if (result == Result::SUCCESS) {
            step = "start record filter";
            result = call(step, [&] { return filter->start(); });
        }
    }
    if (result == Result::SUCCESS) {
        step = "start";
        result = call(step, [&] { return r->mDvr->start(); });
    }
    if (result != Result::SUCCESS) {
        error = std::string("recording DVR: ") + step + ": " + toString(result);
        return nullptr;
    }
    return r;
}

Recorder::~Recorder() {
    stop();
}

void Recorder::stop() {
    if (mStopped) return;
    mStopped = true;
    if (serviceDied()) {
        mFilters.clear();
        return;
    }
    if (mDvr != nullptr) call("stop", [&] { return mDvr->stop(); });
    for (const sp<IFilter>& f : mFilters) {
        call("stop", [&] { return f->stop(); });
        call("detachFilter", [&] { return mDvr->detachFilter(f); });
        call("close", [&] { return f->close(); });
    }
    mFilters.clear();
    if (mDvr != nullptr) call("close", [&] { return mDvr->close(); });
}

uint64_t Recorder::overflows() const {
    return mStatuses ? mStatuses->overflows.load() : 0;
}

size_t Recorder::pump(std::chrono::milliseconds timeout,
                      const std::function<void(const uint8_t*, size_t)>& take) {
    ByteQueue& q = mQueue.queue();
    if (q.availableToRead() < kTsPacket) mQueue.wait(DemuxQueueNotifyBits::DATA_READY, timeout);
    const size_t n = q.availableToRead() / kTsPacket * kTsPacket;
    if (n == 0) return 0;
    mBuffer.resize(n);
    if (!q.read(mBuffer.data(), n)) return 0;
    mQueue.wake(DemuxQueueNotifyBits::DATA_CONSUMED);
    take(mBuffer.data(), n);
    return n;
}

std::unique_ptr<Player> Player::start(const sp<IDemux>& demux, std::string& error) {
    std::unique_ptr<Player> p(new Player());
    Result result = Result::UNKNOWN_ERROR;
    call("openDvr", [&] {
        return demux->openDvr(DvrType::PLAYBACK, kDvrQueueBytes, new DvrStatuses(),
                              [&](Result r, const sp<IDvr>& d) {
                                  result = r;
                                  p->mDvr = d;
                              });
    });
    if (result != Result::SUCCESS || p->mDvr == nullptr) {
        error = "openDvr: " + toString(result);
        p->mStopped = true;
        return nullptr;
    }
    result = call("configure", [&] { return p->mDvr->configure(dvrSettings(DvrType::PLAYBACK)); });
    if (result == Result::SUCCESS && !queueOf("getQueueDesc", *p->mDvr, p->mQueue)) {
        result = Result::UNKNOWN_ERROR;
    }
    if (result == Result::SUCCESS) result = call("start", [&] { return p->mDvr->start(); });
    if (result != Result::SUCCESS) {
        error = "playback DVR: " + toString(result);
        return nullptr;
    }
    return p;
}

Player::~Player() {
    stop();
}

void Player::stop() {
    if (mStopped) return;
    mStopped = true;
    call("stop", [&] { return mDvr->stop(); });
    call("close", [&] { return mDvr->close(); });
}

bool Player::write(const uint8_t* data, size_t size, std::chrono::milliseconds stall) {
    ByteQueue& q = mQueue.queue();
    auto lastProgress = std::chrono::steady_clock::now();
    while (size > 0) {
        const size_t n = std::min(size, q.availableToWrite() / kTsPacket * kTsPacket);
        if (n > 0 && q.write(data, n)) {
            mQueue.wake(DemuxQueueNotifyBits::DATA_READY);
            data += n;
            size -= n;
            lastProgress = std::chrono::steady_clock::now();
            continue;
        }
        if (std::chrono::steady_clock::now() - lastProgress > stall) return false;
        mQueue.wait(DemuxQueueNotifyBits::DATA_CONSUMED, std::chrono::milliseconds(20));
    }
    return true;
}

bool Player::drain(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (mQueue.queue().availableToRead() > 0) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        mQueue.wait(DemuxQueueNotifyBits::DATA_CONSUMED, std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace tunerctl
