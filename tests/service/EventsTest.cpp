#include "tests/service/ServiceTest.h"

#include <functional>

#include "tests/support/PrivateMember.h"

namespace vela::test {

namespace display = aidl::vendor::lumenforge::hardware::display;
using display::VelaDefault;

struct LogMask {
    using Type = uint32_t VelaDefault::*;
    friend Type privateMember(LogMask);
};
template struct Open<LogMask, &VelaDefault::mLogMask>;

template <typename Client>
struct Registered {
    using Type = std::map<int64_t, std::shared_ptr<Client>> VelaDefault::*;
    friend Type privateMember(Registered);
};
template struct Open<Registered<display::IVelaCallback>, &VelaDefault::mCallbacks>;
template struct Open<Registered<display::ISoftVelaClient>, &VelaDefault::mSoftClients>;

}  // namespace vela::test

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using ndk::ScopedAStatus;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::debugLine;

using EventsTest = ServiceTest;

TEST_F(EventsTest, FeatureChangesReachEveryCallbackInTheOrderOfIdentifiers) {
    std::vector<int64_t> order;
    for (const int64_t id : {int64_t{5}, int64_t{1}, INT64_MAX, int64_t{3}, int64_t{-2}}) {
        const auto callback = makeClient<MockCallback>();
        EXPECT_CALL(*callback, onFeatureChanged(-7, ElementsAre(1, INT32_MIN)))
                .WillOnce([&order, id](int32_t, const Values&) {
                    order.push_back(id);
                    // Neither a dead callback nor one that fails keeps the others waiting.
                    return id == 1 ? ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT)
                                   : ScopedAStatus::fromServiceSpecificError(-3);
                });
        EXPECT_EQ("ok", told(mService->registerCallback(id, callback)));
    }
    library().featureChanged(-7, {1, INT32_MIN});
    EXPECT_THAT(order, ElementsAre(-2, 1, 3, 5, INT64_MAX));
}

TEST_F(EventsTest, EmptyEntriesArePassedOver) {
    using vela::test::Registered;
    ((*mService).*privateMember(Registered<IVelaCallback>()))[1] = nullptr;
    ((*mService).*privateMember(Registered<ISoftVelaClient>()))[1] = nullptr;
    library().featureChanged(0, {});
    EXPECT_EQ(library().softSetConfig(1, 0, {}), -1);
    Values out = {1, 2};
    EXPECT_EQ(mService->onSoftVelaGetConfig(1, 2, {3}, out), -1);
    EXPECT_THAT(out, ElementsAre(1, 2));
}

TEST_F(EventsTest, ClientsMayRegisterFromInsideAnEvent) {
    const auto first = makeClient<MockCallback>();
    const auto second = makeClient<MockCallback>();
    EXPECT_CALL(*first, onFeatureChanged).WillOnce([&](int32_t, const Values&) {
        return mService->registerCallback(2, nullptr);
    });
    // It was in the list already when the event came.
    EXPECT_CALL(*second, onFeatureChanged);
    (void)mService->registerCallback(1, first);
    (void)mService->registerCallback(2, second);
    library().featureChanged(0, {});

    const auto client = makeClient<MockSoftClient>();
    EXPECT_CALL(*client, setConfig).WillOnce([&](int64_t, int32_t, const Values&, int32_t*) {
        return mService->registerSoftVelaClient(2, client);
    });
    EXPECT_CALL(*client, getConfig).WillOnce([&](int64_t, int32_t, const Values&, Values*) {
        return mService->registerSoftVelaClient(1, nullptr);
    });
    (void)mService->registerSoftVelaClient(1, client);
    EXPECT_EQ(library().softSetConfig(1, 2, {3}), -1);
    int status = 5;
    (void)library().softGetConfig(1, 2, {3}, status);
    EXPECT_EQ(status, 0);
}

TEST_F(EventsTest, TheSoftClientWithTheLowestIdentifierServesEveryIdentifier) {
    const auto low = makeClient<MockSoftClient>();
    const auto high = makeClient<MockSoftClient>();
    (void)mService->registerSoftVelaClient(7, high);
    (void)mService->registerSoftVelaClient(2, low);
    EXPECT_CALL(*high, setConfig).Times(0);
    EXPECT_CALL(*high, getConfig).Times(0);

    const auto failure = [](int32_t code) {
        return [code] { return ScopedAStatus::fromServiceSpecificError(code); };
    };
    const struct {
        std::function<ScopedAStatus()> answer;  // of the client
        bool writes;                            // whether the client fills its out-value
        int32_t setResult;
        int32_t getStatus;
    } kCases[] = {
            {ScopedAStatus::ok, true, 33, 0},
            {ScopedAStatus::ok, false, -1, 0},
            {failure(-12), false, -1, -12},
            {failure(12), true, 33, 12},
            {[] { return ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT); }, false, -1, 0},
    };
    for (const auto& it : kCases) {
        EXPECT_CALL(*low, setConfig(7, -4, ElementsAre(1, 2), _))
                .WillOnce([&](int64_t, int32_t, const Values&, int32_t* out) {
                    EXPECT_EQ(*out, -1);
                    if (it.writes) *out = 33;
                    return it.answer();
                });
        EXPECT_EQ(library().softSetConfig(7, -4, {1, 2}), it.setResult);

        EXPECT_CALL(*low, getConfig(7, -4, ElementsAre(3), _))
                .WillOnce([&](int64_t, int32_t, const Values&, Values* out) {
                    EXPECT_THAT(*out, IsEmpty());
                    if (it.writes) *out = {4, 5};
                    return it.answer();
                });
        int status = 99;
        EXPECT_EQ(library().softGetConfig(7, -4, {3}, status),
                  it.writes ? Values({4, 5}) : Values());
        EXPECT_EQ(status, it.getStatus);
    }
}

TEST_F(EventsTest, TraceLinesAreWrittenOnlyUnderTheirBit) {
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    (void)mService->registerCallback(1, callback);
    (void)mService->registerSoftVelaClient(1, client);
    const auto raiseAll = [] {
        int status = 0;
        library().featureChanged(0, {});
        (void)library().softSetConfig(0, 0, {});
        (void)library().softGetConfig(0, 0, {}, status);
    };
    vela::test::LogCapture log;
    raiseAll();
    EXPECT_THAT(log.take(), IsEmpty());

    (*mService).*privateMember(vela::test::LogMask()) = 1;
    raiseAll();
    const void* first = static_cast<const IVelaCallback*>(callback.get());
    const void* second = static_cast<const ISoftVelaClient*>(client.get());
    EXPECT_THAT(log.take(), ElementsAre(debugLine("[%p]onFeatureChanged", first),
                                        debugLine("[%p]onFeatureChanged - end", first),
                                        debugLine("[%p]setConfig", second),
                                        debugLine("[%p]setConfig - end", second),
                                        debugLine("[%p]getConfig", second),
                                        debugLine("[%p]getConfig - end", second)));
    EXPECT_EQ("ok", told(mService->registerCallback(1, nullptr)));
    EXPECT_EQ("ok", told(mService->registerSoftVelaClient(1, nullptr)));
    mService->handleAidlDeath(1, 1);
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
