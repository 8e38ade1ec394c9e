#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include <android-base/thread_annotations.h>

#include "calls/Peer.h"
#include "transport/Greeter.h"

namespace binder {

/**
 * The processes that this one is connected to, and what they say of references. Made at the first
 * need, lives until the process ends. Any thread.
 */
class Peers {
  public:
    /** Serves calls that come over the connection, until it ends. */
    using ServeCalls =
            std::function<void(std::shared_ptr<Peer> peer, std::shared_ptr<Connection> connection)>;

    /** Null before start(), and in a process that was forked from one that had started. */
    static Peers* get();
    /** Makes this process one that others can call; null, logged, when that is impossible. */
    static Peers* start(const ServeCalls& serveCalls);

    const Endpoint& self() const { return *mSelf; }

    /** The peer of that name, connected to when it is not yet; dead when that fails. Never self. */
    std::shared_ptr<Peer> obtain(const std::string& name);
    /** The peer of that name, or null when it is not connected. */
    std::shared_ptr<Peer> find(std::string_view name);

    /** Ends the peer and all that concerns it. Runs nobody else's code. */
    void ended(Peer& peer);
    /**
     * For a caller whose connection to the peer broke: STATUS_DEAD_OBJECT when that was the peer's
     * death, which is then known, else STATUS_FAILED_TRANSACTION. Waits for a moment to know.
     */
    binder_status_t connectionBroke(Peer& peer);

  private:
    Peers(std::unique_ptr<Endpoint> self, ServeCalls serveCalls);

    static Peers* create(const ServeCalls& serveCalls);

    void greeted(const std::string& name, std::shared_ptr<Connection> connection);
    /** Has the I/O thread serve what the peer says over the connection. */
    bool addControl(const std::shared_ptr<Peer>& peer, const std::shared_ptr<Connection>& control);
    void receive(Peer& peer, Connection& control);
    void serve(Peer& peer, const Incoming& message);
    std::shared_ptr<Peer>& findOrMakeLocked(const std::string& name) REQUIRES(mLock);

    const std::unique_ptr<Endpoint> mSelf;
    const ServeCalls mServeCalls;
    std::shared_ptr<Greeter> mGreeter;

    std::mutex mLock;
    std::unordered_map<std::string, std::shared_ptr<Peer>> mPeers GUARDED_BY(mLock);
};

}  // namespace binder
