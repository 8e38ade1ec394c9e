#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <sys/types.h>
#include <sys/uio.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "Parcel.h"
#include "Wire.h"

namespace binder {

class Peer;

/** What a message is sent from; refers to the parcel's bytes and descriptors, copies nothing. */
struct Outgoing {
    Header header{};
    std::span<const uint8_t> data;
    std::vector<uint8_t> table;
    std::vector<int> descriptors;  // borrowed

    size_t size() const { return sizeof(header) + data.size() + table.size(); }
};

/** A whole message that has arrived. Owns the descriptors until they are taken out. */
struct Incoming {
    Header header{};
    std::unique_ptr<AParcel> parcel;  // holds the data; null for control messages
    std::vector<uint8_t> table;
    std::vector<android::base::unique_fd> descriptors;
    bool descriptorsLost = false;  // this process had no room for all of them
};

/**
 * One connected socket to a peer.
 *
 * Receiving is for one thread at a time: the one that made the call, the pool thread that the event
 * woke, or the I/O thread. Sending whole messages is for one thread at a time, too, on connections
 * for calls; send() may be used by any thread and keeps messages whole and in order.
 */
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    enum class Received { kMessage, kNotYet, kEnd, kMalformed };
    enum class Wait { kNo, kBriefly, kUntilThere };
    enum class Sent { kDone, kNoRoom, kRefused, kBroken };

    /** peerPid and peerUid are the socket's credentials. */
    Connection(android::base::unique_fd socket, pid_t peerPid, uid_t peerUid);

    int fd() const { return mSocket.get(); }
    uint64_t id() const { return mId; }
    pid_t peerPid() const { return mPeerPid; }
    uid_t peerUid() const { return mPeerUid; }

    /** These are set once, before the connection is used for messages. */
    void introduce(ConnectionKind kind, std::string peerName);
    void attach(std::shared_ptr<Peer> peer);
    ConnectionKind kind() const { return mKind; }
    const std::string& peerName() const { return mPeerName; }
    const std::shared_ptr<Peer>& peer() const { return mPeer; }

    /** Reads the connecting side's hello without waiting. */
    Received receiveHello(Hello* hello);

    /**
     * Reads one message; what has arrived of it when the wait is over is kept and kNotYet returned.
     * After kMalformed the connection is of no more use.
     */
    Received receive(Incoming* message, Wait wait);
    /** How long the brief wait is; to be called once, before the first one. */
    void setBriefWait(std::chrono::microseconds time);
    /** After kMalformed. */
    const char* fault() const { return mFault; }

    /** Sends the message, waiting for room; kRefused when the descriptors cannot be passed. */
    Sent sendWaiting(const Outgoing& message);
    /**
     * Sends without waiting; what does not fit the socket is kept, up to limit bytes in all, and
     * sent later by the I/O thread. kNoRoom: nothing was sent or kept.
     */
    Sent send(const Outgoing& message, size_t limit);
    /** Sends what is kept; for the I/O thread. False when the connection is broken. */
    bool flush();

    /** Wakes whoever waits on the connection and ends it. Any thread. */
    void shutdown();

  private:
    friend class ThreadPool;

    struct Kept {
        std::vector<uint8_t> bytes;
        std::vector<android::base::unique_fd> descriptors;
        size_t sent = 0;
    };

    /** Checks the header and makes room for the body, of which some bytes were read ahead. */
    bool startBody(size_t ahead);

    const android::base::unique_fd mSocket;
    const uint64_t mId;
    const pid_t mPeerPid;
    const uid_t mPeerUid;
    ConnectionKind mKind = ConnectionKind::kCall;
    std::string mPeerName;
    std::shared_ptr<Peer> mPeer;

    // Of the one receiving thread.
    Incoming mArriving;
    size_t mArrived = 0;
    uint8_t* mData = nullptr;
    const char* mFault = nullptr;

    // Set by the thread that arms the connection for the one that the event will wake.
    std::atomic<bool> mHandedOver{false};

    std::mutex mSendLock;
    std::deque<Kept> mKept GUARDED_BY(mSendLock);
    size_t mKeptBytes GUARDED_BY(mSendLock) = 0;
};

}  // namespace binder
