#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include <android/binder_ibinder.h>

namespace vela::test {

/**
 * Stands in for the platform's death links in the test program: it links every binder, as if it
 * were another process's, and delivers notifications when it is told to. A cookie ends as the
 * platform ends it: once for each link, when the link was removed and no notification runs. Without
 * a spy no link is made, as for a local binder. One at a time, for any thread.
 */
class DeathSpy {
  public:
    /** A notification that has begun: to be called once, at any time, whatever happens. */
    using Notification = std::function<void()>;

    DeathSpy();
    ~DeathSpy();
    DeathSpy(const DeathSpy&) = delete;
    DeathSpy& operator=(const DeathSpy&) = delete;

    /** Whose links are neither unlinked nor gone with their recipient, in order of making. */
    [[nodiscard]] std::vector<AIBinder*> linked() const;
    /** How many links were unlinked before their recipient went. */
    [[nodiscard]] size_t unlinked() const;
    /** How many recipients exist. */
    [[nodiscard]] size_t recipients() const;

    /**
     * Begins the notification of the first of linked() that has none yet; null if there is none.
     */
    [[nodiscard]] Notification begin();
    void die() { begin()(); }
    /** Calls `action` once, before the next link is removed. */
    static void onNextUnlink(std::function<void()> action);
    /** Calls the function of the latest link without a cookie. */
    void dieWithoutCookie();
};

}  // namespace vela::test
