#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

#include "Object.h"

namespace binder {

/** One registration. Its end, however it comes, is the end of the cookie's use. */
struct DeathLink {
    DeathLink(AIBinder_DeathRecipient& recipient, const AIBinder* who, void* cookie);
    ~DeathLink();

    const AIBinder* const who;  // for comparison only
    void* const cookie;
    const AIBinder_DeathRecipient_onBinderDied onDied;
    const AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;

    // Guarded by the death notifier's lock.
    AIBinder_DeathRecipient* recipient;  // null when the link has ended
};

/**
 * Links of proxies to recipients, and the one thread that runs what the I/O thread must not: death
 * notifications, and the release of references that other processes gave back.
 *
 * A link belongs to its recipient's list until it is unlinked, its recipient deleted, its proxy
 * released or its notification over. A notification begins under the lock, and only for a link that
 * is still in its list; no lock is held while a callback runs, so unlinking never waits for one.
 */
class DeathNotifier {
  public:
    static DeathNotifier& get();

    binder_status_t link(ProxyObject& proxy, AIBinder_DeathRecipient& recipient, void* cookie);
    binder_status_t unlink(const AIBinder& binder, AIBinder_DeathRecipient& recipient,
                           void* cookie);
    /** Ends all links of the recipient. */
    void forget(AIBinder_DeathRecipient& recipient);
    /** Ends all links of the proxy, which nobody refers to any more. */
    void forget(ProxyObject& proxy);

    /** Marks the proxy dead and has its links notified. */
    void proxyDied(ProxyObject& proxy);
    /** Releases the references on the notifier's thread. */
    void release(std::vector<StrongBinder> references);

  private:
    struct Work {
        std::vector<std::weak_ptr<DeathLink>> links;
        std::vector<StrongBinder> references;
    };

    void postLocked(Work work) REQUIRES(mLock);
    // The analysis does not follow std::unique_lock.
    void run() NO_THREAD_SAFETY_ANALYSIS;
    void notify(const std::weak_ptr<DeathLink>& weakLink);

    std::mutex mLock;  // also guards the lists of recipients and proxies
    std::condition_variable mWorkArrived;
    std::deque<Work> mWork GUARDED_BY(mLock);
    bool mStarted GUARDED_BY(mLock) = false;
};

}  // namespace binder

struct AIBinder_DeathRecipient {
    explicit AIBinder_DeathRecipient(AIBinder_DeathRecipient_onBinderDied onDied)
        : onDied(onDied) {}

    const AIBinder_DeathRecipient_onBinderDied onDied;
    std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> onUnlinked{nullptr};
    // Guarded by the death notifier's lock.
    std::vector<std::shared_ptr<binder::DeathLink>> links;
};
