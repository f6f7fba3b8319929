#include "recorder/InterfaceRecording.h"

#include <utils/Mutex.h>

#include <map>

#include "recorder/JsonText.h"

namespace mox::trace {
namespace {

using android::sp;
using android::wp;
using android::hidl::base::V1_0::IBase;

struct Numbers {
    android::Mutex lock;
    uint32_t next GUARDED_BY(lock) = 1;
    // Per service object: the object (to tell a new one at the same address), its wrapper while
    // one lives, and its number, which stays the object's for its whole life.
    struct Entry {
        wp<IBase> inner;
        wp<IBase> wrapper;
        uint32_t number;
    };
    std::map<const void*, Entry> byInner GUARDED_BY(lock);
    std::map<uint32_t, wp<IBase>> byNumber GUARDED_BY(lock);
};

Numbers& numbers() {
    static Numbers* instance = new Numbers();  // outlives the binder threads at exit
    return *instance;
}

void writeRecord(TraceSink* sink, uint64_t timeUs, uint32_t thread, const char* kind,
                 const char* method, uint32_t object, const char* members, const std::string& body) {
    std::string text = "\"";
    text += kind;
    text += "\":\"";
    text += method;
    text += "\",\"object\":";
    appendUnsigned(text, object);
    if (members != nullptr) {
        text += ",\"";
        text += members;
        text += "\":{";
        text += body;
        text += '}';
    }
    sink->interfaceRecord(timeUs, thread, std::move(text));
}

}  // namespace

namespace details {

sp<IBase> numbered(const void* inner, const sp<IBase>& innerBase,
                   sp<IBase> (*make)(const void* inner, uint32_t number)) {
    Numbers& n = numbers();
    android::Mutex::Autolock guard(n.lock);
    auto found = n.byInner.find(inner);
    uint32_t number = 0;
    if (found != n.byInner.end() && found->second.inner.promote() == innerBase) {
        sp<IBase> alive = found->second.wrapper.promote();
        if (alive != nullptr) return alive;
        number = found->second.number;  // the same object handed out again: the same number
    } else if (found != n.byInner.end()) {
        n.byNumber.erase(found->second.number);
    }
    if (number == 0) number = n.next++;
    sp<IBase> wrapper = make(inner, number);
    n.byInner[inner] = {innerBase, wrapper, number};
    n.byNumber[number] = wrapper;
    return wrapper;
}

}  // namespace details

sp<IBase> objectNumbered(uint32_t number) {
    Numbers& n = numbers();
    android::Mutex::Autolock guard(n.lock);
    const auto found = n.byNumber.find(number);
    return found != n.byNumber.end() ? found->second.promote() : nullptr;
}

InterfaceCall::InterfaceCall(uint32_t object, const char* method)
    : mSink(activeSink()), mObject(object), mMethod(method), mThread(traceThread()) {}

void InterfaceCall::started() {
    if (mSink == nullptr) return;
    writeRecord(mSink, traceNowUs(), mThread, "call", mMethod, mObject, "args", mArgs);
}

void InterfaceCall::returned(bool ok) {
    if (mSink == nullptr) return;
    writeRecord(mSink, traceNowUs(), mThread, "return", mMethod, mObject,
                ok ? "results" : "transportError", mResults);
}

void recordCallback(uint32_t owner, const char* method, std::string&& args) {
    TraceSink* sink = activeSink();
    if (sink == nullptr) return;
    writeRecord(sink, traceNowUs(), traceThread(), "callback", method, owner, "args", args);
}

void appendObject(std::string& out, const sp<IBase>& object) {
    const auto* recorded = dynamic_cast<const RecordedObject*>(object.get());
    if (recorded == nullptr) {
        appendInterface(out, object, "IBase");
        return;
    }
    out += "{\"object\":";
    appendUnsigned(out, recorded->number());
    out += '}';
}

void appendInterface(std::string& out, const sp<IBase>& object, const char* interface) {
    if (object == nullptr) {
        out += "null";
        return;
    }
    out += "{\"interface\":\"";
    out += interface;
    out += "\"}";
}

}  // namespace mox::trace
