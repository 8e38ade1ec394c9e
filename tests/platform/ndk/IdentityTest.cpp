#include <memory>
#include <thread>
#include <vector>

#include <android/binder_auto_utils.h>
#include <gmock/gmock.h>

#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

int32_t liveObjectsOf(ITestPeer& peer) {
    int32_t count = -1;
    EXPECT_TRUE(peer.liveObjects(&count).isOk());
    return count;
}

class IdentityTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mPeer, nullptr); }

    PeerProcess mProcess{"identity"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
};

TEST_F(IdentityTest, BinderThatComesHomeIsTheObjectItself) {
    bool isYou = false;
    ASSERT_TRUE(mPeer->isYou(mPeer->asBinder(), &isYou).isOk());
    EXPECT_TRUE(isYou);

    const auto local = ndk::SharedRefBase::make<TestPeer>();
    std::shared_ptr<ITestPeer> returned;
    ASSERT_TRUE(mPeer->echoPeer(local, &returned).isOk());
    EXPECT_EQ(returned, local);
    ASSERT_TRUE(mPeer->keep(local).isOk());
    ASSERT_TRUE(mPeer->kept(&returned).isOk());
    EXPECT_EQ(returned, local);
    ASSERT_TRUE(mPeer->echoPeer(nullptr, &returned).isOk());
    EXPECT_EQ(returned, nullptr);
}

TEST_F(IdentityTest, NullIsNoObject) {
    AIBinder* const null = nullptr;
    AIBinder_incStrong(null);
    AIBinder_decStrong(null);
    AIBinder_Weak_delete(nullptr);
    EXPECT_FALSE(AIBinder_isRemote(null));
    EXPECT_FALSE(AIBinder_isAlive(null));
    EXPECT_FALSE(AIBinder_associateClass(null, AIBinder_getClass(mPeer->asBinder().get())));
    EXPECT_EQ(AIBinder_debugGetRefCount(null), -1);
    EXPECT_EQ(AIBinder_getClass(null), nullptr);
    EXPECT_EQ(AIBinder_getUserData(null), nullptr);
    EXPECT_EQ(AIBinder_Weak_new(null), nullptr);
    EXPECT_EQ(AIBinder_Weak_promote(nullptr), nullptr);
    EXPECT_EQ(AIBinder_ping(null), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_dump(null, -1, nullptr, 0), STATUS_UNEXPECTED_NULL);
    ndk::ScopedAParcel in;
    EXPECT_EQ(AIBinder_prepareTransaction(null, in.getR()), STATUS_UNEXPECTED_NULL);
}

TEST_F(IdentityTest, OneRemoteObjectIsOneBinder) {
    const std::shared_ptr<ITestPeer> again = peerNamed("identity");
    EXPECT_NE(again, mPeer);
    EXPECT_EQ(again->asBinder(), mPeer->asBinder());
    EXPECT_TRUE(mPeer->isRemote());

    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    EXPECT_NE(created->asBinder(), mPeer->asBinder());
}

TEST_F(IdentityTest, ProxyLivesAsLongAsItsReferences) {
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(created->asBinder().get()));
    EXPECT_NE(weak.promote().get(), nullptr);
    // The proxy object holds one, asBinder() gives another.
    const int32_t held = AIBinder_debugGetRefCount(created->asBinder().get());
    {
        const ndk::SpAIBinder other = created->asBinder();
        EXPECT_EQ(AIBinder_debugGetRefCount(other.get()), held);
    }
    created.reset();
    EXPECT_EQ(weak.promote().get(), nullptr);
}

TEST_F(IdentityTest, OnewayCallArrivesThoughItsProxyIsGone) {
    constexpr int kObjects = 200;
    for (int i = 0; i < kObjects; ++i) {
        std::shared_ptr<ITestPeer> created;
        ASSERT_TRUE(mPeer->create(&created).isOk());
        ASSERT_TRUE(created->post(i).isOk());
    }
    EXPECT_TRUE(eventually([&] {
        int32_t posts = 0;
        EXPECT_TRUE(mPeer->totalPosts(&posts).isOk());
        return posts == kObjects;
    }));
    EXPECT_TRUE(eventually([&] { return liveObjectsOf(*mPeer) == 1; }));
}

class HandOverTest : public IdentityTest {
  protected:
    void SetUp() override {
        IdentityTest::SetUp();
        ASSERT_NE(mOther, nullptr);
    }

    PeerProcess mOtherProcess{"other"};
    const std::shared_ptr<ITestPeer> mOther = mOtherProcess.peer;
};

TEST_F(HandOverTest, ThirdProcessGetsTheObjectFromWhoeverHasIt) {
    for (const bool oneway : {false, true}) {
        std::shared_ptr<ITestPeer> created;
        ASSERT_TRUE(mPeer->create(&created).isOk());
        ASSERT_TRUE((oneway ? mOther->postMuch({}, {}, created) : mOther->keep(created)).isOk());
        created.reset();
        std::vector<int32_t> posts;
        if (oneway) ASSERT_TRUE(mOther->awaitPosts(1, &posts).isOk());

        // Nobody but the other process holds it now. It calls it, and hands it back.
        std::shared_ptr<ITestPeer> kept;
        ASSERT_TRUE(mOther->kept(&kept).isOk());
        ASSERT_NE(kept, nullptr);
        int32_t calls = 0;
        EXPECT_TRUE(mOther->descend(kept, 1, &calls).isOk());
        EXPECT_EQ(calls, 2);
        bool isYou = false;
        EXPECT_TRUE(kept->isYou(kept->asBinder(), &isYou).isOk());
        EXPECT_TRUE(isYou);
        kept.reset();
        EXPECT_EQ(liveObjectsOf(*mPeer), 2);
        ASSERT_TRUE(mOther->keep(nullptr).isOk());
        EXPECT_TRUE(eventually([&] { return liveObjectsOf(*mPeer) == 1; }));
    }
}

TEST_F(HandOverTest, OwnersDeathReachesEveryHolder) {
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    ASSERT_TRUE(mOther->keep(created).isOk());
    ASSERT_TRUE(mOther->callKept().isOk());
    mProcess.child.kill();
    EXPECT_EQ(mOther->callKept().getStatus(), STATUS_DEAD_OBJECT);
    // A call that carries a dead object fails.
    EXPECT_EQ(created->post(1).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_TRUE(eventually([&] { return !AIBinder_isAlive(created->asBinder().get()); }));
    EXPECT_EQ(mOther->keep(created).getStatus(), STATUS_DEAD_OBJECT);
}

TEST_F(HandOverTest, StoppedOwnerHoldsUpNobody) {
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    mProcess.child.signal(SIGSTOP);
    ndk::SpAIBinder returned;
    EXPECT_TRUE(mOther->echoBinder(created->asBinder(), &returned).isOk());
    EXPECT_EQ(returned, created->asBinder());
    mProcess.child.signal(SIGCONT);
    created.reset();
    EXPECT_EQ(liveObjectsOf(*mPeer), 2);
    returned = nullptr;
    EXPECT_TRUE(eventually([&] { return liveObjectsOf(*mPeer) == 1; }));
}

// Hands what the keeper keeps on to it again and again, from its own references, and is killed.
const harness::Role kRelay("relay", [](harness::Parent& parent) {
    const std::shared_ptr<ITestPeer> keeper = peerNamed(parent.arguments[0]);
    std::shared_ptr<ITestPeer> passed;
    if (!keeper->kept(&passed).isOk()) return;
    parent.say("ready");
    while (keeper->keep(passed).isOk()) {
    }
});

TEST_F(HandOverTest, KilledRelaysTakeNoReferenceOfOthers) {
    const auto local = ndk::SharedRefBase::make<TestPeer>();
    const ndk::SpAIBinder binder = local->asBinder();
    ASSERT_TRUE(mPeer->keep(local).isOk());
    for (int i = 0; i < 10; ++i) {
        harness::Child relays[] = {harness::Child("relay", {"identity"}),
                                   harness::Child("relay", {"identity"})};
        for (harness::Child& relay : relays)
            ASSERT_EQ(relay.hear(), "ready");
        // Meanwhile the owner gives the same object away, and is called over it.
        for (int j = 0; j < 10; ++j) {
            EXPECT_TRUE(mOther->keep(local).isOk());
            EXPECT_TRUE(mOther->callKept().isOk());
            EXPECT_TRUE(mOther->keep(nullptr).isOk());
            EXPECT_TRUE(mPeer->callKept().isOk());
            EXPECT_TRUE(mPeer->keep(local).isOk());
        }
        for (harness::Child& relay : relays)
            relay.kill();
        EXPECT_TRUE(mPeer->callKept().isOk());
    }
    // A killed relay's last call may still run. One reference is left.
    EXPECT_TRUE(eventually([&] {
        return mPeer->keep(nullptr).isOk() && AIBinder_debugGetRefCount(binder.get()) == 1;
    })) << AIBinder_debugGetRefCount(binder.get());
}

}  // namespace
}  // namespace platformtest
