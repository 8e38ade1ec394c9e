#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <gmock/gmock.h>

#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

/** Counts calls; any thread. */
class Counter {
  public:
    void add() {
        const std::lock_guard lock(mLock);
        ++mCount;
        mChanged.notify_all();
    }
    int count() {
        const std::lock_guard lock(mLock);
        return mCount;
    }
    bool await(int count) {
        std::unique_lock lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mCount >= count; });
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int mCount GUARDED_BY(mLock) = 0;
};

void count(void* cookie) {
    static_cast<Counter*>(cookie)->add();
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
        ASSERT_TRUE(last.await(1));
    }

    PeerProcess mProcess{"mortal"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
    const ndk::SpAIBinder mBinder = mPeer == nullptr ? ndk::SpAIBinder() : mPeer->asBinder();
    const ndk::ScopedAIBinder_DeathRecipient mRecipient{AIBinder_DeathRecipient_new(count)};
};

TEST_F(DeathTest, EachLinkIsNotifiedOnceAndCallsFail) {
    Counter once;
    Counter twice;
    ASSERT_EQ(link(once), STATUS_OK);
    ASSERT_EQ(link(twice), STATUS_OK);
    ASSERT_EQ(link(twice), STATUS_OK);
    EXPECT_TRUE(AIBinder_isAlive(mBinder.get()));
    killAndAwaitNotifications();
    EXPECT_EQ(once.count(), 1);
    // One notification for one cookie, however often it was linked.
    EXPECT_EQ(twice.count(), 1);

    EXPECT_FALSE(AIBinder_isAlive(mBinder.get()));
    EXPECT_EQ(AIBinder_ping(mBinder.get()), STATUS_DEAD_OBJECT);
    EXPECT_EQ(mPeer->post(1).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(link(once), STATUS_DEAD_OBJECT);
    EXPECT_EQ(unlink(once), STATUS_NAME_NOT_FOUND);
}

TEST_F(DeathTest, UnlinkedIsNotNotified) {
    Counter gone;
    Counter halfGone;
    ASSERT_EQ(link(gone), STATUS_OK);
    ASSERT_EQ(link(halfGone), STATUS_OK);
    ASSERT_EQ(link(halfGone), STATUS_OK);
    EXPECT_EQ(unlink(gone), STATUS_OK);
    EXPECT_EQ(unlink(gone), STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(unlink(halfGone), STATUS_OK);
    killAndAwaitNotifications();
    EXPECT_EQ(gone.count(), 0);
    EXPECT_EQ(halfGone.count(), 1);
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

TEST_F(DeathTest, DeletedRecipientIsNotNotified) {
    Counter counter;
    AIBinder_DeathRecipient* const deleted = AIBinder_DeathRecipient_new(count);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), deleted, &counter), STATUS_OK);
    AIBinder_DeathRecipient_delete(deleted);
    killAndAwaitNotifications();
    EXPECT_EQ(counter.count(), 0);
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
        done->add();
    });
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), record->recipient, record), STATUS_OK);
    killAndAwaitNotifications();
    EXPECT_EQ(counter.count(), 1);
}

/** A notification that says that it has begun and then takes a lock. */
struct Locked {
    std::mutex lock;
    Counter begun;
    Counter done;

    static void notify(void* cookie) {
        auto* const self = static_cast<Locked*>(cookie);
        self->begun.add();
        self->lock.lock();
        self->lock.unlock();
        self->done.add();  // the last touch: who awaits it may destroy the record
    }
};

TEST_F(DeathTest, UnlinkingDoesNotWaitForARunningNotification) {
    Locked locked;
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(Locked::notify));
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient.get(), &locked), STATUS_OK);
    {
        const std::lock_guard guard(locked.lock);
        mProcess.child.kill();
        ASSERT_TRUE(locked.begun.await(1));
        EXPECT_EQ(AIBinder_unlinkToDeath(mBinder.get(), recipient.get(), &locked),
                  STATUS_DEAD_OBJECT);
    }
    EXPECT_TRUE(locked.done.await(1));
}

TEST_F(DeathTest, NotificationThatHasNotBegunIsDropped) {
    Locked locked;
    Counter unlinked;
    Counter orphan;
    Counter last;
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(Locked::notify));
    AIBinder_DeathRecipient* const deleted = AIBinder_DeathRecipient_new(count);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient.get(), &locked), STATUS_OK);
    ASSERT_EQ(link(unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), deleted, &orphan), STATUS_OK);
    ASSERT_EQ(link(last), STATUS_OK);
    {
        const std::lock_guard guard(locked.lock);
        mProcess.child.kill();
        ASSERT_TRUE(locked.begun.await(1));
        EXPECT_EQ(unlink(unlinked), STATUS_DEAD_OBJECT);
        AIBinder_DeathRecipient_delete(deleted);
    }
    ASSERT_TRUE(last.await(1));
    EXPECT_EQ(unlinked.count(), 0);
    EXPECT_EQ(orphan.count(), 0);
}

TEST_F(DeathTest, NotificationOfAProxyThatIsGoneIsDropped) {
    Locked locked;
    Counter orphan;
    Counter last;
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(Locked::notify));
    // Whichever of the two is notified first holds up the other.
    for (AIBinder* const binder : {mBinder.get(), created->asBinder().get()}) {
        ASSERT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &locked), STATUS_OK);
    }
    ASSERT_EQ(AIBinder_linkToDeath(created->asBinder().get(), mRecipient.get(), &orphan),
              STATUS_OK);
    ASSERT_EQ(link(last), STATUS_OK);
    {
        const std::lock_guard guard(locked.lock);
        mProcess.child.kill();
        ASSERT_TRUE(locked.begun.await(1));
        created.reset();
    }
    ASSERT_TRUE(last.await(1));
    EXPECT_EQ(orphan.count(), 0);
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
    EXPECT_EQ(refused.count(), 1);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_unlinkToDeath(mBinder.get(), recipient, &unlinked), STATUS_OK);
    EXPECT_TRUE(unlinked.await(1));
    ASSERT_EQ(AIBinder_linkToDeath(created->asBinder().get(), recipient, &released), STATUS_OK);
    created.reset();
    EXPECT_TRUE(released.await(1));
    // The link outlives its recipient.
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), other, &deleted), STATUS_OK);
    AIBinder_DeathRecipient_delete(other);
    EXPECT_EQ(deleted.count(), 0);
    ASSERT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &notified), STATUS_OK);
    killAndAwaitNotifications();
    EXPECT_EQ(AIBinder_linkToDeath(mBinder.get(), recipient, &late), STATUS_DEAD_OBJECT);
    EXPECT_EQ(late.count(), 1);
    AIBinder_DeathRecipient_delete(recipient);
    for (Counter* const counter : all) {
        EXPECT_TRUE(counter->await(1));
        EXPECT_EQ(counter->count(), 1);
    }
}

TEST_F(DeathTest, CallInProgressFails) {
    binder_status_t status = STATUS_OK;
    std::thread caller([&] { status = mPeer->hang().getStatus(); });
    std::vector<int32_t> posts;
    EXPECT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
    mProcess.child.kill();
    caller.join();
    EXPECT_EQ(status, STATUS_DEAD_OBJECT);
}

}  // namespace
}  // namespace platformtest
