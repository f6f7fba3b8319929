// Which session has what to put right when it ends (see SessionCleanup.h): a claim per object,
// over every session of this process, made and dropped as the session's calls run.
#pragma once

#include <hidl/transport/SessionCleanup.h>

namespace android {
namespace hardware {
namespace details {

class Session;

// The session was handed the object for the first time.
void claimHandedOut(Session& session, const sp<::android::hidl::base::V1_0::IBase>& object,
                    StubDispatch dispatch);
// A call of the session's is about to run on the object: a claiming call makes the object the
// session's as it starts, so that another session ending meanwhile leaves it alone.
void noteCallStarting(Session& session, const sp<::android::hidl::base::V1_0::IBase>& object,
                      StubDispatch dispatch, uint16_t method);
// A call of the session's ran on the object.
void noteCallMade(Session& session, const sp<::android::hidl::base::V1_0::IBase>& object,
                  StubDispatch dispatch, uint16_t method);
// The session ended: what it still claims is put right on the RPC pool.
void putRightWhatIsLeft(Session& session);
// The peer let go of the object (its last reference was released) without closing it: an object
// the session claims from being handed out is put right on the RPC pool.
void putRightWhatWasLetGo(Session& session, const sp<::android::hidl::base::V1_0::IBase>& object);

}  // namespace details
}  // namespace hardware
}  // namespace android
