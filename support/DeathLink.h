#pragma once

#include <atomic>
#include <memory>

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>

namespace lmfg::support {

/**
 * The death link of one registered client: the base of a record whose own address is the cookie.
 *
 * Two hold a record: its registration, by a pointer of type Held, and the platform's link, which
 * gives it up when nothing can use the cookie any more. It is freed when both have let go, so its
 * address names no other record as long as a notification may bring it. A record refers to its
 * owner weakly.
 *
 * When the registration lets go, by destroying its pointer, the recipient is deleted. A
 * notification that is still under way finds a record that is not held any more: its client must
 * not be taken for the one that it was for. All members but the static ones are called under the
 * owner's lock, or when nobody else can reach the owner; none of them waits for a notification.
 */
class DeathLink {
  public:
    struct LetGo {
        void operator()(DeathLink* link) const { link->letGo(); }
    };
    template <typename Record>
    using Held = std::unique_ptr<Record, LetGo>;

    DeathLink(const DeathLink&) = delete;
    DeathLink& operator=(const DeathLink&) = delete;

    /**
     * Nothing happens for a null client, binder or recipient, and the platform's answer is ignored:
     * a local client cannot be linked, and one that is already dead stays registered.
     */
    void link(const std::shared_ptr<ndk::ICInterface>& client);
    void unlink(const std::shared_ptr<ndk::ICInterface>& client);

    /** Whether the registration has not let go. */
    [[nodiscard]] bool isHeld() const { return mIsHeld; }

  protected:
    explicit DeathLink(AIBinder_DeathRecipient_onBinderDied onBinderDied);
    virtual ~DeathLink() = default;

    /** The record that a notification's cookie names, held or not; null for none. */
    template <typename Record>
    [[nodiscard]] static const Record* fromCookie(void* cookie) {
        return static_cast<const Record*>(static_cast<const DeathLink*>(cookie));
    }

    /** Null once the registration has let go. */
    ndk::ScopedAIBinder_DeathRecipient recipient;

  private:
    static void onUnlinked(void* cookie);

    [[nodiscard]] ndk::SpAIBinder linkable(const std::shared_ptr<ndk::ICInterface>& client) const;
    void letGo();
    void release();

    bool mIsHeld = true;
    std::atomic<int> mHolders = 1;
};

}  // namespace lmfg::support
