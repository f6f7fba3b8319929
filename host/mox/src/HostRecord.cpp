// The store behind MoxHostRecord.h, shared by the player and passthrough stand-ins.
#include <utils/Mutex.h>

#include "MoxHostRecord.h"

namespace mox::host {
namespace {

struct Records {
    ::android::Mutex lock;
    std::vector<std::pair<int, int>> smp GUARDED_BY(lock);
    std::vector<TunerPtr> callbacks GUARDED_BY(lock);
    std::vector<TunerPtr> releases GUARDED_BY(lock);
};

Records& records() {
    static Records* instance = new Records();  // outlives every Tuner, also at exit
    return *instance;
}

}  // namespace

void recordSmp(int path, int enable) {
    ::android::Mutex::Autolock guard(records().lock);
    records().smp.emplace_back(path, enable);
}

void recordPassthroughCallback(TunerPtr tuner) {
    ::android::Mutex::Autolock guard(records().lock);
    records().callbacks.push_back(tuner);
}

void recordPassthroughRelease(TunerPtr tuner) {
    ::android::Mutex::Autolock guard(records().lock);
    records().releases.push_back(tuner);
}

std::vector<std::pair<int, int>> smpCalls() {
    ::android::Mutex::Autolock guard(records().lock);
    return records().smp;
}

std::vector<TunerPtr> passthroughCallbacks() {
    ::android::Mutex::Autolock guard(records().lock);
    return records().callbacks;
}

std::vector<TunerPtr> passthroughReleases() {
    ::android::Mutex::Autolock guard(records().lock);
    return records().releases;
}

void clearRecords() {
    ::android::Mutex::Autolock guard(records().lock);
    records().smp.clear();
    records().callbacks.clear();
    records().releases.clear();
}

}  // namespace mox::host
