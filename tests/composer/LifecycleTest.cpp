#include "tests/composer/ComposerTest.h"
#include "tests/support/DeathSpy.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::debugLine;
using Member = lmfg::VelaServiceCallbacks::Member;

const auto kDeathLine = debugLine("%s", "Noticed AIDL death of IVelaComposerCallback");

class LifecycleTest : public ComposerTest {
  protected:
    ~LifecycleTest() override { mClient.reset(); }

    vela::test::DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

TEST_F(LifecycleTest, EventsComeToNothingAfterTheEnd) {
    const std::weak_ptr<C> weak = mClient;
    auto callback = add(*mClient, hear("1", [&] {
        // Replaced while it runs, the callback lives until it returns, and so does the client.
        mBinders.clear();
        add(*mClient, hear("2"));
        mClient.reset();
        EXPECT_FALSE(weak.expired()) << "the event holds it";
        return ndk::ScopedAStatus::ok();
    }));
    const std::weak_ptr<vts::Compositor> replaced = std::exchange(callback, nullptr);
    EXPECT_THAT(library().configChanged(1, 2, {}), ElementsAre(7));
    EXPECT_TRUE(weak.expired() && replaced.expired());
    heard();
    // The closures deliberately stay.
    EXPECT_TRUE(library().isSet(Member::kConfigChanged));
    EXPECT_FALSE(library().isSet(Member::kFeatureChanged));
    EXPECT_EQ(raiseAll(), kNobody);
}

TEST_F(LifecycleTest, NullChangesNothingNorDoesARegistrationWithoutTheLibrary) {
    const auto callback = add(*mClient, hear("1"));
    mLog.take();
    EXPECT_EQ("ok", told(mClient->registerCallback(nullptr)));
    EXPECT_THAT(mLog.take(), ElementsAre(debugLine("Register callback: %p", nullptr)));
    EXPECT_EQ(raiseAll(), reach("1"));
    EXPECT_EQ("unknown", told(mAbsent->registerCallback(callback)));
    EXPECT_EQ("unknown", told(mAbsent->registerCallback(nullptr)));
    EXPECT_THAT(mLog.take(), IsEmpty());
}

TEST_F(LifecycleTest, DeathDropsWhateverCallbackThereIs) {
    add(*mClient, hear("1"));
    mLog.take();
    mClient->handleAidlDeath();
    mClient->handleAidlDeath();
    EXPECT_THAT(mLog.take(), ElementsAre(kDeathLine, kDeathLine));
    EXPECT_EQ(1u, mSpy.unlinked());
    EXPECT_EQ(raiseAll(), kNobody);
}

}  // namespace
