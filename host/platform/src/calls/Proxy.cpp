#include "calls/Proxy.h"

#include <utility>

namespace binder {

std::mutex Proxy::sLock;

std::unordered_map<PeerNumber, std::unordered_map<uint64_t, Proxy*>>& Proxy::proxies() {
    static auto* const instance =  // outlives every thread
            new std::unordered_map<PeerNumber, std::unordered_map<uint64_t, Proxy*>>;
    return *instance;
}

Proxy::Proxy(std::shared_ptr<Peer> owner, uint64_t id)
    : AIBinder(nullptr, true), mOwner(std::move(owner)), mId(id) {}

StrongBinder Proxy::findOrMake(const std::shared_ptr<Peer>& owner, uint64_t id,
                               uint32_t references) {
    const std::lock_guard lock(sLock);
    if (owner->isDead()) {
        auto* const dead = new Proxy(owner, id);
        dead->mDeathLinks->objectDied();
        return StrongBinder(dead);
    }
    Proxy*& known = proxies()[owner->number()][id];
    if (known == nullptr || !known->tryIncStrong()) known = new Proxy(owner, id);
    known->mReferences += references;
    return StrongBinder(known);
}

StrongBinder Proxy::received(const std::shared_ptr<Peer>& owner, uint64_t id, Stability stability) {
    const bool isPermanent = id == kServiceManagerObject;
    StrongBinder proxy = findOrMake(owner, id, isPermanent ? 0 : 1);
    proxy->offerStability(stability);
    return proxy;
}

StrongBinder Proxy::permanent(const std::shared_ptr<Peer>& owner, uint64_t id) {
    return findOrMake(owner, id, 0);
}

void Proxy::ownerDied(const Peer& owner) {
    const std::lock_guard lock(sLock);
    const auto node = proxies().extract(owner.number());
    if (node.empty()) return;
    for (const auto& [id, proxy] : node.mapped())
        proxy->mDeathLinks->objectDied();
}

void Proxy::onLastStrong() {
    mDeathLinks->end();
    Header message{};
    {
        const std::lock_guard lock(sLock);
        const auto ofOwner = proxies().find(mOwner->number());
        if (ofOwner != proxies().end()) {
            const auto self = ofOwner->second.find(mId);
            if (self != ofOwner->second.end() && self->second == this) ofOwner->second.erase(self);
            if (ofOwner->second.empty()) proxies().erase(ofOwner);
        }
        if (mReferences == 0 || mOwner->isDead()) return;
        message.count = mReferences;
    }
    message.kind = MessageKind::kRelease;
    message.object = mId;
    if (mSentOneway && mOwner->onewayLink().sendBehind(message)) return;
    mOwner->sendControl(message);
}

}  // namespace binder
