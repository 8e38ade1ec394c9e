#include "Death.h"

#include <algorithm>
#include <utility>

#include "Thread.h"

namespace binder {

DeathLink::DeathLink(AIBinder_DeathRecipient& recipient, const AIBinder* who, void* cookie)
    : who(who),
      cookie(cookie),
      onDied(recipient.onDied),
      onUnlinked(recipient.onUnlinked),
      recipient(&recipient) {}

DeathLink::~DeathLink() {
    if (onUnlinked != nullptr) onUnlinked(cookie);
}

DeathNotifier& DeathNotifier::get() {
    static DeathNotifier* const instance = new DeathNotifier;  // outlives every thread
    return *instance;
}

binder_status_t DeathNotifier::link(ProxyObject& proxy, AIBinder_DeathRecipient& recipient,
                                    void* cookie) {
    const auto link = std::make_shared<DeathLink>(recipient, &proxy, cookie);
    const std::lock_guard lock(mLock);
    if (proxy.isDead()) return STATUS_DEAD_OBJECT;
    std::erase_if(proxy.mLinks, [](const auto& old) { return old.expired(); });
    proxy.mLinks.push_back(link);
    recipient.links.push_back(link);
    return STATUS_OK;
}

binder_status_t DeathNotifier::unlink(const AIBinder& binder, AIBinder_DeathRecipient& recipient,
                                      void* cookie) {
    std::shared_ptr<DeathLink> ended;  // released without the lock
    const std::lock_guard lock(mLock);
    auto& links = recipient.links;
    const auto found = std::find_if(links.rbegin(), links.rend(), [&](const auto& link) {
        return link->who == &binder && link->cookie == cookie;
    });
    if (found == links.rend()) return STATUS_NAME_NOT_FOUND;
    ended = std::move(*found);
    ended->recipient = nullptr;
    links.erase(std::next(found).base());
    return AIBinder_isAlive(&binder) ? STATUS_OK : STATUS_DEAD_OBJECT;
}

void DeathNotifier::forget(AIBinder_DeathRecipient& recipient) {
    std::vector<std::shared_ptr<DeathLink>> ended;
    const std::lock_guard lock(mLock);
    ended.swap(recipient.links);
    for (const std::shared_ptr<DeathLink>& link : ended)
        link->recipient = nullptr;
}

void DeathNotifier::forget(ProxyObject& proxy) {
    std::vector<std::shared_ptr<DeathLink>> ended;
    const std::lock_guard lock(mLock);
    for (const std::weak_ptr<DeathLink>& weakLink : std::exchange(proxy.mLinks, {})) {
        const std::shared_ptr<DeathLink>& link = ended.emplace_back(weakLink.lock());
        if (link == nullptr || link->recipient == nullptr) continue;
        std::erase(link->recipient->links, link);
        link->recipient = nullptr;
    }
}

void DeathNotifier::proxyDied(ProxyObject& proxy) {
    const std::lock_guard lock(mLock);
    if (proxy.mDead.exchange(true) || proxy.mLinks.empty()) return;
    postLocked({.links = std::exchange(proxy.mLinks, {}), .references = {}});
}

void DeathNotifier::release(std::vector<StrongBinder> references) {
    if (references.empty()) return;
    const std::lock_guard lock(mLock);
    postLocked({.links = {}, .references = std::move(references)});
}

void DeathNotifier::postLocked(Work work) {
    mWork.push_back(std::move(work));
    mStarted = mStarted || startThread("binder:notify", [this] { run(); });
    mWorkArrived.notify_one();
}

void DeathNotifier::run() {
    for (;;) {
        Work work;
        {
            std::unique_lock lock(mLock);
            while (mWork.empty())
                mWorkArrived.wait(lock);
            work = std::move(mWork.front());
            mWork.pop_front();
        }
        for (const std::weak_ptr<DeathLink>& link : work.links)
            notify(link);
    }
}

void DeathNotifier::notify(const std::weak_ptr<DeathLink>& weakLink) {
    std::shared_ptr<DeathLink> link;
    {
        const std::lock_guard lock(mLock);
        link = weakLink.lock();
        if (link == nullptr || link->recipient == nullptr) return;
    }
    link->onDied(link->cookie);
    const std::lock_guard lock(mLock);
    if (link->recipient == nullptr) return;
    std::erase(link->recipient->links, link);
    link->recipient = nullptr;
}

}  // namespace binder

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    return onBinderDied == nullptr ? nullptr : new AIBinder_DeathRecipient(onBinderDied);
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    if (recipient != nullptr) recipient->onUnlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    binder::DeathNotifier::get().forget(*recipient);
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    binder::ProxyObject* const proxy = binder->asProxy();
    if (proxy == nullptr) return STATUS_INVALID_OPERATION;
    return binder::DeathNotifier::get().link(*proxy, *recipient, cookie);
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    return binder::DeathNotifier::get().unlink(*binder, *recipient, cookie);
}
