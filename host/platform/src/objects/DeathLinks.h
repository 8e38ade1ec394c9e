#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

namespace binder {

class Recipient;

/**
 * What one call of AIBinder_linkToDeath made. It ends, with its onUnlinked, when nobody can use the
 * cookie any more: its recipient has let go of it, and no notification of it is under way.
 */
struct DeathLink {
    DeathLink(const Recipient& recipient, void* cookie);
    ~DeathLink();
    DeathLink(const DeathLink&) = delete;
    DeathLink& operator=(const DeathLink&) = delete;

    void* const cookie;
    const AIBinder_DeathRecipient_onBinderDied onDied;
    const AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;
    std::atomic<bool> isUnlinked{false};  // no notification of it may begin
};

/** Who is notified: holds its links until they are unlinked or notified, or it is deleted. */
class Recipient {
  public:
    explicit Recipient(AIBinder_DeathRecipient_onBinderDied onDied) : onDied(onDied) {}

    void add(std::shared_ptr<DeathLink> link);
    /** Lets go of the link, if it still holds it. */
    void remove(const DeathLink& link);
    /** Lets go of all. */
    void clear();

    const AIBinder_DeathRecipient_onBinderDied onDied;
    std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> onUnlinked{nullptr};

  private:
    using Links = std::vector<std::shared_ptr<DeathLink>>;

    std::mutex mLock;
    Links mLinks GUARDED_BY(mLock);
};

/**
 * The links of one remote object, in their order. A notification begins only for a link that is
 * still here and whose recipient holds it; no lock is held while it runs, so unlinking never waits
 * for one. Any thread.
 */
class DeathLinks : public std::enable_shared_from_this<DeathLinks> {
  public:
    bool isDead() const { return mIsDead.load(std::memory_order_acquire); }

    /** STATUS_DEAD_OBJECT when the object is dead; the link has ended by then. */
    binder_status_t link(const std::shared_ptr<Recipient>& recipient, void* cookie);
    /** STATUS_NAME_NOT_FOUND without such a link, STATUS_DEAD_OBJECT when the object is dead. */
    binder_status_t unlink(Recipient& recipient, void* cookie);

    /** Marks the object dead and has the worker notify the links. */
    void objectDied();
    /** Notifies nobody any more: nobody refers to the object. */
    void end();

  private:
    /** One here; its recipient may be gone, and another one in its place. */
    struct Link {
        std::weak_ptr<DeathLink> weak;
        std::weak_ptr<Recipient> recipient;
        void* cookie;
    };

    void notify();

    std::atomic<bool> mIsDead{false};  // written under the lock
    std::mutex mLock;
    std::vector<Link> mLinks GUARDED_BY(mLock);
};

}  // namespace binder

struct AIBinder_DeathRecipient {
    const std::shared_ptr<binder::Recipient> recipient;
};
