#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>

#include "calls/Peer.h"
#include "objects/DeathLinks.h"
#include "objects/Object.h"

namespace binder {

/**
 * An object of another process. There is one proxy for each as long as this process refers to it;
 * it gives back all references that the owner counts for it when it goes.
 */
class Proxy final : public AIBinder {
  public:
    /** The proxy of an object of which the owner counts one reference more for this process. */
    static StrongBinder received(const std::shared_ptr<Peer>& owner, uint64_t id,
                                 Stability stability);
    /** The proxy of an object that needs no counting. */
    static StrongBinder permanent(const std::shared_ptr<Peer>& owner, uint64_t id);
    /** Marks all proxies of the peer's objects dead. */
    static void ownerDied(const Peer& owner);

    DeathLinks* deathLinks() override { return mDeathLinks.get(); }
    bool isDead() const { return mDeathLinks->isDead(); }

    const std::shared_ptr<Peer>& owner() const { return mOwner; }
    uint64_t id() const { return mId; }
    /** A one-way call is about to be sent: the references go back behind it. */
    void noteOneway() { mSentOneway.store(true, std::memory_order_relaxed); }

  private:
    Proxy(std::shared_ptr<Peer> owner, uint64_t id);
    ~Proxy() override = default;

    static StrongBinder findOrMake(const std::shared_ptr<Peer>& owner, uint64_t id,
                                   uint32_t references);
    void onLastStrong() override;

    const std::shared_ptr<Peer> mOwner;
    const uint64_t mId;
    const std::shared_ptr<DeathLinks> mDeathLinks = std::make_shared<DeathLinks>();
    std::atomic<bool> mSentOneway{false};

    static std::mutex sLock;
    uint32_t mReferences GUARDED_BY(sLock) = 0;
    static std::unordered_map<PeerNumber, std::unordered_map<uint64_t, Proxy*>>& proxies()
            REQUIRES(sLock);
};

/** Of a remote binder. */
inline Proxy& proxyOf(AIBinder& binder) {
    return static_cast<Proxy&>(binder);
}

}  // namespace binder
