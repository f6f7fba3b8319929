// Handles and queue descriptors through a real proxy and stub of the tuner's interfaces, within
// one process (the object published here and reached through its socket), and the bounds of the
// descriptors a peer sends: every descriptor that arrives is owned once or closed, counted in
// /proc/self/fd before and after.
#include <android/hardware/tv/tuner/1.0/IFilter.h>
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <dirent.h>
#include <fcntl.h>
#include <fmq/MessageQueue.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Transport.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tunerWire.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Frame.h"

namespace {

using namespace ::android::hardware::tv::tuner::V1_0;
using namespace ::android::hardware::details;
using namespace std::chrono_literals;
using ::android::sp;
using ::android::hardware::hidl_handle;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ByteQueue = MessageQueue<uint8_t, kSynchronizedReadWrite>;

size_t openDescriptors() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count - 1;  // the directory's own
}

// Shared memory this process holds: a queue's. Unlike the count of all descriptors it does not
// move when the transport opens another connection for a call.
size_t openMemfds() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) {
            char target[256] = {};
            const std::string link = std::string("/proc/self/fd/") + entry->d_name;
            if (readlink(link.c_str(), target, sizeof(target) - 1) > 0 &&
                std::string(target).rfind("/memfd:", 0) == 0) {
                ++count;
            }
        }
        closedir(dir);
    }
    return count;
}

bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// A memfd holding `text`.
int memoryWith(const std::string& text) {
    const int fd = memfd_create("handle-test", MFD_CLOEXEC);
    if (fd >= 0 && write(fd, text.data(), text.size()) != ssize_t(text.size())) return -1;
    return fd;
}

std::string contentOf(int fd) {
    char buffer[64] = {};
    const ssize_t n = pread(fd, buffer, sizeof(buffer), 0);
    return n > 0 ? std::string(buffer, size_t(n)) : std::string();
}

// A handle of `fds` and `ints`, owning nothing (the test closes what it made).
struct MadeHandle {
    MadeHandle(std::vector<int> fds, std::vector<int> ints) : mFds(std::move(fds)) {
        mHandle = native_handle_create(int(mFds.size()), int(ints.size()));
        for (size_t i = 0; i < mFds.size(); ++i) mHandle->data[i] = mFds[i];
        for (size_t i = 0; i < ints.size(); ++i) mHandle->data[mFds.size() + i] = ints[i];
    }
    ~MadeHandle() {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }
    const native_handle_t* get() const { return mHandle; }

  private:
    std::vector<int> mFds;
    native_handle_t* mHandle;
};

// A filter whose handle and queue calls record what they saw.
class RecordingFilter : public IFilter {
  public:
    Return<void> getQueueDesc(getQueueDesc_cb cb) override {
        cb(Result::SUCCESS, *mQueue.getDesc());
        return Void();
    }
    Return<Result> releaseAvHandle(const hidl_handle& avMemory, uint64_t avDataId) override {
        std::lock_guard<std::mutex> guard(mLock);
        mDataId = avDataId;
        mNull = avMemory.getNativeHandle() == nullptr;
        mContent.clear();
        mInts.clear();
        if (!mNull) {
            const native_handle_t* h = avMemory.getNativeHandle();
            for (int i = 0; i < h->numFds; ++i) mContent += contentOf(h->data[i]);
            mInts.assign(h->data + h->numFds, h->data + h->numFds + h->numInts);
            if (mKeep) mKept = avMemory;  // a copy: a clone this object owns
        }
        return Result::SUCCESS;
    }
    Return<Result> configure(const DemuxFilterSettings&) override { return Result::SUCCESS; }
    Return<Result> start() override { return Result::SUCCESS; }
    Return<Result> stop() override { return Result::SUCCESS; }
    Return<Result> flush() override { return Result::SUCCESS; }
    Return<void> getId(getId_cb cb) override {
        cb(Result::SUCCESS, 7);
        return Void();
    }
    Return<Result> setDataSource(const sp<IFilter>&) override { return Result::SUCCESS; }
    Return<Result> close() override { return Result::SUCCESS; }

    ByteQueue mQueue{1024, true};
    std::mutex mLock;
    bool mKeep = false;
    hidl_handle mKept;
    bool mNull = false;
    uint64_t mDataId = 0;
    std::string mContent;
    std::vector<int> mInts;
};

// Records media events; the first one waits until the gate opens.
class GatedFilterCallback : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        std::unique_lock<std::mutex> guard(mLock);
        ++mEvents;
        mHandles += event.events.size();
        mGate.wait(guard, [&] { return mOpen; });
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
    void open() {
        std::lock_guard<std::mutex> guard(mLock);
        mOpen = true;
        mGate.notify_all();
    }
    size_t events() {
        std::lock_guard<std::mutex> guard(mLock);
        return mEvents;
    }

  private:
    std::mutex mLock;
    std::condition_variable mGate;
    bool mOpen = false;
    size_t mEvents = 0;
    size_t mHandles = 0;
};

class HandleCarriageTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { ::android::hardware::configureRpcThreadpool(4, false); }
    void SetUp() override {
        static int published = 0;
        mName = "filter" + std::to_string(++published);  // a socket's path is short
        ASSERT_EQ(publishService(mFilter, IFilter::descriptor, mName), ::android::OK);
        mProxy = IFilter::castFrom(connectToService(IFilter::descriptor, mName));
        ASSERT_NE(mProxy, nullptr);
        ASSERT_TRUE(mProxy->isRemote());
    }
    sp<RecordingFilter> mFilter = new RecordingFilter();
    sp<IFilter> mProxy;
    std::string mName;
};

TEST_F(HandleCarriageTest, AHandlesDescriptorsAndIntsReachTheStubWhichClosesThemAfterTheCall) {
    MadeHandle handle({memoryWith("media "), memoryWith("bytes")}, {42, -7});
    const size_t before = openDescriptors();
    ASSERT_EQ(
            mProxy->releaseAvHandle(hidl_handle(handle.get()), 99).withDefault(Result::UNKNOWN_ERROR),
            Result::SUCCESS);
    EXPECT_FALSE(mFilter->mNull);
    EXPECT_EQ(mFilter->mContent, "media bytes");
    EXPECT_EQ(mFilter->mInts, (std::vector<int>{42, -7}));
    EXPECT_EQ(mFilter->mDataId, 99u);
    // Both ends are in this process: neither the proxy's duplicates nor the stub's are left.
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(HandleCarriageTest, AnImplementationThatKeepsAHandleHoldsItsOwnCopy) {
    mFilter->mKeep = true;
    MadeHandle handle({memoryWith("kept")}, {});
    const size_t before = openDescriptors();
    ASSERT_TRUE(mProxy->releaseAvHandle(hidl_handle(handle.get()), 1).isOk());
    EXPECT_EQ(openDescriptors(), before + 1);
    ASSERT_NE(mFilter->mKept.getNativeHandle(), nullptr);
    EXPECT_EQ(contentOf(mFilter->mKept->data[0]), "kept");
    mFilter->mKept = hidl_handle();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(HandleCarriageTest, ANullHandleCrossesAsNull) {
    ASSERT_TRUE(mProxy->releaseAvHandle(hidl_handle(), 5).isOk());
    EXPECT_TRUE(mFilter->mNull);
    EXPECT_EQ(mFilter->mDataId, 5u);
}

TEST_F(HandleCarriageTest, AQueueDescriptorCrossesAndTheClientWritesIntoTheServicesQueue) {
    const size_t before = openMemfds();
    {
        std::unique_ptr<ByteQueue> clientSide;
        ASSERT_TRUE(mProxy->getQueueDesc([&](Result result, const MQDescriptorSync<uint8_t>& desc) {
                              ASSERT_EQ(result, Result::SUCCESS);
                              clientSide = std::make_unique<ByteQueue>(desc, false);
                          }).isOk());
        ASSERT_TRUE(clientSide->isValid());
        EXPECT_EQ(clientSide->getQuantumCount(), 1024u);
        const uint8_t data[3] = {'a', 'b', 'c'};
        ASSERT_TRUE(clientSide->writeBlocking(data, 3, 1 << 1, 1 << 0, 10'000'000'000));
        uint8_t got[3] = {};
        ASSERT_TRUE(mFilter->mQueue.readBlocking(got, 3, 1 << 1, 1 << 0, 10'000'000'000));
        EXPECT_EQ(std::string(got, got + 3), "abc");
        EXPECT_EQ(openMemfds(), before + 1);  // the client's queue holds its own descriptor
    }
    EXPECT_EQ(openMemfds(), before);
}

TEST_F(HandleCarriageTest, AThousandCallsWithHandlesLeaveNoDescriptorBehind) {
    MadeHandle handle({memoryWith("x")}, {1});
    const size_t before = openDescriptors();
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(mProxy->releaseAvHandle(hidl_handle(handle.get()), 1).isOk());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(HandleCarriageTest, AHandleOfMoreDescriptorsThanAFrameCarriesFailsTheCallOnly) {
    std::vector<int> fds;
    for (size_t i = 0; i <= limits::kMaxFdsPerMessage; ++i) fds.push_back(memoryWith("many"));
    MadeHandle tooMany(fds, {});
    const size_t before = openDescriptors();
    auto status = mProxy->releaseAvHandle(hidl_handle(tooMany.get()), 1);
    EXPECT_FALSE(status.isOk());
    EXPECT_FALSE(status.isDeadObject());
    EXPECT_EQ(openDescriptors(), before);
    // The session goes on.
    MadeHandle one({memoryWith("one")}, {});
    ASSERT_TRUE(mProxy->releaseAvHandle(hidl_handle(one.get()), 2).isOk());
    EXPECT_EQ(mFilter->mContent, "one");
}

// A callback that holds its first event while more with many descriptors each queue behind it:
// the session that would make this process hold more than its share is ended, and every
// descriptor it brought is closed.
TEST(HandleBudgetTest, OnewayCallsQueuingMoreDescriptorsThanASessionMayHoldEndItsSession) {
    ::android::hardware::configureRpcThreadpool(4, false);
    sp<GatedFilterCallback> target = new GatedFilterCallback();
    ASSERT_EQ(publishService(target, IFilterCallback::descriptor, "gated"), ::android::OK);
    const size_t before = openDescriptors();
    {
        sp<IFilterCallback> across =
                IFilterCallback::castFrom(connectToService(IFilterCallback::descriptor, "gated"));
        ASSERT_NE(across, nullptr);
        std::vector<int> memory;
        for (size_t i = 0; i < limits::kMaxFdsPerMessage; ++i) memory.push_back(memoryWith("m"));
        DemuxFilterEvent event{};
        event.events.resize(limits::kMaxFdsPerMessage);
        std::vector<std::unique_ptr<MadeHandle>> handles;
        for (size_t i = 0; i < event.events.size(); ++i) {
            handles.push_back(
                    std::make_unique<MadeHandle>(std::vector<int>{memory[i]}, std::vector<int>{}));
            DemuxFilterMediaEvent media{};
            media.avMemory = hidl_handle(handles.back()->get());
            event.events[i].media(media);
        }
        const size_t calls = limits::kMaxFdsPerSession / limits::kMaxFdsPerMessage + 2;
        for (size_t i = 0; i < calls; ++i) {
            across->onFilterEvent(event).isOkUnchecked();  // the last ones may find it gone
        }
        // The first holds its descriptors in the gate; three more wait behind it: the fifth
        // batch is beyond the session's share.
        ASSERT_TRUE(eventually([&] { return !across->ping().isOk(); }));
        target->open();
    }
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
            << openDescriptors() << " descriptors, " << before << " before";
    EXPECT_LE(target->events(), limits::kMaxFdsPerSession / limits::kMaxFdsPerMessage);
}

// A peer that writes frames by hand on the filter's socket.
class RawPeer {
  public:
    explicit RawPeer(const std::string& name) {
        const std::string path = serviceSocketPath(IFilter::descriptor, name);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            ::close(mFd);
            mFd = -1;
        }
    }
    ~RawPeer() {
        if (mFd >= 0) ::close(mFd);
    }
    bool hello() {
        FrameHeader header = headerOnly(FrameKind::kHello, kRoleCalls, 0);
        FrameHeader welcome{};
        return sendFrame(mFd, header) &&
               recv(mFd, &welcome, sizeof(welcome), MSG_WAITALL) == ssize_t(sizeof(welcome)) &&
               welcome.kind == FrameKind::kWelcome;
    }
    // A frame whose header claims `claimed` descriptors, sent with `fds`.
    bool send(FrameHeader header, capnp::MessageBuilder* body, uint8_t claimed,
              const std::vector<int>& fds) {
        OutgoingFrame frame;
        if (!frame.build(header, body)) return false;
        // The header as a broken peer writes it: its claim, whatever it sends.
        FrameHeader* written = static_cast<FrameHeader*>(frame.iov()[0].iov_base);
        written->fdCount = claimed;
        // Any number of descriptors, beyond what the transport's own sender would send.
        std::vector<char> control(CMSG_SPACE(sizeof(int) * fds.size()));
        msghdr msg{};
        msg.msg_iov = frame.iov();
        msg.msg_iovlen = size_t(frame.iovCount());
        if (!fds.empty()) {
            msg.msg_control = control.data();
            msg.msg_controllen = control.size();
            cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
            cmsg->cmsg_level = SOL_SOCKET;
            cmsg->cmsg_type = SCM_RIGHTS;
            cmsg->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
            memcpy(CMSG_DATA(cmsg), fds.data(), sizeof(int) * fds.size());
        }
        return sendmsg(mFd, &msg, MSG_NOSIGNAL) == ssize_t(frame.bytes());
    }
    bool closedWithin(std::chrono::milliseconds bound) {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        char buffer[4096];
        while (std::chrono::steady_clock::now() < deadline) {
            pollfd p{mFd, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            const ssize_t n = recv(mFd, buffer, sizeof(buffer), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno == ECONNRESET)) return true;
        }
        return false;
    }

  private:
    int mFd = -1;
};

// The object a session serves first: the published filter.
constexpr uint64_t kRootObject = 1;

struct BrokenFrame {
    const char* name;
    bool beforeHello;
    FrameKind kind;
    uint16_t method;
    uint8_t claimed;     // what the header says
    size_t sent;         // descriptors sent with it
    uint32_t handleFds;  // what the message's handle claims (releaseAvHandle only)
};

TEST_F(HandleCarriageTest, FramesWhoseDescriptorsDoNotMatchCloseOnlyTheirConnection) {
    const uint16_t kRelease = ::wire::tuner::IFilterMethod::releaseAvHandle;
    const BrokenFrame cases[] = {
            {"descriptors before hello", true, FrameKind::kHello, kRoleCalls, 0, 1, 0},
            {"descriptors with a frame that claims none", false, FrameKind::kCall, kPing, 0, 1, 0},
            {"a claim with no descriptors sent", false, FrameKind::kCall, kRelease, 1, 0, 1},
            {"a claim of two with one sent", false, FrameKind::kCall, kRelease, 2, 1, 2},
            {"more than a frame may carry, unclaimed", false, FrameKind::kCall, kPing, 0,
             limits::kMaxFdsPerMessage + 1, 0},
            {"a claim of more than a frame may carry", false, FrameKind::kCall, kRelease,
             uint8_t(limits::kMaxFdsPerMessage + 1), limits::kMaxFdsPerMessage + 1, 1},
            {"descriptors on a release", false, FrameKind::kRelease, 0, 1, 1, 0},
            {"descriptors no handle of the message takes", false, FrameKind::kCall, kPing, 1, 1, 0},
            {"a handle claiming more than came", false, FrameKind::kCall, kRelease, 1, 1, 2},
            {"a oneway call whose handle takes none of them", false, FrameKind::kOneway, kRelease,
             2, 2, 1},
    };
    for (const BrokenFrame& c : cases) {
        SCOPED_TRACE(c.name);
        const size_t before = openDescriptors();
        {
            std::vector<int> fds;
            for (size_t i = 0; i < c.sent; ++i) fds.push_back(memoryWith("peer"));
            RawPeer peer(mName);
            ASSERT_TRUE(c.beforeHello || peer.hello());
            capnp::MallocMessageBuilder message;
            capnp::MessageBuilder* body = nullptr;
            if (c.method == kRelease && c.kind != FrameKind::kRelease) {
                auto params = message.initRoot<::wire::tuner::IFilterReleaseAvHandleParams>();
                params.initAvMemory().setFdCount(c.handleFds);
                params.setAvDataId(3);
                body = &message;
            }
            FrameHeader header = headerOnly(c.kind, c.method, kRootObject, 1);
            ASSERT_TRUE(peer.send(header, body, c.claimed, fds));
            for (int fd : fds) ::close(fd);  // the receiving side's copies are its own now
            EXPECT_TRUE(peer.closedWithin(5s));
        }
        // Whatever came was closed: nothing the peer sent is held.
        EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
                << openDescriptors() << " descriptors, " << before << " before";
        // And the well-behaved client's session goes on.
        EXPECT_EQ(mProxy->getId([](Result, uint32_t) {}).isOk(), true);
    }
}

}  // namespace
