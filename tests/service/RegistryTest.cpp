#include <future>
#include <thread>

#include "tests/service/ServiceTest.h"
#include "tests/support/DeathSpy.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::DeathSpy;
using vela::test::debugLine;
using vela::test::LogLine;

/** What tells the two kinds of clients apart. */
struct CallbackKind {
    using Client = MockCallback;
    using Interface = IVelaCallback;
    static constexpr int kNumber = 1;
    static constexpr char kRegisterText[] = "Register callback: 0x%lx,%p";
    static constexpr char kDeathText[] = "Noticed AIDL death of IVelaCallback 0x%lx";
    static constexpr auto kAdd = &VelaDefault::registerCallback;

    static void expectEvents(Client& client, int count) {
        EXPECT_CALL(client, onFeatureChanged).Times(count);
    }
    static void raise(const lmfg::VelaServiceCallbacks& library) { library.featureChanged(1, {}); }
};

struct SoftClientKind {
    using Client = MockSoftClient;
    using Interface = ISoftVelaClient;
    static constexpr int kNumber = 2;
    static constexpr char kRegisterText[] = "Register soft vela client: 0x%lx,%p";
    static constexpr char kDeathText[] = "Noticed AIDL death of ISoftVelaClient 0x%lx";
    static constexpr auto kAdd = &VelaDefault::registerSoftVelaClient;

    static void expectEvents(Client& client, int count) {
        EXPECT_CALL(client, setConfig).Times(count);
    }
    static void raise(const lmfg::VelaServiceCallbacks& library) {
        (void)library.softSetConfig(0, 0, {});
    }
};

template <typename Kind>
class RegistryTest : public ServiceTest {
  protected:
    using Client = std::shared_ptr<testing::NiceMock<typename Kind::Client>>;

    ~RegistryTest() override { mService.reset(); }

    /** A client whose binder lives, as one does whose client is another process. */
    Client make() {
        Client client = makeClient<typename Kind::Client>();
        mBinders.push_back(client->asBinder());
        return client;
    }
    /** Whether only the test and the client's own binder hold it. */
    static bool isForgotten(const Client& client) { return client.use_count() == 2; }
    std::string add(int64_t id, const std::shared_ptr<typename Kind::Interface>& client) {
        return told(((*mService).*Kind::kAdd)(id, client));
    }
    static LogLine registered(int64_t id, const typename Kind::Interface* client) {
        return debugLine(Kind::kRegisterText, static_cast<unsigned long>(id),
                         static_cast<const void*>(client));
    }
    static LogLine died(int64_t id) {
        return debugLine(Kind::kDeathText, static_cast<unsigned long>(id));
    }
    /** Raises an event, which is to reach the client as often as said. */
    static void expectEvents(const Client& client, int count) {
        Kind::expectEvents(*client, count);
        Kind::raise(library());
        testing::Mock::VerifyAndClearExpectations(client.get());
    }

    std::vector<ndk::SpAIBinder> mBinders;
    DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

using Kinds = testing::Types<CallbackKind, SoftClientKind>;
TYPED_TEST_SUITE(RegistryTest, Kinds);

TYPED_TEST(RegistryTest, ReplacesUnlinksLinksAndLogs) {
    const auto first = this->make();
    const auto second = this->make();
    EXPECT_EQ("ok", this->add(-1, first));
    this->expectEvents(first, 1);
    ASSERT_EQ(this->mSpy.links().size(), 1u);
    EXPECT_EQ(this->mSpy.links()[0].binder, first->asBinder().get());

    EXPECT_EQ("ok", this->add(-1, second));
    EXPECT_EQ(this->mSpy.unlinked(), 1u);
    EXPECT_EQ(this->mSpy.recipients(), 1u);
    ASSERT_EQ(this->mSpy.links().size(), 1u);
    EXPECT_EQ(this->mSpy.links()[0].binder, second->asBinder().get());
    EXPECT_TRUE(this->isForgotten(first));
    EXPECT_THAT(this->mLog.take(),
                ElementsAre(this->registered(-1, first.get()), this->registered(-1, second.get())));

    EXPECT_EQ("ok", this->add(-1, second));
    EXPECT_EQ(this->mSpy.unlinked(), 2u);
    EXPECT_EQ(this->mSpy.links().size(), 1u);
    this->expectEvents(first, 0);
    this->expectEvents(second, 1);
}

TYPED_TEST(RegistryTest, UnregistersByNullWhichIsNoErrorForAnUnknownIdentifier) {
    const auto client = this->make();
    EXPECT_EQ("ok", this->add(INT64_MIN, client));
    EXPECT_EQ("ok", this->add(INT64_MAX, nullptr));
    EXPECT_EQ(this->mSpy.unlinked(), 0u);
    this->expectEvents(client, 1);

    EXPECT_EQ("ok", this->add(INT64_MIN, nullptr));
    EXPECT_EQ(this->mSpy.unlinked(), 1u);
    EXPECT_EQ(this->mSpy.recipients(), 0u);
    EXPECT_TRUE(this->isForgotten(client));
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->registered(INT64_MIN, client.get()),
                                               this->registered(INT64_MAX, nullptr),
                                               this->registered(INT64_MIN, nullptr)));
    this->expectEvents(client, 0);
}

TYPED_TEST(RegistryTest, DeathRemovesTheClientAndItsRecordWithinItsNotification) {
    const auto client = this->make();
    const auto other = this->make();
    EXPECT_EQ("ok", this->add(-16, client));
    EXPECT_EQ("ok", this->add(7, other));
    this->mLog.take();
    this->mSpy.die();
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->died(-16)));
    EXPECT_EQ(this->mSpy.recipients(), 1u);
    EXPECT_TRUE(this->isForgotten(client));
    this->expectEvents(client, 0);

    // An unknown identifier is only logged, an unknown kind and a missing cookie not even that.
    this->mService->handleAidlDeath(TypeParam::kNumber, 2);
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->died(2)));
    for (const int32_t kind : {0, 3, -1})
        this->mService->handleAidlDeath(kind, 7);
    this->mSpy.dieWithoutCookie();
    EXPECT_THAT(this->mLog.take(), IsEmpty());
    EXPECT_FALSE(this->isForgotten(other));

    EXPECT_EQ("ok", this->add(-16, client));
    this->expectEvents(client, 1);
}

TYPED_TEST(RegistryTest, ANotificationUnderWayOnlyWritesItsLineOnceItsRegistrationHasLetGo) {
    const auto client = this->make();
    const auto next = this->make();
    EXPECT_EQ("ok", this->add(1, client));
    auto ofReplaced = this->mSpy.begin();
    EXPECT_EQ("ok", this->add(1, client));
    auto ofRemoved = this->mSpy.begin();
    EXPECT_EQ("ok", this->add(1, nullptr));
    // Where records were freed too early, this one would have the address of an earlier one.
    EXPECT_EQ("ok", this->add(1, next));
    this->mLog.take();
    ofReplaced.deliver();
    ofRemoved.deliver();
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->died(1), this->died(1)));
    this->expectEvents(next, 1);

    auto ofDestroyed = this->mSpy.begin();
    this->mService.reset();
    ofDestroyed.deliver();
    EXPECT_THAT(this->mLog.take(), IsEmpty());
    EXPECT_EQ(this->mSpy.unlinked(), 3u);
    EXPECT_EQ(this->mSpy.recipients(), 0u);
}

// The line is written before the lock is taken: there a notification can be held.
TYPED_TEST(RegistryTest, ANotificationThatWaitsForTheLockRemovesNoLaterClient) {
    const auto client = this->make();
    const auto next = this->make();
    EXPECT_EQ("ok", this->add(1, client));
    this->mLog.onNextLine([&] { EXPECT_EQ("ok", this->add(1, next)); });
    this->mSpy.die();
    EXPECT_TRUE(this->isForgotten(client));
    this->expectEvents(next, 1);
}

TYPED_TEST(RegistryTest, WithoutTheLibraryNothingIsRegisteredOrLogged) {
    EXPECT_EQ("unknown", told(((*this->mDegraded).*TypeParam::kAdd)(1, this->make())));
    EXPECT_EQ("unknown", told(((*this->mDegraded).*TypeParam::kAdd)(1, nullptr)));
    EXPECT_EQ(this->mSpy.recipients(), 0u);
    EXPECT_THAT(this->mLog.take(), IsEmpty());
}

class BothKindsTest : public ServiceTest {
  protected:
    ~BothKindsTest() override { mService.reset(); }

    DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

TEST_F(BothKindsTest, OneIdentifierMayNameOneOfEachAndEachDiesAlone) {
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    const ndk::SpAIBinder binders[] = {callback->asBinder(), client->asBinder()};
    EXPECT_EQ("ok", told(mService->registerCallback(5, callback)));
    EXPECT_EQ("ok", told(mService->registerSoftVelaClient(5, client)));
    auto ofCallback = mSpy.begin();
    mSpy.die();
    EXPECT_CALL(*callback, onFeatureChanged);
    library().featureChanged(0, {});
    EXPECT_EQ(library().softSetConfig(0, 0, {}), -1);
    ofCallback.deliver();
    library().featureChanged(0, {});

    EXPECT_EQ("ok", told(mService->registerSoftVelaClient(5, client)));
    // One that arrives while the service goes has no owner to tell.
    auto ofLast = mSpy.begin();
    mSpy.onNextUnlink([&] { ofLast.deliver(); });
    mLog.take();
    mService.reset();
    EXPECT_THAT(mLog.take(), IsEmpty());
    EXPECT_EQ(mSpy.unlinked(), 2u);
    EXPECT_EQ(mSpy.recipients(), 0u);
}

// Meant for the sanitizers.
TEST_F(BothKindsTest, RegistrationsNotificationsAndEventsMayOverlap) {
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    const auto source = library();
    std::vector<std::thread> threads;
    const auto repeat = [&](auto action) {
        threads.emplace_back([action] {
            for (int64_t round = 0; round < 200; ++round)
                action(round % 3);
        });
    };
    repeat([&](int64_t id) { (void)mService->registerCallback(id, callback); });
    repeat([&](int64_t id) { (void)mService->registerSoftVelaClient(id, client); });
    repeat([&](int64_t) {
        if (auto notification = mSpy.beginAny()) notification->deliver();
    });
    repeat([&](int64_t id) { (void)mService->registerCallback(id, nullptr); });
    repeat([&](int64_t id) { mService->handleAidlDeath(2, id); });
    repeat([&](int64_t id) { source.featureChanged(static_cast<int>(id), {}); });
    repeat([&](int64_t id) { (void)source.softSetConfig(id, 0, {}); });
    for (std::thread& thread : threads)
        thread.join();
}

// Meant for the sanitizers, too: the last owner goes while notifications run.
TEST_F(BothKindsTest, NotificationsMayOverlapWithTheEndOfTheService) {
    for (int round = 0; round < 100; ++round) {
        std::promise<void> begun;
        auto last = ndk::SharedRefBase::make<VelaDefault>();
        EXPECT_EQ("ok", told(last->registerCallback(1, makeClient<MockCallback>())));
        std::thread platform([&, notification = mSpy.beginAny()]() mutable {
            begun.set_value();
            notification->deliver();
        });
        begun.get_future().wait();
        last.reset();
        platform.join();
    }
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
