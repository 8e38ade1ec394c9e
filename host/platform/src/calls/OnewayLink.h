#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_set>

#include <android-base/thread_annotations.h>
#include <android/binder_status.h>

#include "transport/Connection.h"

namespace binder {

class Proxy;
class Route;

/** What one-way calls take while they wait: bytes, and descriptors. */
struct OnewayCost {
    uint32_t bytes = 0;
    uint32_t descriptors = 0;

    static OnewayCost of(const Header& header);
};

/**
 * One-way calls over one connection that have yet to be served, as each of its sides counts them:
 * a quarter of what two processes share of each other's buffers. Any thread.
 */
class OnewayAccount {
  public:
    /** False, and nothing is added, when they would be more than may wait. */
    bool add(const OnewayCost& cost);
    void remove(const OnewayCost& cost);

  private:
    std::mutex mLock;
    OnewayCost mWaiting GUARDED_BY(mLock);
};

/**
 * The sending side of the one connection for one-way calls of a route, made when it is needed. What
 * the socket does not take is kept, and all that the other side has not reported as served is
 * counted: a call that would be too many is refused.
 *
 * The other side holds an object from its first call over the connection, before which an end of it
 * goes, until done() or the connection's end, which come behind the calls: so each of them is
 * served, whatever becomes of this process. Any thread.
 */
class OnewayLink : public std::enable_shared_from_this<OnewayLink> {
  public:
    /** Sends a call of the route's object; STATUS_DEAD_OBJECT when the connection broke. */
    binder_status_t send(Route& route, Proxy& proxy, const Outgoing& message);
    /** No call of the object follows. */
    void done(Route& route, Proxy& proxy);
    /** Ends the connection for good. */
    void close(Route& route);

  private:
    /** Of one connection. */
    struct Line {
        std::shared_ptr<Connection> connection;
        std::shared_ptr<OnewayAccount> unserved = std::make_shared<OnewayAccount>();
        std::unordered_set<const Proxy*> held;
    };

    binder_status_t connectLocked(Route& route) REQUIRES(mLock);
    void receive(Route& route, const std::shared_ptr<Connection>& connection);
    void dropLocked(Route& route) REQUIRES(mLock);

    std::mutex mLock;
    Line mLine GUARDED_BY(mLock);
    bool mIsClosed GUARDED_BY(mLock) = false;
};

}  // namespace binder
