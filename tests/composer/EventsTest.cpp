#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/log.h>

#include "tests/composer/ComposerFixture.h"
#include "tests/support/DeathSpy.h"
#include "tests/support/LogCapture.h"

namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using vela::test::DeathLink;
using vela::test::LogLine;
using Member = lmfg::VelaServiceCallbacks::Member;

using Values = std::vector<int32_t>;

ndk::ScopedAStatus ok() {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus failed() {
    return ndk::ScopedAStatus::fromServiceSpecificError(-7);
}

LogLine registrationLine(const display::IVelaComposerCallback* callback) {
    char text[64];
    std::snprintf(text, sizeof text, "Register callback: %p", static_cast<const void*>(callback));
    return {ANDROID_LOG_DEBUG, text};
}
const LogLine kDeathLine{ANDROID_LOG_DEBUG, "Noticed AIDL death of IVelaComposerCallback"};

class EventsTest : public ComposerTest {
  protected:
    std::shared_ptr<MockComposerCallback> registered(display::VelaComposerClient& client) {
        auto callback = makeCallback();
        prepare(*callback);
        EXPECT_EQ("ok", told(client.registerCallback(callback)));
        return callback;
    }

    virtual void prepare(MockComposerCallback&) {}

    // Raises all four events and checks that they reach `callback` and that its answers return.
    void expectEventsReach(MockComposerCallback& callback) {
        EXPECT_CALL(callback, onConfigChanged(1, -2, ElementsAre(3, 4), _))
                .WillOnce([](auto, auto, auto&, Values* result) {
                    EXPECT_THAT(*result, IsEmpty());
                    *result = {5, 6};
                    return ok();
                });
        EXPECT_CALL(callback, onRefreshRequested(7)).WillOnce([](auto) { return failed(); });
        EXPECT_CALL(callback, onDisplayPowerChanged(8, 9)).WillOnce([](auto, auto) {
            return failed();
        });
        EXPECT_CALL(callback, onContentSamplingRequested(10, -11, INT64_MIN, _))
                .WillOnce([](auto, auto, auto, display::ContentSamples* samples) {
                    EXPECT_EQ(display::ContentSamples(), *samples);
                    samples->value1 = 12;
                    samples->list1 = {1, INT64_MAX};
                    samples->list3 = {3};
                    samples->list4 = {4};
                    return ok();
                });
        EXPECT_THAT(events().configChanged(1, -2, {3, 4}), ElementsAre(5, 6));
        events().refreshRequested(7);
        events().powerChanged(8, 9);
        const auto samples = events().contentSampling(10, -11, INT64_MIN);
        EXPECT_EQ(12, samples.value1);
        EXPECT_THAT(samples.list1, ElementsAre(1, INT64_MAX));
        EXPECT_THAT(samples.list2, IsEmpty());
        EXPECT_THAT(samples.list3, ElementsAre(3));
        EXPECT_THAT(samples.list4, ElementsAre(4));
        ::testing::Mock::VerifyAndClearExpectations(&callback);
    }

    // Raises all four events and checks for the answers that they get without a callback.
    void expectEventsEndInDefaults() {
        EXPECT_THAT(events().configChanged(1, 2, {3}), IsEmpty());
        events().refreshRequested(1);
        events().powerChanged(1, 2);
        const auto samples = events().contentSampling(1, 2, 3);
        EXPECT_EQ(-1, samples.value1);
        EXPECT_THAT(samples.list1, IsEmpty());
    }

    // What the chip gets when the callback leaves `answer` and `status`.
    lmfg::VelaContentSamples sampled(MockComposerCallback& callback,
                                     const display::ContentSamples& answer,
                                     ndk::ScopedAStatus status) {
        EXPECT_CALL(callback, onContentSamplingRequested)
                .WillOnce([&](auto, auto, auto, display::ContentSamples* samples) {
                    *samples = answer;
                    return std::move(status);
                });
        return events().contentSampling(1, 2, 3);
    }
};

TEST_F(EventsTest, reachTheCallback) {
    expectEventsEndInDefaults();
    expectEventsReach(*registered(*mClient));
}

TEST_F(EventsTest, whatAFailingCallbackLeftCounts) {
    const auto callback = registered(*mClient);
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([](auto, auto, auto&, Values* result) {
        *result = {5};
        return failed();
    });
    EXPECT_THAT(events().configChanged(1, 2, {}), ElementsAre(5));

    display::ContentSamples answer;
    answer.list2 = {1};
    const auto samples = sampled(*callback, answer, failed());
    EXPECT_EQ(0, samples.value1);
    EXPECT_THAT(samples.list2, ElementsAre(1));
}

TEST_F(EventsTest, samplesNeedANonNegativeValue) {
    const auto callback = registered(*mClient);
    display::ContentSamples answer;
    EXPECT_EQ(0, sampled(*callback, answer, ok()).value1);
    answer.value1 = -2;
    answer.list1 = answer.list2 = answer.list3 = answer.list4 = {1};
    const auto samples = sampled(*callback, answer, ok());
    EXPECT_EQ(-1, samples.value1);
    for (const auto& list : {samples.list1, samples.list2, samples.list3, samples.list4}) {
        EXPECT_THAT(list, IsEmpty());
    }
}

TEST_F(EventsTest, theLastStartedClientHasThem) {
    const auto first = registered(*mClient);
    const auto second = makeClient(mService);
    expectEventsEndInDefaults();
    expectEventsReach(*registered(*second));

    // The first still serves requests, and its end takes nothing from the second.
    EXPECT_CALL(*mChip, Present()).WillOnce(::testing::Return(true));
    int32_t presented = 0;
    EXPECT_EQ("ok", told(mClient->present(0, &presented)));
    mClient.reset();
    expectEventsReach(*registered(*second));
}

TEST_F(EventsTest, startWithoutALibraryTakesNothing) {
    EXPECT_TRUE(events().isSet(Member::kConfigChanged));
    EXPECT_FALSE(events().isSet(Member::kFeatureChanged));
    const auto callback = registered(*mClient);
    makeClient(nullptr);
    expectEventsReach(*callback);
}

TEST_F(EventsTest, comeToNothingAfterTheClient) {
    const auto callback = registered(*mClient);
    mClient.reset();
    // The closures deliberately stay.
    EXPECT_TRUE(events().isSet(Member::kConfigChanged));
    expectEventsEndInDefaults();

    // The next client takes over.
    mClient = makeClient(mService);
    expectEventsReach(*registered(*mClient));
}

TEST_F(EventsTest, anEventMayHoldTheLastOwner) {
    const auto callback = registered(*mClient);
    const std::weak_ptr<display::VelaComposerClient> weak = mClient;
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([&](auto, auto, auto&, Values* result) {
        mClient.reset();
        EXPECT_FALSE(weak.expired());
        *result = {1};
        return ok();
    });
    EXPECT_THAT(events().configChanged(1, 2, {}), ElementsAre(1));
    EXPECT_TRUE(weak.expired());
    expectEventsEndInDefaults();
}

TEST_F(EventsTest, aCallbackMayCallBack) {
    auto callback = registered(*mClient);
    const std::weak_ptr<MockComposerCallback> weak = callback;
    const auto next = makeCallback();
    EXPECT_CALL(*mChip, PresentDisplay()).WillOnce(::testing::Return(4));
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([&](auto, auto, auto&, Values* result) {
        callback.reset();
        int32_t presented = 0;
        EXPECT_EQ("ok", told(mClient->presentDisplay(0, &presented)));
        // Replaced while it runs, it lives until it returns.
        EXPECT_EQ("ok", told(mClient->registerCallback(next)));
        EXPECT_FALSE(weak.expired());
        *result = {presented};
        return ok();
    });
    EXPECT_THAT(events().configChanged(1, 2, {}), ElementsAre(4));
    EXPECT_TRUE(weak.expired());
    expectEventsReach(*next);
}

TEST_F(EventsTest, registrationIsLogged) {
    vela::test::LogCapture log;
    const auto callback = registered(*mClient);
    EXPECT_THAT(log.take(), ElementsAre(registrationLine(callback.get())));

    // Null is logged, accepted and changes nothing.
    EXPECT_EQ("ok", told(mClient->registerCallback(nullptr)));
    EXPECT_THAT(log.take(), ElementsAre(registrationLine(nullptr)));
    expectEventsReach(*callback);

    EXPECT_EQ("unknown", told(mAbsent->registerCallback(callback)));
    EXPECT_EQ("unknown", told(mAbsent->registerCallback(nullptr)));
    EXPECT_THAT(log.take(), IsEmpty());
}

class DyingCallbackTest : public EventsTest {
  protected:
    // A local object's binder lasts only while it is held, unlike a proxy's.
    void prepare(MockComposerCallback& callback) override {
        mBinders.push_back(callback.asBinder());
    }

    // The owners of a callback that no client holds: the test and the binder.
    static constexpr long kUnregistered = 2;

    vela::test::DeathSpy mSpy;
    std::vector<ndk::SpAIBinder> mBinders;
};

TEST_F(DyingCallbackTest, theCallbackIsDropped) {
    const auto callback = registered(*mClient);
    ASSERT_THAT(mSpy.links(), SizeIs(1));
    const DeathLink link = mSpy.links()[0];
    EXPECT_EQ(callback->asBinder().get(), link.binder);

    vela::test::LogCapture log;
    mSpy.die(link);
    EXPECT_THAT(log.take(), ElementsAre(kDeathLine));
    EXPECT_EQ(1u, mSpy.unlinked());
    EXPECT_EQ(0u, mSpy.recipients());
    EXPECT_EQ(kUnregistered, callback.use_count());
    expectEventsEndInDefaults();

    mSpy.die(link);  // its record is gone
    EXPECT_THAT(log.take(), IsEmpty());

    expectEventsReach(*registered(*mClient));
    EXPECT_THAT(mSpy.links(), SizeIs(1));
}

TEST_F(DyingCallbackTest, aReplacedCallbackIsUnlinkedFirst) {
    const auto first = registered(*mClient);
    ASSERT_THAT(mSpy.links(), SizeIs(1));
    const DeathLink link = mSpy.links()[0];
    const auto second = registered(*mClient);
    EXPECT_EQ(1u, mSpy.unlinked());
    ASSERT_THAT(mSpy.links(), SizeIs(1));
    EXPECT_EQ(second->asBinder().get(), mSpy.links()[0].binder);
    EXPECT_EQ(1u, mSpy.recipients());
    EXPECT_EQ(kUnregistered, first.use_count());
    mSpy.die(link);
    expectEventsReach(*second);

    // The same callback again gets a link of its own.
    EXPECT_EQ("ok", told(mClient->registerCallback(second)));
    EXPECT_EQ(2u, mSpy.unlinked());
    EXPECT_THAT(mSpy.links(), SizeIs(1));
    EXPECT_EQ(1u, mSpy.recipients());
    expectEventsReach(*second);
}

TEST_F(DyingCallbackTest, isNotMatchedAgainstTheCallback) {
    const auto callback = registered(*mClient);
    mClient->handleAidlDeath();
    EXPECT_EQ(kUnregistered, callback.use_count());
    EXPECT_THAT(mSpy.links(), IsEmpty());
    mClient->handleAidlDeath();  // nothing is registered: nothing to drop
    EXPECT_EQ(1u, mSpy.unlinked());
}

TEST_F(DyingCallbackTest, lateNotificationsFindNothing) {
    const auto callback = registered(*mClient);
    ASSERT_THAT(mSpy.links(), SizeIs(1));
    const DeathLink link = mSpy.links()[0];
    mClient.reset();
    // The recipient is deleted without unlinking.
    EXPECT_EQ(0u, mSpy.unlinked());
    EXPECT_EQ(0u, mSpy.recipients());
    vela::test::LogCapture log;
    mSpy.die(link);
    mSpy.die({});
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
