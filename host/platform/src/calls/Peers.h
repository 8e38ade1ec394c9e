#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <android-base/thread_annotations.h>

#include "calls/Peer.h"
#include "calls/Route.h"
#include "transport/Endpoint.h"
#include "transport/Listener.h"

namespace binder {

/** Another process's open connection, and which process that is. */
struct Line {
    std::shared_ptr<Peer> peer;
    std::shared_ptr<Connection> connection;
};

/**
 * The other processes that this one has to do with. Made at the first need, lives until the process
 * ends. Any thread.
 */
class Peers {
  public:
    /** Who serves the calls that others make. For the I/O thread, which must not be held up. */
    struct Server {
        /** Serves calls that come over the line, until it ends. */
        std::function<void(Line line, ConnectionKind kind)> serve;
        /** Lets go of the connection of a dead process unless a call is being served. */
        std::function<void(const Connection& connection)> letGo;
    };

    /** Null before start(), and in a process that was forked from one that had started. */
    static Peers* get();
    /** Makes this process one that others can call; null, logged, while that is impossible. */
    static Peers* start(const Server& server);

    const Endpoint& self() const { return *mSelf; }

    /** The living process of that number; a dead one when it is gone; null without room for it. */
    std::shared_ptr<Peer> obtain(pid_t pid);
    /**
     * The way to the endpoint of that name, which is not this process's; null without room for it.
     */
    std::shared_ptr<Route> route(const std::string& name);

    /**
     * For a caller whose connection over the route broke, or who got none (null):
     * STATUS_DEAD_OBJECT when the process has ended or does not listen any more, which is then
     * known, else STATUS_FAILED_TRANSACTION. Waits for a moment, once for a connection.
     */
    binder_status_t connectionBroke(Route& route, Connection* connection);
    /** Somebody listens there: the route is kept for later calls as long as that lasts. */
    void routeServed(const std::shared_ptr<Route>& route);
    /** Nobody does any more. */
    void routeEnded(Route& route);

  private:
    class Newcomer;

    Peers(std::unique_ptr<Endpoint> self, Server server);

    static Peers* create(const Server& server);

    void accepted(android::base::unique_fd socket, const ucred& credentials);
    /** Ends what the process has here. Runs nobody else's code. */
    void ended(Peer& peer);

    const std::unique_ptr<Endpoint> mSelf;
    const Server mServer;

    std::mutex mLock;
    std::unordered_map<pid_t, std::weak_ptr<Peer>> mPeers GUARDED_BY(mLock);
    std::unordered_map<const Route*, std::shared_ptr<Route>> mServed GUARDED_BY(mLock);
};

}  // namespace binder
