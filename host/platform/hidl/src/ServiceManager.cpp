#include <hidl/ServiceManagement.h>
#include <hidl/transport/Transport.h>
#include <utils/Mutex.h>

#include <map>
#include <utility>

namespace android {
namespace hardware {
namespace details {
namespace {

using Key = std::pair<std::string, std::string>;  // (descriptor, instance name)

struct Registry {
    Mutex lock;
    std::map<Key, sp<::android::hidl::base::V1_0::IBase>> services GUARDED_BY(lock);
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
    {
        AutoMutex guard(r.lock);
        if (!r.services.emplace(Key(descriptor, name), service).second) return ALREADY_EXISTS;
    }
    // Other processes reach it through the host's service directory.
    status_t published = publishService(service, descriptor, name);
    if (published != OK) {
        AutoMutex guard(r.lock);
        r.services.erase(Key(descriptor, name));
    }
    return published;
}

sp<::android::hidl::base::V1_0::IBase> getRawServiceInternal(const std::string& descriptor,
                                                             const std::string& name, bool getStub) {
    sp<::android::hidl::base::V1_0::IBase> local;
    {
        Registry& r = registry();
        AutoMutex guard(r.lock);
        auto it = r.services.find(Key(descriptor, name));
        if (it != r.services.end()) local = it->second;
    }
    if (local != nullptr) return getStub ? local : wrapPassthroughBase(local, descriptor);
    return connectToService(descriptor, name);
}

void clearServices() {
    std::map<Key, sp<::android::hidl::base::V1_0::IBase>> dropped;
    {
        Registry& r = registry();
        AutoMutex guard(r.lock);
        dropped.swap(r.services);
    }
}

}  // namespace details
}  // namespace hardware
}  // namespace android
