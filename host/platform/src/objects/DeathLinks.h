#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

namespace binder {

/** What a recipient is to its links, which may outlive it. */
struct Recipient {
    explicit Recipient(AIBinder_DeathRecipient_onBinderDied onDied) : onDied(onDied) {}

    const AIBinder_DeathRecipient_onBinderDied onDied;
    std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> onUnlinked{nullptr};
    std::atomic<bool> isDeleted{false};
};

/**
 * The links of one remote object, in their order. Every link ends once, with its onUnlinked: when
 * it is unlinked, when its notification is over, or when the last reference to the object goes.
 *
 * A notification begins only for a link that is still here and whose recipient is; no lock is held
 * while it runs, so unlinking never waits for one. Any thread.
 */
class DeathLinks : public std::enable_shared_from_this<DeathLinks> {
  public:
    bool isDead() const { return mIsDead.load(std::memory_order_acquire); }

    /** STATUS_DEAD_OBJECT when the object is dead; the link has ended by then. */
    binder_status_t link(std::shared_ptr<Recipient> recipient, void* cookie);
    /** STATUS_NAME_NOT_FOUND without such a link, STATUS_DEAD_OBJECT when the object is dead. */
    binder_status_t unlink(const Recipient& recipient, void* cookie);

    /** Marks the object dead and has the worker notify the links. */
    void objectDied();
    /** Ends all links: nobody refers to the object any more. */
    void end();

  private:
    struct Link {
        Link(std::shared_ptr<Recipient> recipient, void* cookie);
        ~Link();

        const std::shared_ptr<Recipient> recipient;
        void* const cookie;
        const AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;
    };

    void notify();

    std::atomic<bool> mIsDead{false};  // written under the lock
    std::mutex mLock;
    std::vector<std::shared_ptr<Link>> mLinks GUARDED_BY(mLock);
};

}  // namespace binder

struct AIBinder_DeathRecipient {
    const std::shared_ptr<binder::Recipient> recipient;
};
