#pragma once

#include <cstddef>
#include <vector>

#include <android/binder_ibinder.h>

namespace vela::test {

/** One death link as the product asked for it. */
struct DeathLink {
    AIBinder* binder;
    AIBinder_DeathRecipient* recipient;
    void* cookie;

    friend bool operator==(const DeathLink&, const DeathLink&) = default;
};

/**
 * Sees the death links that code of the test program asks for, whatever the platform answers (it
 * refuses local binders), and delivers their notifications. One at a time, used by one thread.
 */
class DeathSpy {
  public:
    DeathSpy();
    ~DeathSpy();
    DeathSpy(const DeathSpy&) = delete;
    DeathSpy& operator=(const DeathSpy&) = delete;

    /** The links that are neither unlinked nor gone with their recipient, in order of making. */
    [[nodiscard]] const std::vector<DeathLink>& links() const { return mLinks; }
    /** How many links were unlinked before their recipient went. */
    [[nodiscard]] size_t unlinked() const { return mUnlinked; }
    /** How many recipients exist. */
    [[nodiscard]] size_t recipients() const { return mRecipients.size(); }

    /** Delivers the notification of a link, which need not exist any more. */
    void die(const DeathLink& link) const { mOnDied(link.cookie); }

  private:
    friend struct DeathSpyHooks;

    AIBinder_DeathRecipient_onBinderDied mOnDied = nullptr;
    std::vector<DeathLink> mLinks;
    size_t mUnlinked = 0;
    std::vector<AIBinder_DeathRecipient*> mRecipients;
};

}  // namespace vela::test
