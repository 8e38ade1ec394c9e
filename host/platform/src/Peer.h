#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <android-base/thread_annotations.h>

#include "Connection.h"
#include "Object.h"

namespace binder {

/** Sends its acknowledgement when the last binder of a message has been taken over. */
class PendingAck {
  public:
    PendingAck(std::shared_ptr<Peer> to, uint64_t token);
    ~PendingAck();
    PendingAck(const PendingAck&) = delete;
    PendingAck& operator=(const PendingAck&) = delete;

  private:
    const std::shared_ptr<Peer> mTo;
    const uint64_t mToken;
};

/**
 * Another process, as long as it lives: the connections to it, and the proxies of its objects.
 *
 * There is one Peer per process whichever side connected first; each side that connects brings a
 * control connection, and the end of either is the peer's death. Any thread, unless noted.
 */
class Peer : public std::enable_shared_from_this<Peer> {
  public:
    explicit Peer(std::string name);

    /** The name of its endpoint. */
    const std::string& name() const { return mName; }
    bool isDead() const { return mDead.load(std::memory_order_acquire); }
    /** Ends everything that concerns the peer, once. Runs nobody else's code. */
    void died();
    /**
     * For a caller whose connection to the peer broke: STATUS_DEAD_OBJECT when that was the peer's
     * death, which is then marked, else STATUS_FAILED_TRANSACTION. Waits for a moment to know.
     */
    binder_status_t connectionBroke();

    /** These note an open connection, so that it ends with the peer; false when the peer is dead.
     */
    bool addControl(const std::shared_ptr<Connection>& connection);
    bool addData(const std::shared_ptr<Connection>& connection);
    void removeData(const std::shared_ptr<Connection>& connection);

    /** A connection for one synchronous call; null with *status set when there is none. */
    std::shared_ptr<Connection> takeConnection(binder_status_t* status);
    void returnConnection(std::shared_ptr<Connection> connection);
    /** Numbers the message and sends it. */
    binder_status_t sendOneway(Outgoing& message);
    /** The connection for one-way calls broke; the next call makes another. */
    void dropOneway(const Connection& connection);

    /**
     * The proxy of an object. The owner has counted a reference for us when the peer itself sent
     * the object; when another process did, one is acquired here, and ack kept until it is there.
     */
    StrongBinder receivedFromOwner(uint64_t id, std::string_view descriptor);
    StrongBinder receivedFromOther(uint64_t id, std::string_view descriptor,
                                   std::shared_ptr<PendingAck> ack);
    /** The proxy of an object that needs no counting. */
    StrongBinder permanent(uint64_t id, std::string_view descriptor);
    /** The last strong reference to the proxy is gone. */
    void proxyReleased(ProxyObject& proxy);

    /** Keeps binders alive until the peer acknowledges the token; nothing when the peer is dead. */
    std::optional<uint64_t> awaitAck(std::vector<StrongBinder> binders);
    /** What was kept for the token. */
    std::vector<StrongBinder> acknowledged(uint64_t token);
    void sendAck(uint64_t token);

    /** Serves a control message; for the I/O thread. */
    void onControl(const Header& message);

  private:
    /** A reference that was asked of the owner. */
    struct Acquiring {
        WeakBinder proxy;
        std::shared_ptr<PendingAck> ack;
    };

    StrongBinder proxyLocked(uint64_t id, std::string_view descriptor, bool* isNew) REQUIRES(mLock);
    void sendControl(Header message);
    void acquired(const Header& answer);

    const std::string mName;
    std::atomic<bool> mDead{false};

    std::mutex mLock;
    std::vector<std::shared_ptr<Connection>> mControls GUARDED_BY(mLock);
    std::vector<std::shared_ptr<Connection>> mIdle GUARDED_BY(mLock);
    std::unordered_set<std::shared_ptr<Connection>> mData GUARDED_BY(mLock);
    std::unordered_map<uint64_t, ProxyObject*> mProxies GUARDED_BY(mLock);
    std::unordered_map<uint64_t, std::vector<StrongBinder>> mAwaitingAck GUARDED_BY(mLock);
    std::unordered_map<uint64_t, Acquiring> mAcquiring GUARDED_BY(mLock);
    uint64_t mLastToken GUARDED_BY(mLock) = 0;

    std::mutex mOnewayLock;
    std::shared_ptr<Connection> mOneway GUARDED_BY(mOnewayLock);
    std::atomic<uint64_t> mOnewaySent{0};
};

}  // namespace binder
