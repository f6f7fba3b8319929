// The store behind MoxHostRecord.h, shared by the player and passthrough stand-ins.
#include <mutex>

#include "MoxHostRecord.h"

namespace mox::host {
namespace {

struct Records {
    std::mutex lock;
    std::vector<std::pair<int, int>> smp;
    std::vector<TunerPtr> callbacks;
    std::vector<TunerPtr> releases;
};

Records& records() {
    static Records* instance = new Records();  // outlives every Tuner, also at exit
    return *instance;
}

}  // namespace

void recordSmp(int path, int enable) {
    std::lock_guard<std::mutex> guard(records().lock);
    records().smp.emplace_back(path, enable);
}

void recordPassthroughCallback(TunerPtr tuner) {
    std::lock_guard<std::mutex> guard(records().lock);
    records().callbacks.push_back(tuner);
}

void recordPassthroughRelease(TunerPtr tuner) {
    std::lock_guard<std::mutex> guard(records().lock);
    records().releases.push_back(tuner);
}

std::vector<std::pair<int, int>> smpCalls() {
    std::lock_guard<std::mutex> guard(records().lock);
    return records().smp;
}

std::vector<TunerPtr> passthroughCallbacks() {
    std::lock_guard<std::mutex> guard(records().lock);
    return records().callbacks;
}

std::vector<TunerPtr> passthroughReleases() {
    std::lock_guard<std::mutex> guard(records().lock);
    return records().releases;
}

void clearRecords() {
    std::lock_guard<std::mutex> guard(records().lock);
    records().smp.clear();
    records().callbacks.clear();
    records().releases.clear();
}

}  // namespace mox::host
