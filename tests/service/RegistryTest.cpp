#include <thread>

#include "tests/service/ServiceTest.h"
#include "tests/support/DeathSpy.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::debugLine;
using Member = lmfg::VelaServiceCallbacks::Member;

class RegistryTest : public ServiceTest {
  protected:
    ~RegistryTest() override { mService.reset(); }

    /** Registers a client of each kind. */
    void addBoth(int64_t id) {
        const std::string name = std::to_string(id);
        EXPECT_EQ("ok", told(mService->registerCallback(
                                id, mCallbacks.emplace_back(make<vts::Callback>(hear(name))))));
        EXPECT_EQ("ok", told(mService->registerSoftVelaClient(
                                id, mSofts.emplace_back(make<vts::SoftClient>(hear(name))))));
    }
    /** Who hears of a feature, and who serves the library. */
    std::string raise() {
        library().featureChanged(0, {});
        (void)library().softSetConfig(0, 0, {});
        return heard();
    }

    std::vector<std::shared_ptr<vts::Callback>> mCallbacks;
    std::vector<std::shared_ptr<vts::SoftClient>> mSofts;
    vela::test::DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

TEST_F(RegistryTest, NullUnregistersItsKindAndIsNoErrorForAnUnknownIdentifier) {
    addBoth(-1);
    const auto ofCallback = mSpy.begin();
    const auto ofSoft = mSpy.begin();
    EXPECT_EQ("ok", told(mService->registerCallback(7, nullptr)));
    EXPECT_EQ("ok", told(mService->registerSoftVelaClient(7, nullptr)));
    EXPECT_EQ(mSpy.unlinked(), 0u);
    EXPECT_EQ("ok", told(mService->registerCallback(-1, nullptr)));
    EXPECT_TRUE(isForgotten(mCallbacks[0]));
    EXPECT_EQ(raise(), "-1(0 0 {})");
    mLog.take();
    EXPECT_EQ("ok", told(mService->registerSoftVelaClient(-1, nullptr)));
    EXPECT_THAT(mLog.take(), ElementsAre(debugLine(
                                     "Register soft vela client: 0xffffffffffffffff,%p", nullptr)));
    EXPECT_TRUE(isForgotten(mSofts[0]));
    EXPECT_EQ(mSpy.unlinked(), 2u);
    EXPECT_EQ(mSpy.recipients(), 0u);
    // A death that is noticed now still has its line.
    ofCallback();
    ofSoft();
    EXPECT_THAT(
            mLog.take(),
            ElementsAre(
                    debugLine("%s", "Noticed AIDL death of IVelaCallback 0xffffffffffffffff"),
                    debugLine("%s", "Noticed AIDL death of ISoftVelaClient 0xffffffffffffffff")));
}

TEST_F(RegistryTest, DeathRemovesTheClientOfItsKindAndIdentifier) {
    addBoth(5);
    mLog.take();
    for (const int32_t kind : {0, 3, -1})
        mService->handleAidlDeath(kind, 5);
    EXPECT_THAT(mLog.take(), IsEmpty());
    mService->handleAidlDeath(1, 4);
    EXPECT_EQ(raise(), "5(0 {})5(0 0 {})");
    mService->handleAidlDeath(2, 5);
    EXPECT_EQ(raise(), "5(0 {})");
    mService->handleAidlDeath(1, 5);
    EXPECT_EQ(raise(), "");
}

TEST_F(RegistryTest, WithoutTheLibraryNothingIsRegisteredOrLogged) {
    EXPECT_EQ("unknown", told(mDegraded->registerCallback(1, make<vts::Callback>())));
    EXPECT_EQ("unknown", told(mDegraded->registerSoftVelaClient(1, make<vts::SoftClient>())));
    EXPECT_EQ(mSpy.recipients(), 0u);
    EXPECT_THAT(mLog.take(), IsEmpty());
}

TEST_F(RegistryTest, TheEndWithdrawsTheClosuresThenUnlinksInTheOrderOfIdentifiers) {
    for (const int64_t id : {5, 1, 3})
        addBoth(id);
    std::vector<AIBinder*> left;  // in the order in which they are to be unlinked
    for (const size_t i : {2u, 4u, 0u, 3u, 5u, 1u})
        left.push_back(mBinders[i].get());
    const std::function<void()> onUnlink = [&] {
        EXPECT_FALSE(library().isSet(Member::kFeatureChanged));
        EXPECT_FALSE(library().isSet(Member::kSoftSetConfig));
        ASSERT_THAT(mSpy.linked(), testing::UnorderedElementsAreArray(left));
        left.erase(left.begin());
        mSpy.onNextUnlink(onUnlink);
    };
    mSpy.onNextUnlink(onUnlink);
    mService.reset();
    mSpy.onNextUnlink(nullptr);
    EXPECT_THAT(left, IsEmpty());
    EXPECT_EQ(mSpy.recipients(), 0u);
}

// Meant for the sanitizers. Only notifications may overlap with the end of the service, which
// withdraws its closures; a composer client may end at any time.
TEST_F(RegistryTest, RegistrationsNotificationsEventsAndTheEndMayOverlap) {
    const auto callback = make<vts::Callback>();
    const auto client = make<vts::SoftClient>();
    const auto compositor = make<vts::Compositor>();
    for (int round = 0; round < 20; ++round) {
        auto service = ndk::SharedRefBase::make<VelaDefault>();
        std::shared_ptr<IVelaComposerClient> composer;
        EXPECT_EQ("ok", told(service->createComposerClient(&composer)));
        std::vector<std::thread> threads;
        const auto repeat = [&threads](auto action) {
            threads.emplace_back([action = std::move(action)] {
                for (int64_t id = 0; id < 20; ++id)
                    action(id % 3);
            });
        };
        repeat([&](int64_t id) { (void)service->registerCallback(id, callback); });
        repeat([&](int64_t id) { (void)service->registerCallback(id, nullptr); });
        repeat([&](int64_t id) { (void)service->registerSoftVelaClient(id, client); });
        repeat([&](int64_t id) { service->handleAidlDeath(2, id); });
        repeat([&, composer = std::move(composer)](int64_t) {
            (void)composer->registerCallback(compositor);
        });
        repeat([&](int64_t) {
            if (const auto notify = mSpy.begin()) notify();
        });
        const auto source = library();
        repeat([source](int64_t id) { source.featureChanged(static_cast<int>(id), {}); });
        repeat([source](int64_t id) { (void)source.softSetConfig(id, 0, {}); });
        repeat([source](int64_t id) { (void)source.contentSampling(id, 0, 0); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ("ok", told(service->registerCallback(1, callback)));
        std::thread platform(mSpy.begin());
        service.reset();
        platform.join();
    }
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
