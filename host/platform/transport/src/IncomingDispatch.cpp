#include "IncomingDispatch.h"

#include <base.capnp.h>
#include <hidl/DebugDump.h>

#include "Session.h"
#include "SessionClaims.h"

namespace android {
namespace hardware {
namespace details {
namespace {

Status serveBase(const sp<::android::hidl::base::V1_0::IBase>& object, IncomingCall& call) {
    switch (call.method()) {
        case kPing:
            return toStatus(object->ping());
        case kInterfaceChain:
            return toStatus(object->interfaceChain([&](const hidl_vec<hidl_string>& chain) {
                auto list = call.results<::wire::base::InterfaceChainResults>().initDescriptors(
                        unsigned(chain.size()));
                for (unsigned i = 0; i < list.size(); ++i) list.set(i, chain[i].c_str());
            }));
        case kInterfaceDescriptor:
            return toStatus(object->interfaceDescriptor([&](const hidl_string& descriptor) {
                call.results<::wire::base::InterfaceDescriptorResults>().setDescriptor(
                        descriptor.c_str());
            }));
        case kDebug: {
            auto list = call.params<::wire::base::DebugParams>().getOptions();
            hidl_vec<hidl_string> options;
            options.resize(list.size());
            for (unsigned i = 0; i < list.size(); ++i) options[i] = list[i].cStr();
            const std::string text = debugDump(object, options);
            call.results<::wire::base::DebugResults>().setText(
                    kj::arrayPtr(reinterpret_cast<const kj::byte*>(text.data()), text.size()));
            return Status::ok();
        }
        case kGetDebugInfo:
            return toStatus(object->getDebugInfo([&](const auto& info) {
                auto results = call.results<::wire::base::DebugInfoResults>();
                results.setPid(info.pid);
                results.setPtr(info.ptr);
                results.setArch(int32_t(info.arch));
            }));
        default:
            return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION, "unknown method");
    }
}

}  // namespace

Status serveIncoming(Session& session, uint64_t object, IncomingCall& call) {
    Session::Export target;
    if (!session.findExport(object, target)) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no such object");
    }
    if (call.method() >= kPing) return serveBase(target.object, call);
    noteCallStarting(session, target.object, target.dispatch, call.method());
    Status status = target.dispatch(target.object, call);
    noteCallMade(session, target.object, target.dispatch, call.method());
    return status;
}

void writeCallError(const Status& status, capnp::MessageBuilder& message) {
    auto error = message.initRoot<::wire::base::CallError>();
    error.setException(status.exceptionCode());
    error.setErrorCode(status.transactionError());
    error.setMessage(status.exceptionMessage().c_str());
}

}  // namespace details
}  // namespace hardware
}  // namespace android
