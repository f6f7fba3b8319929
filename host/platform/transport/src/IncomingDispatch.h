// Runs a call that arrived for one of this process's objects: what every interface answers of
// IBase here, the rest through the object's generated dispatch.
#pragma once

#include <capnp/message.h>
#include <hidl/transport/ProxyStub.h>

namespace android {
namespace hardware {
namespace details {

Status serveIncoming(Session& session, uint64_t object, IncomingCall& call);
// The body of a failed call's reply.
void writeCallError(const Status& status, capnp::MessageBuilder& message);

}  // namespace details
}  // namespace hardware
}  // namespace android
