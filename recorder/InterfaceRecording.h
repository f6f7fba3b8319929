// What the generated recording wrappers write with: a client's call and its return, a callback
// the service sends, and the numbers that name the service's objects in a trace.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <string>

#include "recorder/TraceRecorder.h"

namespace mox::trace {

// A recording wrapper: a service object is numbered once (1 is the tuner); a client's callback
// object carries the number of the object it was handed to, which its callbacks are recorded
// under.
class RecordedObject {
  public:
    explicit RecordedObject(uint32_t number) : mNumber(number) {}
    uint32_t number() const { return mNumber; }

  protected:
    ~RecordedObject() = default;

  private:
    const uint32_t mNumber;
};

// The wrapper of inner: a callback gets a wrapper of its own under owner's number; a service
// object gets the wrapper it already has, or a new one under its number (the next one the first
// time it is handed out), so its number does not depend on when clients let go of it.
template <typename Wrapper, typename Interface>
android::sp<Interface> numberedWrapper(const android::sp<Interface>& inner, uint32_t owner);

// The wrapper numbered so in this process, or null (a replay issues calls on these).
android::sp<android::hidl::base::V1_0::IBase> objectNumbered(uint32_t number);

// One client call: its record as it starts and another as it returns. Inactive (and free) when
// nothing records.
class InterfaceCall {
  public:
    InterfaceCall(uint32_t object, const char* method);
    bool active() const { return mSink != nullptr; }
    // The arguments' and results' members, "name":value separated by commas.
    std::string& args() { return mArgs; }
    std::string& results() { return mResults; }
    void started();
    // ok false: the call did not reach the object (a transport error).
    void returned(bool ok);

  private:
    TraceSink* const mSink;
    const uint32_t mObject;
    const char* const mMethod;
    const uint32_t mThread;
    std::string mArgs;
    std::string mResults;
};

// A oneway call the service makes to a client's object: onEvent, onScanMessage, ...
void recordCallback(uint32_t owner, const char* method, std::string&& args);

// An interface value in a record: {"object":N} for a numbered one, {"interface":"IFoo"} for one
// that is not recorded, null for none.
void appendObject(std::string& out, const android::sp<android::hidl::base::V1_0::IBase>& object);
void appendInterface(std::string& out, const android::sp<android::hidl::base::V1_0::IBase>& object,
                     const char* interface);

namespace details {
// The numbered wrapper of inner if it is still alive, else registers make()'s under a new number.
android::sp<android::hidl::base::V1_0::IBase> numbered(
        const void* inner, const android::sp<android::hidl::base::V1_0::IBase>& innerBase,
        android::sp<android::hidl::base::V1_0::IBase> (*make)(const void* inner, uint32_t number));
}  // namespace details

template <typename Wrapper, typename Interface>
android::sp<Interface> numberedWrapper(const android::sp<Interface>& inner, uint32_t owner) {
    if (owner != 0) return new Wrapper(inner, owner);
    const auto made = details::numbered(inner.get(), inner, [](const void* object, uint32_t number) {
        return android::sp<android::hidl::base::V1_0::IBase>(new Wrapper(
                android::sp<Interface>(static_cast<Interface*>(const_cast<void*>(object))), number));
    });
    return static_cast<Wrapper*>(made.get());
}

}  // namespace mox::trace
