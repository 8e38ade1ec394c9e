#include "support/DeathLink.h"

namespace lmfg::support {

DeathLink::DeathLink(AIBinder_DeathRecipient_onBinderDied onBinderDied)
    : recipient(AIBinder_DeathRecipient_new(onBinderDied)) {
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), onUnlinked);
}

void DeathLink::link(const std::shared_ptr<ndk::ICInterface>& client) {
    const ndk::SpAIBinder binder = linkable(client);
    if (binder.get() == nullptr) return;
    // For the platform, which runs onUnlinked once for this call, even if it fails.
    ++mHolders;
    (void)AIBinder_linkToDeath(binder.get(), recipient.get(), this);
}

void DeathLink::unlink(const std::shared_ptr<ndk::ICInterface>& client) {
    const ndk::SpAIBinder binder = linkable(client);
    if (binder.get() == nullptr) return;
    (void)AIBinder_unlinkToDeath(binder.get(), recipient.get(), this);
}

void DeathLink::onUnlinked(void* cookie) {
    static_cast<DeathLink*>(cookie)->release();
}

/** The client's binder; null if that, the client or the recipient is missing. */
ndk::SpAIBinder DeathLink::linkable(const std::shared_ptr<ndk::ICInterface>& client) const {
    return client == nullptr || recipient.get() == nullptr ? ndk::SpAIBinder() : client->asBinder();
}

void DeathLink::letGo() {
    mIsHeld = false;
    recipient.set(nullptr);
    release();
}

void DeathLink::release() {
    if (--mHolders == 0) delete this;
}

}  // namespace lmfg::support
