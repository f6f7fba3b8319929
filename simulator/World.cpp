#include "simulator/World.h"

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>

#include <string>

#include "simulator/ServiceLogTap.h"
#include "simulator/SimulatedDriver.h"
#include "worldWire.h"

namespace mox::sim {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;

Return<void> World::describe(describe_cb _hidl_cb) {
    _hidl_cb(simulator().describe());
    return Void();
}

Return<void> World::change(const hidl_string& text, change_cb _hidl_cb) {
    WorldChange change;
    std::string error;
    const bool accepted = parseWorldChange(text, change, error) && simulator().change(change, error);
    _hidl_cb(accepted, accepted ? "done: " + std::string(text) : error);
    return Void();
}

Return<void> World::log(uint64_t after, int32_t priority, log_cb _hidl_cb) {
    const ServiceLogExcerpt excerpt = serviceLogSince(after, priority);
    ::android::hardware::hidl_vec<hidl_string> lines;
    lines.resize(excerpt.lines.size());
    for (size_t i = 0; i < lines.size(); ++i) lines[i] = excerpt.lines[i];
    _hidl_cb(excerpt.newest, lines);
    return Void();
}

void registerWorld() {
    // Registration may run before the package's own start-up code: let its objects cross first.
    ::wire::world::registerWorldTransport();
    ::android::sp<World> world = new World();
    const ::android::status_t status = world->registerAsService("default");
    if (status != ::android::OK) ALOGW("the simulated world is not reachable: %d", status);
}

}  // namespace mox::sim

extern "C" ::vendor::mox::simulator::V1_0::IWorld* HIDL_FETCH_IWorld(const char* /*name*/) {
    return new mox::sim::World();
}
