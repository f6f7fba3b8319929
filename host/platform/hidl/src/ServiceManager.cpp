#include <hidl/ServiceManagement.h>

#include <map>
#include <mutex>
#include <utility>

namespace android {
namespace hardware {
namespace details {
namespace {

using Key = std::pair<std::string, std::string>;  // (descriptor, instance name)

struct Registry {
    std::mutex lock;
    std::map<Key, sp<::android::hidl::base::V1_0::IBase>> services;
};

Registry& registry() {
    static Registry* instance = new Registry();  // never destroyed: services outlive main()
    return *instance;
}

}  // namespace

status_t registerAsServiceInternal(const sp<::android::hidl::base::V1_0::IBase>& service,
                                   const std::string& descriptor, const std::string& name) {
    if (service == nullptr) return BAD_VALUE;
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    return r.services.emplace(Key(descriptor, name), service).second ? OK : ALREADY_EXISTS;
}

sp<::android::hidl::base::V1_0::IBase> getRawServiceInternal(const std::string& descriptor,
                                                             const std::string& name) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.services.find(Key(descriptor, name));
    return it == r.services.end() ? nullptr : it->second;
}

void clearServices() {
    std::map<Key, sp<::android::hidl::base::V1_0::IBase>> dropped;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> guard(r.lock);
        dropped.swap(r.services);
    }
}

}  // namespace details
}  // namespace hardware
}  // namespace android
