// What the generated proxies and stubs call: a call going out, the proxies' shared IBase answers,
// the oneway queues, and the table of interfaces that cross.
#include <base.capnp.h>
#include <hidl/transport/Passthrough.h>
#include <hidl/transport/ProxyStub.h>
#include <unistd.h>

#include <map>

#include "Session.h"

namespace android {
namespace hardware {
namespace details {
namespace {

std::map<std::string, InterfaceTransport>& transports() {
    static auto* map = new std::map<std::string, InterfaceTransport>();
    return *map;
}

// The object's dump goes to the descriptor the caller gave.
Status writeDebugText(const hidl_handle& fd, const std::string& text) {
    if (fd.getNativeHandle() == nullptr || fd->numFds < 1) return Status::ok();
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = write(fd->data[0], text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += size_t(n);
    }
    return Status::ok();
}

}  // namespace

Status toStatus(const return_status& result) {
    if (result.isOk()) return Status::ok();
    if (result.isDeadObject()) return Status::fromStatusT(DEAD_OBJECT);
    return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, result.description().c_str());
}

OutgoingCall::OutgoingCall(const std::shared_ptr<Session>& session, uint64_t object, uint16_t method)
    : mSession(session), mObject(object), mMethod(method) {}

uint64_t OutgoingCall::exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                                    StubDispatch dispatch) {
    if (object == nullptr) return 0;
    const uint64_t id = mSession->exportObject(object, dispatch);
    if (id == 0) mFailed = true;
    return id;
}

Status OutgoingCall::transact(FunctionRef<void(IncomingReply&)> onReply) {
    if (mFailed) return Status::fromStatusT(NO_MEMORY);  // the peer holds too many objects
    return mSession->transact(mObject, mMethod, &mMessage, mFds, &onReply);
}

Status OutgoingCall::transact() {
    return transact([](IncomingReply&) {});
}

Status OutgoingCall::sendOneway() {
    if (mFailed) return Status::fromStatusT(NO_MEMORY);
    return mSession->transact(mObject, mMethod, &mMessage, mFds, nullptr);
}

uint64_t IncomingCall::exportObject(const sp<::android::hidl::base::V1_0::IBase>& object,
                                    StubDispatch dispatch) {
    if (object == nullptr) return 0;
    const uint64_t id = mSession.exportObject(object, dispatch);
    if (id == 0) mFailed = true;
    return id;
}

sp<::android::hidl::base::V1_0::IBase> importBase(Session& session, uint64_t ref,
                                                  MakeProxy makeProxy) {
    return session.importObject(ref, makeProxy);
}

RemoteObject::RemoteObject(std::shared_ptr<Session> session, uint64_t id)
    : mSession(std::move(session)), mId(id) {}

RemoteObject::~RemoteObject() {
    if (!mSession->belongsToThisProcess()) return;
    if (mSession->forgetImport(this)) mSession->sendRelease(mId, mReceived.load());
}

Status RemoteObject::callBaseMethod(uint16_t method, FunctionRef<void(IncomingReply&)> onReply) {
    const OutgoingFds none;
    return mSession->transact(mId, method, nullptr, none, &onReply);
}

bool RemoteObject::linkSessionToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                                      const wp<::android::hidl::base::V1_0::IBase>& who) {
    return mSession->linkToDeath(recipient, cookie, who);
}

bool RemoteObject::unlinkSessionToDeath(const sp<hidl_death_recipient>& recipient) {
    return mSession->unlinkToDeath(recipient);
}

Status remoteInterfaceChain(RemoteObject& object, hidl_vec<hidl_string>& chain) {
    return object.callBaseMethod(kInterfaceChain, [&](IncomingReply& reply) {
        auto list = reply.results<::wire::base::InterfaceChainResults>().getDescriptors();
        chain.resize(list.size());
        for (unsigned i = 0; i < list.size(); ++i) chain[i] = list[i].cStr();
    });
}

Status remoteInterfaceDescriptor(RemoteObject& object, hidl_string& descriptor) {
    return object.callBaseMethod(kInterfaceDescriptor, [&](IncomingReply& reply) {
        descriptor =
                reply.results<::wire::base::InterfaceDescriptorResults>().getDescriptor().cStr();
    });
}

Status remoteDebug(RemoteObject& object, const hidl_handle& fd,
                   const hidl_vec<hidl_string>& options) {
    OutgoingCall call(object.session(), object.remoteId(), kDebug);
    auto list = call.params<::wire::base::DebugParams>().initOptions(unsigned(options.size()));
    for (unsigned i = 0; i < options.size(); ++i) list.set(i, options[i].c_str());
    std::string text;
    Status status = call.transact([&](IncomingReply& reply) {
        auto data = reply.results<::wire::base::DebugResults>().getText();
        text.assign(reinterpret_cast<const char*>(data.begin()), data.size());
    });
    if (!status.isOk()) return status;
    return writeDebugText(fd, text);
}

Status remoteDebugInfo(RemoteObject& object, ::android::hidl::base::V1_0::DebugInfo& info) {
    return object.callBaseMethod(kGetDebugInfo, [&](IncomingReply& reply) {
        auto results = reply.results<::wire::base::DebugInfoResults>();
        info.pid = results.getPid();
        info.ptr = results.getPtr();
        info.arch =
                static_cast<::android::hidl::base::V1_0::DebugInfo::Architecture>(results.getArch());
    });
}

void SerialQueue::post(std::function<void()> task) {
    bool schedule = false;
    {
        AutoMutex guard(mLock);
        mTasks.push_back(std::move(task));
        schedule = !mScheduled;
        mScheduled = true;
    }
    if (schedule) submitToRpcPool([self = shared_from_this()]() { self->drain(); });
}

void SerialQueue::drain() {
    for (;;) {
        std::function<void()> task;
        {
            AutoMutex guard(mLock);
            if (mTasks.empty()) {
                mScheduled = false;
                return;
            }
            task = std::move(mTasks.front());
            mTasks.pop_front();
        }
        task();
    }
}

void registerInterfaceTransport(const std::string& descriptor, InterfaceTransport transport) {
    transports()[descriptor] = std::move(transport);
}

const InterfaceTransport* findInterfaceTransport(const std::string& descriptor) {
    auto it = transports().find(descriptor);
    return it == transports().end() ? nullptr : &it->second;
}

sp<::android::hidl::base::V1_0::IBase> wrapPassthroughBase(
        const sp<::android::hidl::base::V1_0::IBase>& object, const std::string& descriptor) {
    if (object == nullptr || object->isRemote()) return object;
    if (dynamic_cast<PassthroughMarker*>(object.get()) != nullptr) return object;
    const InterfaceTransport* transport = findInterfaceTransport(descriptor);
    if (transport == nullptr || !transport->makePassthrough) return object;
    return transport->makePassthrough(object);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
