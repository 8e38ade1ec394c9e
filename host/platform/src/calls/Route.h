#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "calls/OnewayLink.h"
#include "calls/Peer.h"
#include "transport/Endpoint.h"

namespace binder {

class Peers;

/**
 * The way to one endpoint of another process: the connections for calls of its objects, made when
 * they are needed. It dies with the process, or when nobody listens there. Any thread.
 */
class Route : public std::enable_shared_from_this<Route> {
  public:
    Route(Peers& peers, std::shared_ptr<Peer> peer, std::string name);

    /** The name of the endpoint. */
    const std::string& name() const { return mName; }
    const std::shared_ptr<Peer>& peer() const { return mPeer; }
    bool isDead() const { return mDead.load(std::memory_order_acquire) || mPeer->isDead(); }
    /** Lets go of all connections for good; true the first time. */
    bool end();

    /** Null with *status set when there is none: STATUS_DEAD_OBJECT when nobody listens there. */
    std::shared_ptr<Connection> connect(ConnectionKind kind, binder_status_t* status);
    /** Lets go of one that is of no more use. */
    void drop(const std::shared_ptr<Connection>& connection) { mPeer->remove(connection); }

    /** A connection for one synchronous call; null as connect()'s. */
    std::shared_ptr<Connection> take(binder_status_t* status);
    /** Keeps it for the next call, or closes it when a few are kept. */
    void giveBack(std::shared_ptr<Connection> connection);

    OnewayLink& oneways() { return *mOneways; }

  private:
    Peers& mPeers;
    const std::shared_ptr<Peer> mPeer;
    const std::string mName;
    const std::shared_ptr<OnewayLink> mOneways = std::make_shared<OnewayLink>();
    std::atomic<bool> mDead{false};

    std::mutex mLock;
    std::vector<std::shared_ptr<Connection>> mIdle GUARDED_BY(mLock);  // the last used one last
};

}  // namespace binder
