#pragma once

#include <atomic>
#include <memory>

#include "calls/Route.h"
#include "objects/DeathLinks.h"
#include "objects/Object.h"
#include "transport/Message.h"
#include "transport/Pipe.h"

namespace binder {

/**
 * An object of another process. It holds the object by its end of the object's pipe. There is one
 * proxy for each pipe, and whose the object is said to be, as long as this process refers to it: a
 * process that lies about an object harms nobody else's proxy.
 */
class Proxy final : public AIBinder {
  public:
    /** The proxy of an object of the route of which this process has got one more end. */
    static StrongBinder received(const std::shared_ptr<Route>& route, uint64_t id, PipeNumber pipe,
                                 android::base::unique_fd end, Charge charge);
    /** The proxy of an object that need not be held. */
    static StrongBinder permanent(const std::shared_ptr<Route>& route, uint64_t id);
    /** Marks all proxies of the route's objects dead. */
    static void routeDied(const Route& route);

    DeathLinks* deathLinks() override { return mDeathLinks.get(); }
    bool isDead() const { return mDeathLinks->isDead(); }

    const std::shared_ptr<Route>& route() const { return mRoute; }
    uint64_t id() const { return mId; }
    /** What goes with the binder to others; null for one that need not be held. */
    const SharedFd& end() const { return mEnd; }
    /** A one-way call is about to be sent. */
    void noteOneway() { mSentOneway.store(true, std::memory_order_relaxed); }

  private:
    class Proxies;

    Proxy(std::shared_ptr<Route> route, uint64_t id, PipeNumber pipe);
    ~Proxy() override = default;

    void onLastStrong() override;

    const std::shared_ptr<Route> mRoute;
    const uint64_t mId;
    const PipeNumber mPipe;
    SharedFd mEnd;  // written before others see the proxy, and with the last reference
    Charge mCharge;
    const std::shared_ptr<DeathLinks> mDeathLinks = std::make_shared<DeathLinks>();
    std::atomic<bool> mSentOneway{false};
};

/** Of a remote binder. */
inline Proxy& proxyOf(AIBinder& binder) {
    return static_cast<Proxy&>(binder);
}

}  // namespace binder
