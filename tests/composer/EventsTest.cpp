#include <atomic>
#include <thread>

#include "tests/composer/ComposerTest.h"
#include "tests/support/DeathSpy.h"

namespace {

using ndk::ScopedAStatus;
using testing::_;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using vela::test::debugLine;
using Member = lmfg::VelaServiceCallbacks::Member;

const vela::test::LogLine kDeathLine =
        debugLine("%s", "Noticed AIDL death of IVelaComposerCallback");

vela::test::LogLine registrationLine(const display::IVelaComposerCallback* callback) {
    return debugLine("Register callback: %p", static_cast<const void*>(callback));
}

ScopedAStatus failed() {
    return ScopedAStatus::fromServiceSpecificError(-7);
}

class EventsTest : public ComposerTest {
  protected:
    ~EventsTest() override { mClient.reset(); }

    /** A callback whose binder lives, as one does whose compositor is another process. */
    std::shared_ptr<MockComposerCallback> makeCallback() {
        auto callback = ndk::SharedRefBase::make<testing::StrictMock<MockComposerCallback>>();
        mBinders.push_back(callback->asBinder());
        return callback;
    }
    std::shared_ptr<MockComposerCallback> registered(VelaComposerClient& client) {
        auto callback = makeCallback();
        EXPECT_EQ("ok", told(client.registerCallback(callback)));
        return callback;
    }
    /** Whether only the test and the callback's own binder hold it. */
    static bool isForgotten(const std::shared_ptr<MockComposerCallback>& callback) {
        return callback.use_count() == 2;
    }

    /** Raises all four events and checks that they reach `callback` and that its answers return. */
    static void expectEventsReach(MockComposerCallback& callback) {
        EXPECT_CALL(callback, onConfigChanged(1, -2, ElementsAre(3, 4), IsEmptyOut()))
                .WillOnce([](auto, auto, auto&, Values* out) {
                    *out = {5, 6};
                    return ScopedAStatus::ok();
                });
        EXPECT_CALL(callback, onRefreshRequested(7)).WillOnce(failed);
        EXPECT_CALL(callback, onDisplayPowerChanged(8, 9)).WillOnce(failed);
        EXPECT_CALL(callback, onContentSamplingRequested(10, -11, INT64_MIN, _))
                .WillOnce([](auto, auto, auto, display::ContentSamples* out) {
                    EXPECT_EQ(display::ContentSamples(), *out);
                    out->value1 = 12;
                    out->list1 = {1, INT64_MAX};
                    out->list3 = {3};
                    out->list4 = {4};
                    return ScopedAStatus::ok();
                });
        EXPECT_THAT(library().configChanged(1, -2, {3, 4}), ElementsAre(5, 6));
        library().refreshRequested(7);
        library().powerChanged(8, 9);
        const auto samples = library().contentSampling(10, -11, INT64_MIN);
        EXPECT_EQ(12, samples.value1);
        EXPECT_THAT(samples.list1, ElementsAre(1, INT64_MAX));
        EXPECT_THAT(samples.list2, IsEmpty());
        EXPECT_THAT(samples.list3, ElementsAre(3));
        EXPECT_THAT(samples.list4, ElementsAre(4));
        testing::Mock::VerifyAndClearExpectations(&callback);
    }
    static testing::Matcher<Values*> IsEmptyOut() { return testing::Pointee(IsEmpty()); }

    /** Raises all four events and checks for the answers that they get without a callback. */
    static void expectEventsEndInDefaults() {
        EXPECT_THAT(library().configChanged(1, 2, {3}), IsEmpty());
        library().refreshRequested(1);
        library().powerChanged(1, 2);
        const auto samples = library().contentSampling(1, 2, 3);
        EXPECT_EQ(-1, samples.value1);
        EXPECT_THAT(samples.list1, IsEmpty());
    }

    std::vector<ndk::SpAIBinder> mBinders;
    vela::test::DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

TEST_F(EventsTest, ReachTheCallbackOfTheLastStartedClient) {
    EXPECT_FALSE(library().isSet(Member::kFeatureChanged));
    expectEventsEndInDefaults();
    const auto callback = registered(*mClient);
    makeClient(nullptr);  // takes nothing
    expectEventsReach(*callback);

    const auto second = makeClient(mService);
    expectEventsEndInDefaults();
    // The first still serves requests, and its end takes nothing from the second.
    EXPECT_CALL(*mChip, Present()).WillOnce(Return(true));
    EXPECT_EQ("ok 1", ask(*mClient, &VelaComposerClient::present));
    mClient.reset();
    expectEventsReach(*registered(*second));
}

TEST_F(EventsTest, WhatAFailingCallbackLeftCounts) {
    const auto callback = registered(*mClient);
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([](auto, auto, auto&, Values* out) {
        *out = {5};
        return failed();
    });
    EXPECT_THAT(library().configChanged(1, 2, {}), ElementsAre(5));

    const std::pair<int32_t, int32_t> kCases[] = {{0, 0}, {-1, -1}, {-2, -1}};
    for (const auto& [left, delivered] : kCases) {
        EXPECT_CALL(*callback, onContentSamplingRequested)
                .WillOnce([left = left](auto, auto, auto, display::ContentSamples* out) {
                    out->value1 = left;
                    out->list1 = out->list2 = out->list3 = out->list4 = {1};
                    return failed();
                });
        const auto samples = library().contentSampling(1, 2, 3);
        EXPECT_EQ(delivered, samples.value1);
        for (const auto& list : {samples.list1, samples.list2, samples.list3, samples.list4})
            EXPECT_EQ(delivered < 0 ? 0u : 1u, list.size());
    }
}

TEST_F(EventsTest, ComeToNothingAfterTheClient) {
    const auto callback = registered(*mClient);
    const std::weak_ptr<VelaComposerClient> weak = mClient;
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([&](auto, auto, auto&, Values* out) {
        mClient.reset();
        EXPECT_FALSE(weak.expired()) << "the event holds it";
        *out = {1};
        return ScopedAStatus::ok();
    });
    EXPECT_THAT(library().configChanged(1, 2, {}), ElementsAre(1));
    EXPECT_TRUE(weak.expired());
    // The closures deliberately stay.
    EXPECT_TRUE(library().isSet(Member::kConfigChanged));
    expectEventsEndInDefaults();
}

TEST_F(EventsTest, ACallbackMayCallBack) {
    auto callback = registered(*mClient);
    const std::weak_ptr<MockComposerCallback> weak = callback;
    const auto next = makeCallback();
    EXPECT_CALL(*mChip, PresentDisplay()).WillOnce(Return(4));
    EXPECT_CALL(*callback, onConfigChanged).WillOnce([&](auto, auto, auto&, Values* out) {
        callback.reset();
        mBinders.clear();
        EXPECT_EQ("ok 4", ask(*mClient, &VelaComposerClient::presentDisplay));
        // Replaced while it runs, it lives until it returns.
        EXPECT_EQ("ok", told(mClient->registerCallback(next)));
        EXPECT_FALSE(weak.expired());
        *out = {4};
        return ScopedAStatus::ok();
    });
    EXPECT_THAT(library().configChanged(1, 2, {}), ElementsAre(4));
    EXPECT_TRUE(weak.expired());
    expectEventsReach(*next);
}

TEST_F(EventsTest, RegistrationIsLoggedAndNullChangesNothing) {
    const auto callback = registered(*mClient);
    EXPECT_EQ("ok", told(mClient->registerCallback(nullptr)));
    EXPECT_THAT(mLog.take(),
                ElementsAre(registrationLine(callback.get()), registrationLine(nullptr)));
    expectEventsReach(*callback);

    EXPECT_EQ("unknown", told(mAbsent->registerCallback(callback)));
    EXPECT_EQ("unknown", told(mAbsent->registerCallback(nullptr)));
    EXPECT_THAT(mLog.take(), IsEmpty());
}

TEST_F(EventsTest, ADeadCallbackIsDroppedWithinItsNotification) {
    const auto callback = registered(*mClient);
    mLog.take();
    ASSERT_EQ(1u, mSpy.links().size());
    EXPECT_EQ(callback->asBinder().get(), mSpy.links()[0].binder);
    mSpy.die();
    EXPECT_THAT(mLog.take(), ElementsAre(kDeathLine));
    EXPECT_EQ(1u, mSpy.unlinked());
    EXPECT_EQ(0u, mSpy.recipients());
    EXPECT_TRUE(isForgotten(callback));
    expectEventsEndInDefaults();

    expectEventsReach(*registered(*mClient));
    mLog.take();
    mSpy.dieWithoutCookie();
    EXPECT_THAT(mLog.take(), IsEmpty());
    // Not matched against the callback, and nothing to drop the second time.
    mClient->handleAidlDeath();
    mClient->handleAidlDeath();
    EXPECT_EQ(2u, mSpy.unlinked());
    expectEventsEndInDefaults();
}

TEST_F(EventsTest, AReplacedCallbackIsUnlinkedFirst) {
    const auto first = registered(*mClient);
    const auto second = makeCallback();
    for (const size_t round : {1u, 2u}) {
        EXPECT_EQ("ok", told(mClient->registerCallback(second)));
        EXPECT_EQ(round, mSpy.unlinked());
        ASSERT_EQ(1u, mSpy.links().size());
        EXPECT_EQ(second->asBinder().get(), mSpy.links()[0].binder);
        EXPECT_EQ(1u, mSpy.recipients());
        expectEventsReach(*second);
    }
    EXPECT_TRUE(isForgotten(first));
}

TEST_F(EventsTest, ANotificationUnderWayOnlyWritesItsLineOnceItsRegistrationHasLetGo) {
    registered(*mClient);
    auto ofReplaced = mSpy.begin();
    const auto next = registered(*mClient);
    mLog.take();
    ofReplaced.deliver();
    EXPECT_THAT(mLog.take(), ElementsAre(kDeathLine));
    expectEventsReach(*next);

    // The line is written before the lock is taken: there a notification can be held.
    std::shared_ptr<MockComposerCallback> last;
    mLog.onNextLine([&] { last = registered(*mClient); });
    mSpy.die();
    EXPECT_TRUE(isForgotten(next));
    expectEventsReach(*last);

    // The object's end deletes the recipient without unlinking. Where the record was freed too
    // early, that of the next client would have its address.
    auto ofDestroyed = mSpy.begin();
    mClient = makeClient(mService);
    const auto nextClients = registered(*mClient);
    EXPECT_EQ(2u, mSpy.unlinked());
    EXPECT_EQ(1u, mSpy.recipients());
    mLog.take();
    ofDestroyed.deliver();
    EXPECT_THAT(mLog.take(), IsEmpty());
    expectEventsReach(*nextClients);
}

// Meant for the sanitizers: events and notifications go on while callbacks come, are replaced and
// die, and after the client has gone.
TEST_F(EventsTest, MixWithRegistrationsNotificationsAndTheEnd) {
    std::atomic<bool> isStopped = false;
    std::atomic<int> raised = 0;
    const auto awaitEvents = [&raised](int count) {
        const int until = raised + count;
        for (int now = raised; now < until; now = raised)
            raised.wait(now);
    };
    std::thread chip([&] {
        while (!isStopped) {
            EXPECT_THAT(library().configChanged(1, 2, {}), IsEmpty());
            library().refreshRequested(1);
            library().powerChanged(1, 2);
            EXPECT_THAT(library().contentSampling(1, 2, 3).value1, AnyOf(-1, 0));
            ++raised;
            raised.notify_all();
        }
    });
    std::thread platform([&] {
        while (!isStopped) {
            if (auto notification = mSpy.beginAny()) notification->deliver();
        }
    });
    for (int i = 0; i < 300; ++i) {
        const auto callback = ndk::SharedRefBase::make<testing::NiceMock<MockComposerCallback>>();
        EXPECT_EQ("ok", told(mClient->registerCallback(callback)));
        if (i % 10 == 9) mClient->handleAidlDeath();
    }
    awaitEvents(3);
    mClient.reset();
    awaitEvents(3);
    EXPECT_THAT(library().configChanged(1, 2, {}), IsEmpty());
    isStopped = true;
    platform.join();
    chip.join();
}

}  // namespace
