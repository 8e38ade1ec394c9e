#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <android-base/thread_annotations.h>

#include "calls/Exports.h"
#include "calls/OnewayLink.h"
#include "transport/Endpoint.h"

namespace binder {

/**
 * Another process, as long as it lives: the connections to it.
 *
 * There is one Peer per process whichever side connected first. Each side that connects brings a
 * control connection; the end of any is the peer's death. Any thread.
 */
class Peer : public std::enable_shared_from_this<Peer> {
  public:
    Peer(const Endpoint& self, std::string name);

    /** The name of its endpoint. */
    const std::string& name() const { return mName; }
    PeerNumber number() const { return mNumber; }
    bool isDead() const { return mDead.load(std::memory_order_acquire); }
    /** Marks the peer dead and ends its connections; true the first time. */
    bool end();
    /** True when a control connection has ended, or does within a moment, as when a process ends.
     */
    bool isEnding();

    /**
     * These note an open connection, so that it ends with the peer. False when the peer is dead, or
     * has as many as one process may have: half of this one's descriptors.
     */
    bool addControl(const std::shared_ptr<Connection>& connection);
    bool addCall(const std::shared_ptr<Connection>& connection);
    void removeCall(const std::shared_ptr<Connection>& connection);

    /**
     * Sends a control message; the name goes with those that carry one. They arrive in their order.
     * Where that is impossible the control connection, and with it the peer, is ended.
     */
    void sendControl(const Header& message, std::string_view name = {});

    /** A connection for one synchronous call; null with *status set when there is none. */
    std::shared_ptr<Connection> takeConnection(binder_status_t* status);
    /** Keeps it for the next call; those that are not needed are closed after some seconds. */
    void returnConnection(std::shared_ptr<Connection> connection);

    OnewayLink& onewayLink() { return *mOnewayLink; }
    OnewayAccount& onewayAccount() { return mOnewayAccount; }

  private:
    void trimIdle();
    void trimIdleLater();

    const Endpoint& mSelf;
    const std::string mName;
    const PeerNumber mNumber;
    const std::shared_ptr<UnfinishedDescriptors> mUnfinished;
    const std::shared_ptr<OnewayLink> mOnewayLink;
    OnewayAccount mOnewayAccount;
    std::atomic<bool> mDead{false};

    std::mutex mLock;
    std::vector<std::shared_ptr<Connection>> mControls GUARDED_BY(mLock);
    std::unordered_set<std::shared_ptr<Connection>> mCalls GUARDED_BY(mLock);
    std::vector<std::shared_ptr<Connection>> mIdle GUARDED_BY(mLock);  // the last used one last
    size_t mFewestIdle GUARDED_BY(mLock) = 0;  // since they were last looked through
    bool mTrims GUARDED_BY(mLock) = false;
};

}  // namespace binder
