#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <sys/types.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "transport/Connection.h"

namespace binder {

class Route;

/**
 * Another process: what it takes up here, its connections in both directions, and the ways to its
 * endpoints. The kernel tells of its end, also when a forked child still has its sockets. Any
 * thread.
 */
class Peer {
  public:
    /** life: a descriptor of the process itself; none for one that is dead already. */
    Peer(pid_t pid, android::base::unique_fd life);
    ~Peer();

    pid_t pid() const { return mPid; }
    const std::shared_ptr<Account>& account() const { return mAccount; }

    /** Has the function called, on the I/O thread, when the process ends. False on failure. */
    [[nodiscard]] bool watch(std::function<void()> onEnd);
    bool isDead() const { return mDead.load(std::memory_order_acquire); }
    /** Asks the kernel whether it has ended, or does within the time. */
    bool hasEnded(std::chrono::milliseconds time) const;
    /** Marks the process dead and ends its connections and routes; true the first time. */
    bool end(std::vector<std::shared_ptr<Connection>>* connections,
             std::vector<std::shared_ptr<Route>>* routes);

    /** Notes an open connection, so that it ends with the process. */
    void add(const std::shared_ptr<Connection>& connection);
    void remove(const std::shared_ptr<Connection>& connection);

    /** The one of that name; make() makes it when there is none. */
    template <typename Make>
    std::shared_ptr<Route> route(const std::string& name, Make make) {
        const std::lock_guard lock(mLock);
        std::erase_if(mRoutes, [](const auto& known) { return known.second.expired(); });
        std::weak_ptr<Route>& known = mRoutes[name];
        std::shared_ptr<Route> route = known.lock();
        if (route == nullptr) known = route = make();
        return route;
    }

    /** Connections for one-way calls that it has made here. */
    std::atomic<int> oneways{0};

  private:
    class Life;

    const pid_t mPid;
    const std::shared_ptr<Account> mAccount = std::make_shared<Account>();
    const std::shared_ptr<Life> mLife;
    std::atomic<bool> mDead;

    std::mutex mLock;
    std::unordered_set<std::shared_ptr<Connection>> mConnections GUARDED_BY(mLock);
    std::unordered_map<std::string, std::weak_ptr<Route>> mRoutes GUARDED_BY(mLock);
};

}  // namespace binder
