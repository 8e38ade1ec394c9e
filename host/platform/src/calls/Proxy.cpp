#include "calls/Proxy.h"

#include <map>
#include <mutex>
#include <tuple>
#include <utility>

#include "base/Fork.h"

namespace binder {

using android::base::unique_fd;

/** The living proxies of this process. */
class Proxy::Proxies {
  public:
    static Proxies& get() {
        static Proxies* const instance = new Proxies;  // outlives every thread
        return *instance;
    }

    StrongBinder findOrMake(const std::shared_ptr<Route>& route, uint64_t id, PipeNumber pipe,
                            unique_fd end, Charge charge) {
        const std::lock_guard lock(mLock);
        const Key key(route.get(), id, pipe);
        Proxy*& known = mProxies[key];
        if (known != nullptr && known->tryIncStrong()) return StrongBinder(known);
        known = new Proxy(route, id, pipe);
        known->mCharge = std::move(charge);
        if (end >= 0) known->mEnd = std::make_shared<const unique_fd>(std::move(end));
        StrongBinder made(known);
        const bool isDead =
                route->isDead() || (known->mEnd != nullptr && isOtherEndGone(*known->mEnd));
        if (isDead) {
            known->mDeathLinks->objectDied();
            mProxies.erase(key);
        }
        return made;
    }

    void routeDied(const Route& route) {
        const std::lock_guard lock(mLock);
        const auto first = mProxies.lower_bound(Key(&route, 0, {}));
        auto last = first;
        for (; last != mProxies.end() && std::get<0>(last->first) == &route; ++last)
            last->second->mDeathLinks->objectDied();
        mProxies.erase(first, last);
    }

    void forget(const Proxy& proxy) {
        const std::lock_guard lock(mLock);
        const auto known = mProxies.find(Key(proxy.mRoute.get(), proxy.mId, proxy.mPipe));
        if (known != mProxies.end() && known->second == &proxy) mProxies.erase(known);
    }

  private:
    using Key = std::tuple<const Route*, uint64_t, PipeNumber>;

    std::mutex mLock;
    std::map<Key, Proxy*> mProxies GUARDED_BY(mLock);
};

Proxy::Proxy(std::shared_ptr<Route> route, uint64_t id, PipeNumber pipe)
    : AIBinder(nullptr, true), mRoute(std::move(route)), mId(id), mPipe(pipe) {}

StrongBinder Proxy::received(const std::shared_ptr<Route>& route, uint64_t id, PipeNumber pipe,
                             unique_fd end, Charge charge) {
    return Proxies::get().findOrMake(route, id, pipe, std::move(end), std::move(charge));
}

StrongBinder Proxy::permanent(const std::shared_ptr<Route>& route, uint64_t id) {
    return Proxies::get().findOrMake(route, id, {}, unique_fd(), {});
}

void Proxy::routeDied(const Route& route) {
    Proxies::get().routeDied(route);
}

void Proxy::onLastStrong() {
    // A forked child gives up no more than its own descriptor, and may find any lock taken.
    if (!isForked()) {
        mDeathLinks->end();
        Proxies::get().forget(*this);
        if (mSentOneway) mRoute->oneways().done(*mRoute, *this);
    }
    mEnd.reset();
    mCharge = {};
}

}  // namespace binder
