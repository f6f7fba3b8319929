// HIDL's passthrough mode on the host: a client that gets a service of its own process gets a
// wrapper, not the object. Methods run on the caller's thread, except oneway ones, which are
// queued and run in order on the RPC pool, as binder delivers them; interface objects that cross
// the wrapper are wrapped too. So the service's threads never run a client's callback code.
#pragma once

#include <hidl/transport/Transport.h>

#include <memory>
#include <utility>

namespace android {
namespace hardware {
namespace details {

// Tells a wrapper from the object it wraps.
class PassthroughMarker {
  public:
    virtual ~PassthroughMarker() = default;
};

template <typename I>
class PassthroughBase : public I, public PassthroughMarker {
  public:
    explicit PassthroughBase(sp<I> impl) : mImpl(std::move(impl)) {}

    bool isRemote() const override { return false; }
    Return<void> ping() override { return mImpl->ping(); }
    Return<void> interfaceChain(typename I::interfaceChain_cb _hidl_cb) override {
        return mImpl->interfaceChain(_hidl_cb);
    }
    Return<void> interfaceDescriptor(typename I::interfaceDescriptor_cb _hidl_cb) override {
        return mImpl->interfaceDescriptor(_hidl_cb);
    }
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override {
        return mImpl->debug(fd, options);
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        return mImpl->linkToDeath(recipient, cookie);
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        return mImpl->unlinkToDeath(recipient);
    }

    // The object wrapped: what a service finds when a client hands one of its objects back.
    const sp<I>& impl() const { return mImpl; }

  protected:
    void post(std::function<void()> task) { mOneway->post(std::move(task)); }

  private:
    const sp<I> mImpl;
    const std::shared_ptr<SerialQueue> mOneway = std::make_shared<SerialQueue>();
};

template <typename I>
sp<I> wrapPassthrough(const sp<I>& object) {
    if (object == nullptr) return nullptr;
    sp<::android::hidl::base::V1_0::IBase> wrapped = wrapPassthroughBase(object, I::descriptor);
    return sp<I>(static_cast<I*>(wrapped.get() == object.get() ? object.get()
                                                               : dynamic_cast<I*>(wrapped.get())));
}

// The service's own object behind a passthrough wrapper; any other object as it is. A service
// that recognises the objects it handed out (a filter given back to a DVR) looks through it.
template <typename I>
sp<I> unwrapPassthrough(const sp<I>& object) {
    if (const auto* wrapper = dynamic_cast<const PassthroughBase<I>*>(object.get())) {
        return wrapper->impl();
    }
    return object;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
