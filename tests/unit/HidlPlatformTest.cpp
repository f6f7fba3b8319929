// The host stand-ins of libhidlbase and the generated package behave as the service expects of
// the real ones.
#include <android/hardware/tv/tuner/1.0/ITuner.h>
#include <gtest/gtest.h>
#include <hidl/ServiceManagement.h>
#include <hidl/transport/Passthrough.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

using namespace ::android::hardware;
using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

TEST(HidlPlatformTest, VecCopiesResizesAndConverts) {
    hidl_vec<uint32_t> v{1, 2, 3};
    hidl_vec<uint32_t> copy = v;
    copy[0] = 9;
    EXPECT_EQ(v[0], 1u);
    v.resize(5);
    EXPECT_EQ(v.size(), 5u);
    EXPECT_EQ(std::vector<uint32_t>(v), (std::vector<uint32_t>{1, 2, 3, 0, 0}));
    hidl_vec<bool> flags{false, true, true};
    EXPECT_EQ(flags, (hidl_vec<bool>{false, true, true}));
    hidl_vec<uint32_t> moved = std::move(copy);
    EXPECT_EQ(moved.size(), 3u);
    EXPECT_TRUE(moved.contains(9));
    EXPECT_EQ(hidl_vec<uint8_t>().size(), 0u);
}

TEST(HidlPlatformTest, VecStringAndHandleHaveTheLibraryLayout) {
    static_assert(std::is_standard_layout_v<hidl_vec<uint32_t>>);
    static_assert(sizeof(hidl_vec<uint8_t>) == 16 && alignof(hidl_vec<uint8_t>) == 8);
    static_assert(sizeof(hidl_string) == 16 && sizeof(hidl_handle) == 16);
    static_assert(std::is_same_v<hidl_bitfield<FrontendDvbsStandard>, uint8_t>);

    uint32_t external[3] = {7, 8, 9};
    hidl_vec<uint32_t> view;
    view.setToExternal(external, 3);
    EXPECT_EQ(view.data(), external) << "an external buffer is referenced, not copied";
    hidl_vec<uint32_t> owned = view;
    EXPECT_NE(owned.data(), external) << "a copy owns its elements";
    uint32_t* released = owned.releaseData();
    EXPECT_EQ(owned.size(), 0u);
    EXPECT_EQ(released[2], 9u);
    delete[] released;

    hidl_string name("abc\0def", 7);
    EXPECT_EQ(name.size(), 7u);
    EXPECT_EQ(std::string(name), std::string("abc\0def", 7));
    EXPECT_TRUE(hidl_string("a") < hidl_string("b"));
    EXPECT_EQ(hidl_string(nullptr), "");

    native_handle_t* handle = native_handle_create(0, 1);
    handle->data[0] = 42;
    {
        hidl_handle borrowed(handle);
        hidl_handle clone = borrowed;
        EXPECT_NE(clone.getNativeHandle(), handle) << "a copy clones the handle and owns it";
        EXPECT_EQ(clone->data[0], 42);
    }
    EXPECT_EQ(handle->data[0], 42) << "a borrowed handle outlives its hidl_handle";
    native_handle_delete(handle);
}

TEST(HidlPlatformTest, SafeUnionsStartAtTheFirstAlternative) {
    EXPECT_EQ(FrontendSettings().getDiscriminator(), FrontendSettings::hidl_discriminator::analog);
    EXPECT_EQ(FrontendStatus().getDiscriminator(),
              FrontendStatus::hidl_discriminator::isDemodLocked);
    EXPECT_EQ(FrontendScanMessage().getDiscriminator(),
              FrontendScanMessage::hidl_discriminator::isLocked);
    FrontendSettings settings;
    settings.dvbc(FrontendDvbcSettings{});
    EXPECT_EQ(static_cast<int>(settings.getDiscriminator()), 4) << "dvbs comes before dvbc";
    FrontendStatus status;
    status.mer(-3200);
    EXPECT_EQ(static_cast<uint32_t>(status.getDiscriminator()),
              static_cast<uint32_t>(FrontendStatusType::MER));
}

TEST(HidlPlatformTest, ReadingAnInactiveAlternativeAborts) {
    FrontendSettings settings;
    settings.dvbt(FrontendDvbtSettings{});
    EXPECT_DEATH(settings.dvbc(), "Bad safe_union access");
}

TEST(HidlPlatformTest, EnumerationsHaveTheirNamesAndValues) {
    EXPECT_EQ(toString(Result::INVALID_ARGUMENT), "INVALID_ARGUMENT");
    EXPECT_EQ(toString(static_cast<Result>(42)), "0x2a");
    EXPECT_EQ(toString(FrontendInnerFec::FEC_26_45), "FEC_26_45");
    // The interface file shifts a 32-bit 1 by 31 to 35 places; the generated header holds the
    // 32-bit results: sign-extended for 31, wrapped for 32 and beyond.
    EXPECT_EQ(static_cast<uint64_t>(FrontendInnerFec::FEC_26_45), 0x40000000ull);
    EXPECT_EQ(static_cast<uint64_t>(FrontendInnerFec::FEC_28_45), 0xFFFFFFFF80000000ull);
    EXPECT_EQ(static_cast<uint64_t>(FrontendInnerFec::FEC_29_45), 0x1ull);
    EXPECT_EQ(static_cast<uint64_t>(FrontendInnerFec::FEC_77_90), 0x8ull);
    EXPECT_EQ(toString(FrontendInnerFec::FEC_29_45), "AUTO") << "the first enumerator of a value";
    EXPECT_EQ(toString(FrontendInnerFec::FEC_77_90), "FEC_1_4");
    static_assert(std::is_same_v<std::underlying_type_t<Constant>, uint32_t>);
    EXPECT_EQ(static_cast<uint32_t>(Constant::INVALID_TS_PID), 0xFFFFu);
    EXPECT_EQ(static_cast<uint32_t>(Constant::INVALID_FILTER_ID), 0xFFFFFFFFu);
    // The numbering getStatus and discovery rely on: a status type's number is its union index.
    EXPECT_EQ(static_cast<uint32_t>(FrontendStatusType::DEMOD_LOCK), 0u);
    EXPECT_EQ(static_cast<uint32_t>(FrontendStatusType::PLP_ID), 12u);
    EXPECT_EQ(static_cast<uint32_t>(FrontendStatusType::RF_LOCK), 20u);
    EXPECT_EQ(static_cast<uint32_t>(FrontendStatusType::ATSC3_PLP_INFO), 21u);
    EXPECT_EQ(toString(FrontendStatusType::ATSC3_PLP_INFO), "ATSC3_PLP_INFO");
    EXPECT_EQ(static_cast<uint32_t>(FrontendStatusType::MER), 17u);
    std::vector<FrontendStatusType> all;
    for (FrontendStatusType t : hidl_enum_range<FrontendStatusType>()) all.push_back(t);
    EXPECT_EQ(all.size(), 22u);
    EXPECT_EQ(FrontendDvbcAnnex::A | FrontendDvbcAnnex::C, 5);
}

TEST(HidlPlatformTest, RegistryHandsOutTheRegisteredServiceOnce) {
    details::clearServices();
    EXPECT_EQ(ITuner::getService("default"), nullptr);
    struct NullTuner : ITuner {
        Return<void> getFrontendIds(getFrontendIds_cb) override { return Void(); }
        Return<void> openFrontendById(uint32_t, openFrontendById_cb) override { return Void(); }
        Return<void> openDemux(openDemux_cb) override { return Void(); }
        Return<void> getDemuxCaps(getDemuxCaps_cb) override { return Void(); }
        Return<void> openDescrambler(openDescrambler_cb) override { return Void(); }
        Return<void> getFrontendInfo(uint32_t, getFrontendInfo_cb) override { return Void(); }
        Return<void> getLnbIds(getLnbIds_cb) override { return Void(); }
        Return<void> openLnbById(uint32_t, openLnbById_cb) override { return Void(); }
        Return<void> openLnbByName(const hidl_string&, openLnbByName_cb) override { return Void(); }
    };
    ::android::sp<ITuner> tuner = new NullTuner();
    EXPECT_EQ(tuner->registerAsService(), ::android::OK);
    EXPECT_EQ(ITuner::getService("default", true), tuner) << "getStub: the object itself";
    ::android::sp<ITuner> wrapped = ITuner::getService();
    ASSERT_NE(wrapped, nullptr);
    EXPECT_NE(wrapped, tuner) << "a client of the same process gets the passthrough wrapper";
    EXPECT_FALSE(wrapped->isRemote());
    EXPECT_EQ(tuner->registerAsService("default"), ::android::ALREADY_EXISTS);
    EXPECT_EQ(IFrontend::getService("default"), nullptr) << "another interface, another name";

    std::vector<std::string> chain;
    tuner->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
        for (const auto& d : descriptors) chain.push_back(d);
    });
    EXPECT_EQ(chain, (std::vector<std::string>{"android.hardware.tv.tuner@1.0::ITuner",
                                               "android.hidl.base@1.0::IBase"}));
    ::android::sp<::android::hidl::base::V1_0::IBase> base = tuner;
    EXPECT_EQ(ITuner::castFrom(base).withDefault(nullptr), tuner);
    EXPECT_EQ(IFrontend::castFrom(base).withDefault(nullptr), nullptr);
    details::clearServices();
}

// Oneway calls through the passthrough wrapper return at once and run later, one at a time, in
// the order they were made.
TEST(HidlPlatformTest, PassthroughDeliversOnewayCallsLaterAndInOrder) {
    struct GatedCallback : IFrontendCallback {
        std::mutex lock;
        std::condition_variable changed;
        bool open = false;
        std::vector<FrontendEventType> seen;
        std::thread::id runsOn;
        Return<void> onEvent(FrontendEventType event) override {
            std::unique_lock<std::mutex> guard(lock);
            changed.wait(guard, [&] { return open; });
            seen.push_back(event);
            runsOn = std::this_thread::get_id();
            changed.notify_all();
            return Void();
        }
        Return<void> onScanMessage(FrontendScanMessageType, const FrontendScanMessage&) override {
            return Void();
        }
    };
    ::android::sp<GatedCallback> target = new GatedCallback();
    ::android::sp<IFrontendCallback> wrapped =
            details::wrapPassthrough(::android::sp<IFrontendCallback>(target));
    ASSERT_NE(wrapped.get(), target.get());
    EXPECT_EQ(details::wrapPassthrough(wrapped), wrapped) << "a wrapper is not wrapped again";
    const std::vector<FrontendEventType> sent{
            FrontendEventType::LOCKED, FrontendEventType::LOST_LOCK, FrontendEventType::NO_SIGNAL};
    for (FrontendEventType event : sent) EXPECT_TRUE(wrapped->onEvent(event).isOk());
    std::unique_lock<std::mutex> guard(target->lock);
    EXPECT_TRUE(target->seen.empty()) << "the calls returned before the callback ran";
    target->open = true;
    target->changed.notify_all();
    ASSERT_TRUE(target->changed.wait_for(guard, std::chrono::seconds(10),
                                         [&] { return target->seen.size() == sent.size(); }));
    EXPECT_EQ(target->seen, sent);
    EXPECT_NE(target->runsOn, std::this_thread::get_id());
}

TEST(HidlPlatformTest, ReturnCarriesValueOrStatus) {
    Return<Result> ok = Result::SUCCESS;
    EXPECT_TRUE(ok.isOk());
    EXPECT_EQ(static_cast<Result>(ok), Result::SUCCESS);
    Return<Result> failed = Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    EXPECT_FALSE(failed.isOk());
    EXPECT_EQ(failed.withDefault(Result::UNKNOWN_ERROR), Result::UNKNOWN_ERROR);
    EXPECT_DEATH(static_cast<void>(static_cast<Result>(failed)), "failed HIDL call");
}

}  // namespace
