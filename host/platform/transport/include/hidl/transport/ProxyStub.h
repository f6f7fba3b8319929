// The shapes the generated proxies and stubs are built on: what every proxy answers of IBase, how
// it calls across, and how a stub runs the object's method on the RPC pool.
#pragma once

#include <base.capnp.h>
#include <hidl/DebugDump.h>
#include <hidl/transport/Transport.h>

#include <deque>
#include <memory>
#include <utility>

namespace android {
namespace hardware {
namespace details {

// Runs work on the pool and finishes the call on the transport thread: a failed Return becomes a
// failed call on the other side.
kj::Promise<void> runOnPool(std::function<return_status()> work, std::function<void()> finish);

template <typename I>
class StubBase : public virtual ::wire::base::Base::Server {
  public:
    StubBase(sp<I> impl, std::shared_ptr<Connection> connection)
        : mImpl(std::move(impl)), mConnection(std::move(connection)) {}

  protected:
    const std::shared_ptr<Connection>& connection() const { return mConnection; }

    kj::Promise<void> dispatch(std::function<return_status(const sp<I>&)> work,
                               std::function<void()> writeResults) {
        sp<I> impl = mImpl;
        return runOnPool([impl, work = std::move(work)]() { return work(impl); },
                         std::move(writeResults));
    }
    kj::Promise<void> deliverOneway(std::function<return_status(const sp<I>&)> work) {
        sp<I> impl = mImpl;
        mOneway->post([impl, work = std::move(work)]() { work(impl).isOkUnchecked(); });
        return kj::READY_NOW;
    }

    kj::Promise<void> ping(PingContext) override {
        return dispatch([](const sp<I>& impl) -> return_status { return impl->ping(); }, [] {});
    }
    kj::Promise<void> interfaceChain(InterfaceChainContext context) override {
        auto chain = std::make_shared<std::vector<std::string>>();
        return dispatch(
                [chain](const sp<I>& impl) -> return_status {
                    return impl->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
                        for (const auto& d : descriptors) chain->push_back(d);
                    });
                },
                [chain, context]() mutable {
                    auto list = context.getResults().initDescriptors(chain->size());
                    for (unsigned i = 0; i < chain->size(); ++i) list.set(i, (*chain)[i]);
                });
    }
    kj::Promise<void> interfaceDescriptor(InterfaceDescriptorContext context) override {
        context.getResults().setDescriptor(I::descriptor);
        return kj::READY_NOW;
    }
    kj::Promise<void> debug(DebugContext context) override {
        auto options = std::make_shared<hidl_vec<hidl_string>>();
        auto list = context.getParams().getOptions();
        options->resize(list.size());
        for (unsigned i = 0; i < list.size(); ++i) (*options)[i] = list[i].cStr();
        auto text = std::make_shared<std::string>();
        return dispatch(
                [options, text](const sp<I>& impl) -> return_status {
                    *text = debugDump(impl, *options);
                    return Void();
                },
                [text, context]() mutable {
                    context.getResults().setText(kj::arrayPtr(
                            reinterpret_cast<const kj::byte*>(text->data()), text->size()));
                });
    }

  private:
    const sp<I> mImpl;
    const std::shared_ptr<Connection> mConnection;
    const std::shared_ptr<SerialQueue> mOneway = std::make_shared<SerialQueue>();
};

// Makes the capability that serves a local object to the other side of a connection.
template <typename Stub, typename I>
typename Stub::Wire::Client stubFor(const sp<I>& impl, const std::shared_ptr<Connection>& c) {
    return typename Stub::Wire::Client(kj::heap<Stub>(impl, c));
}

// Calls a remote object on the transport thread, from any other thread, and waits for the answer
// or the death of the connection.
Status callAcross(Connection& connection, const std::function<kj::Promise<void>()>& send);
Status sendOnewayAcross(Connection& connection, const std::function<void()>& send);

template <typename I, typename W>
class ProxyBase : public I {
  public:
    ProxyBase(typename W::Client client, std::shared_ptr<Connection> connection)
        : mClient(kj::heap<typename W::Client>(kj::mv(client))),
          mConnection(std::move(connection)) {}
    ~ProxyBase() noexcept override {
        // The capability lives on the transport thread and is dropped there.
        runOnTransportThread([this]() { mClient = nullptr; });
    }

    bool isRemote() const override { return true; }

    Return<void> ping() override {
        return call([](typename W::Client& c) { return c.pingRequest().send().ignoreResult(); });
    }
    Return<void> interfaceChain(typename I::interfaceChain_cb _hidl_cb) override {
        hidl_vec<hidl_string> chain;
        Status status = call([&](typename W::Client& c) {
            return c.interfaceChainRequest().send().then([&](auto&& response) {
                auto list = response.getDescriptors();
                chain.resize(list.size());
                for (unsigned i = 0; i < list.size(); ++i) chain[i] = list[i].cStr();
            });
        });
        if (!status.isOk()) return status;
        _hidl_cb(chain);
        return Void();
    }
    Return<void> interfaceDescriptor(typename I::interfaceDescriptor_cb _hidl_cb) override {
        hidl_string descriptor;
        Status status = call([&](typename W::Client& c) {
            return c.interfaceDescriptorRequest().send().then(
                    [&](auto&& response) { descriptor = response.getDescriptor().cStr(); });
        });
        if (!status.isOk()) return status;
        _hidl_cb(descriptor);
        return Void();
    }
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override;
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        if (recipient == nullptr) return false;
        return mConnection->linkToDeath(recipient, cookie,
                                        wp<::android::hidl::base::V1_0::IBase>(this));
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        return mConnection->unlinkToDeath(recipient);
    }

  protected:
    const std::shared_ptr<Connection>& connection() const { return mConnection; }

    template <typename F>
    Status call(F&& f) {
        return callAcross(*mConnection, [&]() { return f(*mClient); });
    }
    template <typename F>
    Status sendOneway(F&& f) {
        return sendOnewayAcross(*mConnection, [&]() {
            auto request = f(*mClient);
            request.send().detach([](kj::Exception&&) {});
        });
    }

  private:
    kj::Own<typename W::Client> mClient;  // used on the transport thread only
    const std::shared_ptr<Connection> mConnection;
};

Status writeDebugText(const hidl_handle& fd, const std::string& text);

template <typename I, typename W>
Return<void> ProxyBase<I, W>::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    std::string text;
    Status status = call([&](typename W::Client& c) {
        auto request = c.debugRequest();
        auto list = request.initOptions(options.size());
        for (unsigned i = 0; i < options.size(); ++i) list.set(i, options[i].c_str());
        return request.send().then([&](auto&& response) {
            auto data = response.getText();
            text.assign(reinterpret_cast<const char*>(data.begin()), data.size());
        });
    });
    if (!status.isOk()) return status;
    return writeDebugText(fd, text);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
