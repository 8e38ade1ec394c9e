#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

/** Of calls. */
using Counter = std::atomic<int>;

void count(void* cookie) {
    ++*static_cast<Counter*>(cookie);
}

bool isReached(const Counter& counter) {
    return eventually([&] { return counter > 0; });
}

class DeathTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mPeer, nullptr); }

    binder_status_t link(Counter& counter) {
        return AIBinder_linkToDeath(mBinder.get(), mRecipient.get(), &counter);
    }
    binder_status_t unlink(Counter& counter) {
        return AIBinder_unlinkToDeath(mBinder.get(), mRecipient.get(), &counter);
    }
    /** Links are notified in their order: once the last has been, all have. */
    void killAndAwaitNotifications() {
        Counter last;
        ASSERT_EQ(link(last), STATUS_OK);
        mProcess.child.kill();
        ASSERT_TRUE(isReached(last));
    }

    PeerProcess mProcess{"mortal"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
    const ndk::SpAIBinder mBinder = mPeer == nullptr ? ndk::SpAIBinder() : mPeer->asBinder();
    const ndk::ScopedAIBinder_DeathRecipient mRecipient{AIBinder_DeathRecipient_new(count)};
};

TEST_F(DeathTest, EachLinkIsNotifiedOnceUnlessItIsGoneAndCallsFail) {
    Counter once;
    Counter twice;
    Counter gone;
    Counter halfGone;
    Counter orphan;
    for (Counter* const counter : {&once, &twice, &twice, &gone, &halfGone, &halfGone})
        ASSERT_EQ(link(*counter), STATUS_OK);
    EXPECT_EQ(unlink(gone), STATUS_OK);
    EXPECT_EQ(unlink(gone), STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(unlink(halfGone), STATUS_OK);
    AIBinder_DeathRecipient* const deleted = AIBinder_DeathRecipient_new(count);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), deleted, &orphan), STATUS_OK);
    AIBinder_DeathRecipient_delete(deleted);
    EXPECT_TRUE(AIBinder_isAlive(mBinder.get()));
    killAndAwaitNotifications();
    // One notification for one cookie, however often it was linked.
    for (Counter* const counter : {&once, &twice, &halfGone})
        EXPECT_EQ(*counter, 1);
    EXPECT_EQ(gone, 0);
    EXPECT_EQ(orphan, 0);

    EXPECT_FALSE(AIBinder_isAlive(mBinder.get()));
    EXPECT_EQ(AIBinder_ping(mBinder.get()), STATUS_DEAD_OBJECT);
    EXPECT_EQ(mPeer->post(1).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(link(once), STATUS_DEAD_OBJECT);
    EXPECT_EQ(unlink(once), STATUS_NAME_NOT_FOUND);
}

TEST_F(DeathTest, WrongLinksAreRefused) {
    Counter counter;
    const ndk::SpAIBinder local = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    EXPECT_EQ(AIBinder_linkToDeath(local.get(), mRecipient.get(), &counter),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(AIBinder_linkToDeath(nullptr, mRecipient.get(), &counter), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_linkToDeath(mBinder.get(), nullptr, &counter), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_unlinkToDeath(nullptr, mRecipient.get(), &counter), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_unlinkToDeath(local.get(), mRecipient.get(), &counter),
              STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(AIBinder_DeathRecipient_new(nullptr), nullptr);
    AIBinder_DeathRecipient_delete(nullptr);
}

TEST_F(DeathTest, RecipientAndCookieMayGoWithinTheirOwnNotification) {
    struct Record {
        AIBinder_DeathRecipient* recipient;
        ndk::SpAIBinder binder;
        Counter* counter;
    };
    Counter counter;
    auto* const record = new Record{nullptr, mBinder, &counter};
    record->recipient = AIBinder_DeathRecipient_new([](void* cookie) {
        auto* const own = static_cast<Record*>(cookie);
        EXPECT_EQ(AIBinder_unlinkToDeath(own->binder.get(), own->recipient, cookie),
                  STATUS_DEAD_OBJECT);
        AIBinder_DeathRecipient_delete(own->recipient);
        Counter* const done = own->counter;
        delete own;
        ++*done;
    });
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), record->recipient, record), STATUS_OK);
    killAndAwaitNotifications();
    EXPECT_EQ(counter, 1);
}

/** A notification that says that it has begun and then takes a lock. */
struct Locked {
    std::mutex lock;
    Counter begun;

    static void notify(void* cookie) {
        auto* const self = static_cast<Locked*>(cookie);
        ++self->begun;
        self->lock.lock();
        self->lock.unlock();
    }
};

TEST_F(DeathTest, NotificationThatHasNotBegunIsDroppedAndNoneIsWaitedFor) {
    Locked locked;
    Counter unlinked;
    Counter orphan;
    Counter ofProxy;
    Counter last;
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(Locked::notify));
    AIBinder_DeathRecipient* const deleted = AIBinder_DeathRecipient_new(count);
    // Whichever of the two is notified first holds up the other.
    for (AIBinder* const binder : {mBinder.get(), created->asBinder().get()}) {
        ASSERT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &locked), STATUS_OK);
    }
    ASSERT_EQ(AIBinder_linkToDeath(created->asBinder().get(), mRecipient.get(), &ofProxy),
              STATUS_OK);
    ASSERT_EQ(link(unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), deleted, &orphan), STATUS_OK);
    ASSERT_EQ(link(last), STATUS_OK);
    {
        const std::lock_guard guard(locked.lock);
        mProcess.child.kill();
        ASSERT_TRUE(isReached(locked.begun));
        for (AIBinder* const binder : {mBinder.get(), created->asBinder().get()}) {
            EXPECT_EQ(AIBinder_unlinkToDeath(binder, recipient.get(), &locked), STATUS_DEAD_OBJECT);
        }
        EXPECT_EQ(unlink(unlinked), STATUS_DEAD_OBJECT);
        AIBinder_DeathRecipient_delete(deleted);
        created.reset();
    }
    ASSERT_TRUE(isReached(last));
    for (Counter* const counter : {&unlinked, &orphan, &ofProxy})
        EXPECT_EQ(*counter, 0);
}

TEST_F(DeathTest, EveryEndOfALinkIsReportedOnce) {
    Counter refused;
    Counter unlinked;
    Counter released;
    Counter deleted;
    Counter notified;
    Counter late;
    const std::vector<Counter*> all = {&refused, &unlinked, &released, &deleted, &notified, &late};
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const ndk::SpAIBinder local = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    const auto makeRecipient = [] {
        AIBinder_DeathRecipient* const recipient = AIBinder_DeathRecipient_new([](void*) {});
        AIBinder_DeathRecipient_setOnUnlinked(recipient, count);
        return recipient;
    };
    AIBinder_DeathRecipient* const recipient = makeRecipient();
    AIBinder_DeathRecipient* const other = makeRecipient();

    EXPECT_EQ(AIBinder_linkToDeath(local.get(), recipient, &refused), STATUS_INVALID_OPERATION);
    EXPECT_EQ(refused, 1);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_unlinkToDeath(mBinder.get(), recipient, &unlinked), STATUS_OK);
    EXPECT_TRUE(isReached(unlinked));
    ASSERT_EQ(AIBinder_linkToDeath(created->asBinder().get(), recipient, &released), STATUS_OK);
    created.reset();
    EXPECT_EQ(released, 0) << "the recipient still has it";
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), other, &deleted), STATUS_OK);
    AIBinder_DeathRecipient_delete(other);
    EXPECT_EQ(deleted, 1);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &notified), STATUS_OK);
    killAndAwaitNotifications();
    EXPECT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &late), STATUS_DEAD_OBJECT);
    EXPECT_EQ(late, 1);
    AIBinder_DeathRecipient_delete(recipient);
    for (Counter* const counter : all) {
        EXPECT_TRUE(isReached(*counter));
        EXPECT_EQ(*counter, 1);
    }
}

}  // namespace
}  // namespace platformtest
