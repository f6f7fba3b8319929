#include "SessionCleanup.h"

#include <android/hardware/tv/tuner/1.0/IDemux.h>
#include <android/hardware/tv/tuner/1.0/IDescrambler.h>
#include <android/hardware/tv/tuner/1.0/IDvr.h>
#include <android/hardware/tv/tuner/1.0/IFilter.h>
#include <android/hardware/tv/tuner/1.0/IFrontend.h>
#include <android/hardware/tv/tuner/1.0/ITimeFilter.h>
#include <hidl/transport/SessionCleanup.h>

#include "tunerWire.h"

namespace android {
namespace hardware {
namespace tv {
namespace tuner {
namespace V1_0 {
namespace {

using ::android::hardware::details::SessionCleanup;
using ::android::hidl::base::V1_0::IBase;

// The object as the interface its dispatch serves (the dispatch was chosen by that interface).
template <typename I>
I* as(const sp<IBase>& object) {
    return static_cast<I*>(object.get());
}

// Whatever a close returns, there is no one left to tell.
template <typename I>
void closeIt(const sp<IBase>& object) {
    as<I>(object)->close().isOk();
}

// A frontend tuned or scanning for a client that is gone: stopped as that client would.
void stopFrontend(const sp<IBase>& object) {
    as<IFrontend>(object)->stopScan().isOk();
    as<IFrontend>(object)->stopTune().isOk();
}

// What an open hands out is the opener's until closed; the data path's objects go before the
// demux they belong to, and the frontends last.
SessionCleanup opened(::android::hardware::details::StubDispatch dispatch, const char* what,
                      int order, uint16_t close, void (*putRight)(const sp<IBase>&)) {
    SessionCleanup entry;
    entry.dispatch = dispatch;
    entry.what = what;
    entry.order = order;
    entry.claimedWhenHandedOut = true;
    entry.releasedBy({close});
    entry.putRight = putRight;
    return entry;
}

}  // namespace

void registerTunerSessionCleanup() {
    using namespace ::wire::tuner;
    using ::android::hardware::details::registerSessionCleanup;
    registerSessionCleanup(opened(&ITimeFilterDispatch, "time filter", 0, ITimeFilterMethod::close,
                                  &closeIt<ITimeFilter>));
    registerSessionCleanup(
            opened(&IFilterDispatch, "filter", 1, IFilterMethod::close, &closeIt<IFilter>));
    registerSessionCleanup(opened(&IDvrDispatch, "DVR", 2, IDvrMethod::close, &closeIt<IDvr>));
    registerSessionCleanup(opened(&IDescramblerDispatch, "descrambler", 3,
                                  IDescramblerMethod::close, &closeIt<IDescrambler>));
    registerSessionCleanup(
            opened(&IDemuxDispatch, "demux", 4, IDemuxMethod::close, &closeIt<IDemux>));
    // Frontends are shared: one is a session's when the last setCallback, tune or scan on it came
    // through the session (its events go there), and no stopTune or close came since (a stopped
    // scan leaves the tuner tuned).
    SessionCleanup frontend;
    frontend.dispatch = &IFrontendDispatch;
    frontend.what = "frontend";
    frontend.order = 5;
    frontend.claimedBy({IFrontendMethod::setCallback, IFrontendMethod::tune, IFrontendMethod::scan});
    frontend.releasedBy({IFrontendMethod::stopTune, IFrontendMethod::close});
    frontend.putRight = &stopFrontend;
    registerSessionCleanup(frontend);
}

}  // namespace V1_0
}  // namespace tuner
}  // namespace tv
}  // namespace hardware
}  // namespace android
