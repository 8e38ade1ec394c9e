#include <cstdio>
#include <thread>

#include "tests/service/ServiceTest.h"
#include "tests/support/DeathSpy.h"
#include "tests/support/LogCapture.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::DeathLink;
using vela::test::DeathSpy;
using vela::test::LogCapture;
using vela::test::LogLine;

/** What tells the two kinds of clients apart. */
struct CallbackKind {
    using Client = MockCallback;
    using Interface = IVelaCallback;
    static constexpr int kNumber = 1;
    static constexpr char kRegisterText[] = "Register callback: 0x%lx,%p";
    static constexpr char kDeathText[] = "Noticed AIDL death of IVelaCallback 0x%lx";

    static ndk::ScopedAStatus add(VelaDefault& service, int64_t id,
                                  const std::shared_ptr<Interface>& client) {
        return service.registerCallback(id, client);
    }
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

    static ndk::ScopedAStatus add(VelaDefault& service, int64_t id,
                                  const std::shared_ptr<Interface>& client) {
        return service.registerSoftVelaClient(id, client);
    }
    static void expectEvents(Client& client, int count) {
        EXPECT_CALL(client, setConfig).Times(count);
    }
    static void raise(const lmfg::VelaServiceCallbacks& library) {
        (void)library.softSetConfig(0, 0, {});
    }
};

template <typename... Arguments>
LogLine line(const char* format, Arguments... arguments) {
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    return {ANDROID_LOG_DEBUG, text};
}

template <typename Kind>
class RegistryTest : public ServiceTest {
  protected:
    using Client = std::shared_ptr<testing::NiceMock<typename Kind::Client>>;

    /** A client whose binder lives, as one does whose client is another process. */
    Client make() {
        Client client = makeClient<typename Kind::Client>();
        mBinders.push_back(client->asBinder());
        return client;
    }
    /** Whether only the test and the client's own binder hold it. */
    static bool isForgotten(const Client& client) { return client.use_count() == 2; }
    ndk::ScopedAStatus add(int64_t id, const std::shared_ptr<typename Kind::Interface>& client) {
        return Kind::add(*mService, id, client);
    }
    LogLine registered(int64_t id, const typename Kind::Interface* client) {
        return line(Kind::kRegisterText, static_cast<unsigned long>(id),
                    static_cast<const void*>(client));
    }
    LogLine died(int64_t id) { return line(Kind::kDeathText, static_cast<unsigned long>(id)); }
    /** Raises an event, which is to reach the client as often as said. */
    void expectEvents(const Client& client, int count) {
        Kind::expectEvents(*client, count);
        Kind::raise(library());
        testing::Mock::VerifyAndClearExpectations(client.get());
    }

    std::vector<ndk::SpAIBinder> mBinders;
    const DeathSpy mSpy;
    LogCapture mLog;
};

using Kinds = testing::Types<CallbackKind, SoftClientKind>;
TYPED_TEST_SUITE(RegistryTest, Kinds);

TYPED_TEST(RegistryTest, RegistersLinksAndLogs) {
    const auto client = this->make();
    ASSERT_TRUE(this->add(0x2a, client).isOk());
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->registered(0x2a, client.get())));
    ASSERT_EQ(this->mSpy.links().size(), 1u);
    EXPECT_EQ(this->mSpy.links()[0].binder, client->asBinder().get());
    // The platform links no local client; it is registered all the same.
    this->expectEvents(client, 1);
}

TYPED_TEST(RegistryTest, ReplacingUnlinksThePreviousClient) {
    const auto first = this->make();
    const auto second = this->make();
    ASSERT_TRUE(this->add(-1, first).isOk());
    ASSERT_EQ(this->mSpy.links().size(), 1u);
    const DeathLink old = this->mSpy.links()[0];
    ASSERT_TRUE(this->add(-1, second).isOk());
    EXPECT_EQ(this->mSpy.unlinked(), 1u);
    EXPECT_EQ(this->mSpy.recipients(), 1u);
    ASSERT_EQ(this->mSpy.links().size(), 1u);
    EXPECT_EQ(this->mSpy.links()[0].binder, second->asBinder().get());
    EXPECT_TRUE(this->isForgotten(first));
    EXPECT_THAT(this->mLog.take(),
                ElementsAre(this->registered(-1, first.get()), this->registered(-1, second.get())));

    // A notification of the first that was under way finds its record gone.
    this->mSpy.die(old);
    EXPECT_THAT(this->mLog.take(), IsEmpty());
    this->expectEvents(first, 0);
    this->expectEvents(second, 1);
}

TYPED_TEST(RegistryTest, TheSameClientMayRegisterAgain) {
    const auto client = this->make();
    ASSERT_TRUE(this->add(1, client).isOk());
    ASSERT_TRUE(this->add(1, client).isOk());
    EXPECT_EQ(this->mSpy.unlinked(), 1u);
    EXPECT_EQ(this->mSpy.links().size(), 1u);
    this->expectEvents(client, 1);
}

TYPED_TEST(RegistryTest, NullUnregistersAndIsNoErrorForAnUnknownIdentifier) {
    const auto client = this->make();
    ASSERT_TRUE(this->add(INT64_MIN, client).isOk());
    EXPECT_TRUE(this->add(INT64_MAX, nullptr).isOk());
    EXPECT_EQ(this->mSpy.unlinked(), 0u);
    this->expectEvents(client, 1);

    EXPECT_TRUE(this->add(INT64_MIN, nullptr).isOk());
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
    ASSERT_TRUE(this->add(-16, client).isOk());
    this->mLog.take();
    this->mSpy.die(this->mSpy.links()[0]);
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->died(-16)));
    EXPECT_EQ(this->mSpy.recipients(), 0u);
    EXPECT_TRUE(this->isForgotten(client));
    this->expectEvents(client, 0);

    ASSERT_TRUE(this->add(-16, client).isOk());
    this->expectEvents(client, 1);
}

TYPED_TEST(RegistryTest, DeathOfAnUnknownIdentifierIsOnlyLogged) {
    const auto client = this->make();
    ASSERT_TRUE(this->add(1, client).isOk());
    this->mLog.take();
    this->mService->handleAidlDeath(TypeParam::kNumber, 2);
    EXPECT_THAT(this->mLog.take(), ElementsAre(this->died(2)));
    this->expectEvents(client, 1);
}

TYPED_TEST(RegistryTest, WithoutTheLibraryNothingIsRegisteredOrLogged) {
    this->mService.reset();
    this->mService = makeDegraded();
    EXPECT_EQ(codesOf(this->add(1, this->make())), kUnknownError);
    EXPECT_EQ(codesOf(this->add(1, nullptr)), kUnknownError);
    EXPECT_EQ(this->mSpy.recipients(), 0u);
    EXPECT_THAT(this->mLog.take(), IsEmpty());
}

class BothKindsTest : public ServiceTest {};

TEST_F(BothKindsTest, OneIdentifierMayNameOneOfEachAndEachDiesAlone) {
    const DeathSpy spy;
    LogCapture log;
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    ASSERT_TRUE(mService->registerCallback(5, callback).isOk());
    ASSERT_TRUE(mService->registerSoftVelaClient(5, client).isOk());
    log.take();

    for (const int32_t kind : {0, 3, -1})
        mService->handleAidlDeath(kind, 5);
    EXPECT_THAT(log.take(), IsEmpty());
    ASSERT_EQ(spy.links().size(), 2u);

    spy.die(spy.links()[1]);
    EXPECT_CALL(*callback, onFeatureChanged);
    library().featureChanged(0, {});
    EXPECT_EQ(library().softSetConfig(0, 0, {}), -1);
}

TEST_F(BothKindsTest, ANotificationWithoutACookieIsIgnored) {
    const DeathSpy spy;
    LogCapture log;
    ASSERT_TRUE(mService->registerCallback(5, makeClient<MockCallback>()).isOk());
    log.take();
    spy.die({});
    EXPECT_THAT(log.take(), IsEmpty());
}

// Meant for the sanitizers.
TEST_F(BothKindsTest, RegistrationsDeathsAndEventsMayOverlap) {
    const LogCapture log;
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    const auto source = library();
    const auto repeat = [](auto action) {
        return std::thread([action] {
            for (int64_t round = 0; round < 200; ++round)
                action(round % 3);
        });
    };
    std::thread threads[] = {
            repeat([&](int64_t id) {
                EXPECT_TRUE(mService->registerCallback(id, callback).isOk());
            }),
            repeat([&](int64_t id) {
                EXPECT_TRUE(mService->registerSoftVelaClient(id, client).isOk());
            }),
            repeat([&](int64_t id) { mService->handleAidlDeath(1, id); }),
            repeat([&](int64_t id) { mService->handleAidlDeath(2, id); }),
            repeat([&](int64_t id) { source.featureChanged(static_cast<int>(id), {}); }),
            repeat([&](int64_t id) { (void)source.softSetConfig(id, 0, {}); }),
    };
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
