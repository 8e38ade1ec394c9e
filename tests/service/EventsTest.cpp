#include <cstdio>

#include "tests/service/ServiceTest.h"
#include "tests/support/LogCapture.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::LogCapture;
using Values = std::vector<int32_t>;

using EventsTest = ServiceTest;

ndk::ScopedAStatus deadObject() {
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

ndk::ScopedAStatus failure(int32_t code) {
    return ndk::ScopedAStatus::fromServiceSpecificError(code);
}

TEST_F(EventsTest, FeatureChangesReachEveryCallbackInTheOrderOfIdentifiers) {
    std::vector<int64_t> order;
    for (const int64_t id : {int64_t{5}, int64_t{1}, INT64_MAX, int64_t{3}, int64_t{-2}}) {
        const auto callback = makeClient<MockCallback>();
        EXPECT_CALL(*callback, onFeatureChanged(-7, ElementsAre(1, INT32_MIN)))
                .WillOnce([&order, id](int32_t, const Values&) {
                    order.push_back(id);
                    // Neither a dead callback nor one that fails keeps the others waiting.
                    return id == 1 ? deadObject() : failure(-3);
                });
        ASSERT_TRUE(mService->registerCallback(id, callback).isOk());
    }
    library().featureChanged(-7, {1, INT32_MIN});
    EXPECT_THAT(order, ElementsAre(-2, 1, 3, 5, INT64_MAX));
}

TEST_F(EventsTest, ACallbackMayRegisterFromInsideAnEvent) {
    const auto first = makeClient<MockCallback>();
    const auto second = makeClient<MockCallback>();
    EXPECT_CALL(*first, onFeatureChanged).WillOnce([&](int32_t, const Values&) {
        return mService->registerCallback(2, nullptr);
    });
    // It was in the list already when the event came.
    EXPECT_CALL(*second, onFeatureChanged).Times(1);
    ASSERT_TRUE(mService->registerCallback(1, first).isOk());
    ASSERT_TRUE(mService->registerCallback(2, second).isOk());
    library().featureChanged(0, {});
}

TEST_F(EventsTest, ASoftClientMayRegisterFromInsideARequest) {
    const auto client = makeClient<MockSoftClient>();
    EXPECT_CALL(*client, setConfig).WillOnce([&](int64_t, int32_t, const Values&, int32_t*) {
        return mService->registerSoftVelaClient(2, client);
    });
    EXPECT_CALL(*client, getConfig).WillOnce([&](int64_t, int32_t, const Values&, Values*) {
        return mService->registerSoftVelaClient(1, nullptr);
    });
    ASSERT_TRUE(mService->registerSoftVelaClient(1, client).isOk());
    library().softSetConfig(1, 2, {3});
    int status = 5;
    library().softGetConfig(1, 2, {3}, status);
    EXPECT_EQ(status, 0);
}

TEST_F(EventsTest, WithoutAClientTheAnswersAreFixed) {
    library().featureChanged(1, {2});
    EXPECT_EQ(library().softSetConfig(1, 2, {3}), -1);
    int status = 5;
    EXPECT_THAT(library().softGetConfig(1, 2, {3}, status), IsEmpty());
    EXPECT_EQ(status, -1);
    Values out = {1, 2};
    EXPECT_EQ(mService->onSoftVelaGetConfig(1, 2, {3}, out), -1);
    EXPECT_THAT(out, ElementsAre(1, 2));
}

TEST_F(EventsTest, TheSoftClientWithTheLowestIdentifierServesEveryIdentifier) {
    const auto low = makeClient<MockSoftClient>();
    const auto high = makeClient<MockSoftClient>();
    ASSERT_TRUE(mService->registerSoftVelaClient(7, high).isOk());
    ASSERT_TRUE(mService->registerSoftVelaClient(2, low).isOk());
    EXPECT_CALL(*high, setConfig).Times(0);
    EXPECT_CALL(*high, getConfig).Times(0);
    EXPECT_CALL(*low, setConfig(7, -4, ElementsAre(1, 2), _)).Times(1);
    EXPECT_CALL(*low, getConfig(7, -4, ElementsAre(3), _)).Times(1);
    (void)library().softSetConfig(7, -4, {1, 2});
    int status = -1;
    (void)library().softGetConfig(7, -4, {3}, status);
}

struct SoftAnswer {
    const char* name;
    int32_t exception;  // of the client's status
    int32_t code;
    bool writes;  // whether the client fills its out-value
    int32_t setResult;
    int32_t getStatus;
};

class SoftAnswerTest : public ServiceTest, public testing::WithParamInterface<SoftAnswer> {};

TEST_P(SoftAnswerTest, ReachesTheLibrary) {
    const SoftAnswer& it = GetParam();
    const auto status = [&] {
        if (it.exception == EX_NONE) return ndk::ScopedAStatus::ok();
        if (it.exception == EX_SERVICE_SPECIFIC) return failure(it.code);
        return ndk::ScopedAStatus::fromStatus(it.code);
    };
    const auto client = makeClient<MockSoftClient>();
    ASSERT_TRUE(mService->registerSoftVelaClient(1, client).isOk());
    EXPECT_CALL(*client, setConfig).WillOnce([&](int64_t, int32_t, const Values&, int32_t* out) {
        EXPECT_EQ(*out, -1);
        if (it.writes) *out = 33;
        return status();
    });
    EXPECT_EQ(library().softSetConfig(1, 0, {}), it.setResult);

    EXPECT_CALL(*client, getConfig).WillOnce([&](int64_t, int32_t, const Values&, Values* out) {
        EXPECT_THAT(*out, IsEmpty());
        if (it.writes) *out = {4, 5};
        return status();
    });
    int getStatus = 99;
    EXPECT_EQ(library().softGetConfig(1, 0, {}, getStatus), it.writes ? Values({4, 5}) : Values());
    EXPECT_EQ(getStatus, it.getStatus);
}

INSTANTIATE_TEST_SUITE_P(
        All, SoftAnswerTest,
        testing::Values(SoftAnswer{"Ok", EX_NONE, 0, true, 33, 0},
                        SoftAnswer{"OkWithoutAnswer", EX_NONE, 0, false, -1, 0},
                        SoftAnswer{"Refusal", EX_SERVICE_SPECIFIC, -12, false, -1, -12},
                        SoftAnswer{"PositiveRefusal", EX_SERVICE_SPECIFIC, 12, false, -1, 12},
                        SoftAnswer{"RefusalWithAnswer", EX_SERVICE_SPECIFIC, -12, true, 33, -12},
                        SoftAnswer{"Dead", EX_TRANSACTION_FAILED, STATUS_DEAD_OBJECT, false, -1,
                                   0}),
        [](const auto& info) { return info.param.name; });

TEST_F(EventsTest, TraceLinesAreWrittenOnlyUnderTheirBit) {
    const auto callback = makeClient<MockCallback>();
    const auto client = makeClient<MockSoftClient>();
    ASSERT_TRUE(mService->registerCallback(1, callback).isOk());
    ASSERT_TRUE(mService->registerSoftVelaClient(1, client).isOk());
    const auto raiseAll = [] {
        int status = 0;
        library().featureChanged(0, {});
        (void)library().softSetConfig(0, 0, {});
        (void)library().softGetConfig(0, 0, {}, status);
    };
    const auto line = [](const void* who, const char* what) {
        char text[64];
        std::snprintf(text, sizeof text, "[%p]%s", who, what);
        return vela::test::LogLine{ANDROID_LOG_DEBUG, text};
    };
    const IVelaCallback* first = callback.get();
    const ISoftVelaClient* second = client.get();

    LogCapture log;
    raiseAll();
    EXPECT_THAT(log.take(), IsEmpty());
    VelaDefaultPeer::setLogMask(*mService, 1);
    raiseAll();
    EXPECT_THAT(log.take(),
                ElementsAre(line(first, "onFeatureChanged"), line(first, "onFeatureChanged - end"),
                            line(second, "setConfig"), line(second, "setConfig - end"),
                            line(second, "getConfig"), line(second, "getConfig - end")));
    ASSERT_TRUE(mService->registerCallback(1, nullptr).isOk());
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
