#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>
#include <android/binder_status.h>

#include "transport/Endpoint.h"

namespace binder {

/** What one-way calls take while they wait: bytes, and descriptors. */
struct OnewayCost {
    uint32_t bytes = 0;
    uint32_t descriptors = 0;

    static OnewayCost of(const Header& header);
};

/** What one sender's one-way calls that have yet to be served may take. */
inline constexpr OnewayCost kMaxOnewayCost{.bytes = kMaxOneway + 32 * 1024,
                                           .descriptors = kMaxDescriptors};

/**
 * The sending side of the one connection for one-way calls to a peer, made when it is needed. What
 * the socket does not take is kept, and all that the peer has not reported as served is counted: a
 * call that would be too many is refused. Any thread.
 */
class OnewayLink : public std::enable_shared_from_this<OnewayLink> {
  public:
    OnewayLink(const Endpoint& self, const std::string& peerName)
        : mSelf(self), mPeerName(peerName) {}

    /** kBroken when the connection is; the next call makes another. */
    Connection::Sent send(const Outgoing& message, binder_status_t* status);
    /** Sends it behind the calls that have been sent; false when there is no connection. */
    bool sendBehind(const Header& message);
    /** Ends the connection for good. */
    void close();

  private:
    bool connectLocked(binder_status_t* status) REQUIRES(mLock);
    void receive(const std::shared_ptr<Connection>& connection);
    void drop(const Connection& connection);
    void dropLocked() REQUIRES(mLock);

    const Endpoint& mSelf;
    const std::string mPeerName;

    std::mutex mLock;
    std::shared_ptr<Connection> mConnection GUARDED_BY(mLock);
    OnewayCost mUnserved GUARDED_BY(mLock);
    bool mIsClosed GUARDED_BY(mLock) = false;
};

/** The receiving side's account of one peer's one-way calls that wait to be served. Any thread. */
class OnewayAccount {
  public:
    /** False when the peer has sent more than it may. */
    bool add(const OnewayCost& cost);
    /** Reports served calls to their sender, small ones many at a time. */
    void served(const OnewayCost& cost, Connection& connection);

  private:
    std::mutex mLock;
    OnewayCost mWaiting GUARDED_BY(mLock);
    OnewayCost mUnreported GUARDED_BY(mLock);
};

}  // namespace binder
