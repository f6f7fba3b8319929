// The shapes the generated proxies and stubs are built on: a call going out (its parameters built
// in place, its reply read in place), a call coming in, and what every proxy answers of IBase.
#pragma once

#include <capnp/message.h>
#include <hidl/transport/HandleCarriage.h>
#include <hidl/transport/Transport.h>

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace android {
namespace hardware {
namespace details {

// The status a stub reports for what the object's method returned.
Status toStatus(const return_status& result);

// A non-owning reference to a callable: a reply reader is called once, before the call returns,
// so nothing needs to be allocated to hold it.
template <typename Signature>
class FunctionRef;
template <typename R, typename... Args>
class FunctionRef<R(Args...)> {
  public:
    template <typename F, typename = std::enable_if_t<!std::is_same<std::decay_t<F>, FunctionRef>{}>>
    FunctionRef(F&& f)  // NOLINT: converts implicitly, as a lambda argument should
        : mObject(const_cast<void*>(static_cast<const void*>(&f))),
          mCall([](void* o, Args... a) -> R {
              return (*static_cast<std::remove_reference_t<F>*>(o))(std::forward<Args>(a)...);
          }) {}
    R operator()(Args... a) const { return mCall(mObject, std::forward<Args>(a)...); }

  private:
    void* mObject;
    R (*mCall)(void*, Args...);
};

// Method numbers of what every interface answers, beside its own methods 0, 1, 2 ...
enum BaseMethod : uint16_t {
    kPing = 0xF000,
    kInterfaceChain = 0xF001,
    kInterfaceDescriptor = 0xF002,
    kDebug = 0xF003,
    kGetDebugInfo = 0xF004,
};

// The first segment of a message lives on the caller's stack: most messages need no allocation.
constexpr size_t kScratchWords = 256;

// The reply of a two-way call, read in place in the receive buffer of its socket.
class IncomingReply {
  public:
    IncomingReply(Session& session, capnp::MessageReader* reader, IncomingFds& fds)
        : mSession(session), mReader(reader), mFds(fds) {}
    // The descriptors that came with the reply, for the handles of its results.
    IncomingFds* fds() { return &mFds; }
    template <typename T>
    typename T::Reader results() {
        return mReader == nullptr ? typename T::Reader() : mReader->getRoot<T>();
    }
    template <typename I>
    sp<I> importObject(uint64_t ref, MakeProxy makeProxy);

  private:
    Session& mSession;
    capnp::MessageReader* mReader;
    IncomingFds& mFds;
};

class OutgoingCall {
  public:
    OutgoingCall(const std::shared_ptr<Session>& session, uint64_t object, uint16_t method);
    OutgoingCall(const OutgoingCall&) = delete;
    OutgoingCall& operator=(const OutgoingCall&) = delete;

    template <typename T>
    typename T::Builder params() {
        return mMessage.initRoot<T>();
    }
    // The id an interface object crosses as (0 for none).
    uint64_t exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                          StubDispatch dispatch);
    // Sends the call and waits for its reply, which `onReply` reads before the call returns.
    Status transact(FunctionRef<void(IncomingReply&)> onReply);
    Status transact();
    // Sends a oneway call: queued behind the earlier oneway calls of this process to the peer.
    Status sendOneway();
    // The descriptors of the parameters' handles.
    OutgoingFds* fds() { return &mFds; }

  private:
    const std::shared_ptr<Session>& mSession;
    OutgoingFds mFds;
    const uint64_t mObject;
    const uint16_t mMethod;
    bool mFailed = false;
    capnp::word mScratch[kScratchWords] = {};
    capnp::MallocMessageBuilder mMessage{kj::arrayPtr(mScratch, kScratchWords)};
};

// A call that arrived for a local object: its parameters read in place, its results built in place.
class IncomingCall {
  public:
    IncomingCall(Session& session, uint16_t method, capnp::MessageReader* params,
                 IncomingFds fds = IncomingFds())
        : mSession(session), mMethod(method), mParams(params), mFds(std::move(fds)) {}
    IncomingCall(const IncomingCall&) = delete;
    IncomingCall& operator=(const IncomingCall&) = delete;

    uint16_t method() const { return mMethod; }
    Session& session() { return mSession; }
    template <typename T>
    typename T::Reader params() {
        return mParams == nullptr ? typename T::Reader() : mParams->getRoot<T>();
    }
    template <typename T>
    typename T::Builder results() {
        return mReply.initRoot<T>();
    }
    uint64_t exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                          StubDispatch dispatch);
    template <typename I>
    sp<I> importObject(uint64_t ref, MakeProxy makeProxy);

    capnp::MessageBuilder& reply() { return mReply; }
    // An object of the results could not be handed out: the peer holds too many.
    bool failed() const { return mFailed; }
    // The descriptors that came with the call, for the handles of its parameters (owned here:
    // those no handle took are closed with the call).
    IncomingFds* fds() { return &mFds; }
    // The parameters' handles claimed descriptors the frame did not bring, or left some unclaimed.
    bool malformed() const { return mFds.malformed(); }
    // The descriptors of the results' handles.
    OutgoingFds* replyFds() { return &mReplyFds; }

  private:
    Session& mSession;
    const uint16_t mMethod;
    capnp::MessageReader* const mParams;
    IncomingFds mFds;
    OutgoingFds mReplyFds;
    bool mFailed = false;
    capnp::word mScratch[kScratchWords] = {};
    capnp::MallocMessageBuilder mReply{kj::arrayPtr(mScratch, kScratchWords)};
};

// The object behind an id of a session: a remote object, as far as this process knows it.
sp<::android::hidl::base::V1_0::IBase> importBase(Session& session, uint64_t ref,
                                                  MakeProxy makeProxy);

template <typename I>
sp<I> IncomingReply::importObject(uint64_t ref, MakeProxy makeProxy) {
    sp<::android::hidl::base::V1_0::IBase> base = importBase(mSession, ref, makeProxy);
    return sp<I>(static_cast<I*>(dynamic_cast<I*>(base.get())));
}
template <typename I>
sp<I> IncomingCall::importObject(uint64_t ref, MakeProxy makeProxy) {
    sp<::android::hidl::base::V1_0::IBase> base = importBase(mSession, ref, makeProxy);
    return sp<I>(static_cast<I*>(dynamic_cast<I*>(base.get())));
}

// What a proxy is beside its interface: an id in a session, and how many times the peer has sent
// it (returned when the proxy goes, so the peer can drop the object once no reference is in
// flight).
class RemoteObject {
  public:
    RemoteObject(std::shared_ptr<Session> session, uint64_t id);
    virtual ~RemoteObject();
    const std::shared_ptr<Session>& session() const { return mSession; }
    uint64_t remoteId() const { return mId; }
    void received() { mReceived.fetch_add(1, std::memory_order_relaxed); }

    // A call of one of the IBase methods every object answers.
    Status callBaseMethod(uint16_t method, FunctionRef<void(IncomingReply&)> onReply);

  protected:
    bool linkSessionToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                            const wp<::android::hidl::base::V1_0::IBase>& who);
    bool unlinkSessionToDeath(const sp<hidl_death_recipient>& recipient);

  private:
    const std::shared_ptr<Session> mSession;
    const uint64_t mId;
    std::atomic<uint32_t> mReceived{1};
};

template <typename I>
class ProxyBase : public I, public RemoteObject {
  public:
    ProxyBase(std::shared_ptr<Session> session, uint64_t id)
        : RemoteObject(std::move(session), id) {}

    bool isRemote() const override { return true; }

    Return<void> ping() override {
        return callBaseMethod(kPing, [](IncomingReply&) {});
    }
    Return<void> interfaceChain(typename I::interfaceChain_cb _hidl_cb) override;
    Return<void> interfaceDescriptor(typename I::interfaceDescriptor_cb _hidl_cb) override;
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override;
    // The process the object lives in, as binder's proxies tell it.
    Return<void> getDebugInfo(typename I::getDebugInfo_cb _hidl_cb) override {
        ::android::hidl::base::V1_0::DebugInfo info{};
        Status status = remoteDebugInfo(*this, info);
        if (!status.isOk()) return status;
        _hidl_cb(info);
        return Void();
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        if (recipient == nullptr) return false;
        return linkSessionToDeath(recipient, cookie, wp<::android::hidl::base::V1_0::IBase>(this));
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        return unlinkSessionToDeath(recipient);
    }
};

// The IBase answers that cross, shared by every proxy.
Status remoteInterfaceChain(RemoteObject& object, hidl_vec<hidl_string>& chain);
Status remoteInterfaceDescriptor(RemoteObject& object, hidl_string& descriptor);
Status remoteDebug(RemoteObject& object, const hidl_handle& fd,
                   const hidl_vec<hidl_string>& options);
Status remoteDebugInfo(RemoteObject& object, ::android::hidl::base::V1_0::DebugInfo& info);

template <typename I>
Return<void> ProxyBase<I>::interfaceChain(typename I::interfaceChain_cb _hidl_cb) {
    hidl_vec<hidl_string> chain;
    Status status = remoteInterfaceChain(*this, chain);
    if (!status.isOk()) return status;
    _hidl_cb(chain);
    return Void();
}
template <typename I>
Return<void> ProxyBase<I>::interfaceDescriptor(typename I::interfaceDescriptor_cb _hidl_cb) {
    hidl_string descriptor;
    Status status = remoteInterfaceDescriptor(*this, descriptor);
    if (!status.isOk()) return status;
    _hidl_cb(descriptor);
    return Void();
}
template <typename I>
Return<void> ProxyBase<I>::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    return remoteDebug(*this, fd, options);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
