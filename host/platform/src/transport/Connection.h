#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include <sys/types.h>
#include <sys/uio.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "parcel/Parcel.h"
#include "transport/IoThread.h"
#include "transport/Wire.h"

namespace binder {

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

/** That part of the descriptors that this process may have; what one message brings at least. */
size_t shareOfDescriptors(size_t part);

/** Descriptors that came with messages of one process of which the rest has yet to come. */
class UnfinishedDescriptors {
  public:
    /** False when they are more than one process may leave here. */
    bool add(size_t count);
    void remove(size_t count) { mCount.fetch_sub(count, std::memory_order_relaxed); }

  private:
    std::atomic<size_t> mCount{0};
};

/**
 * One connected and greeted socket.
 *
 * Receiving is for one thread at a time: the one that made the call, the pool thread that the event
 * woke, or the I/O thread. Sending is for any thread, but sendWaiting() only for whoever has the
 * connection for itself.
 */
class Connection final : public Watched, public std::enable_shared_from_this<Connection> {
  public:
    enum class Received { kMessage, kNotYet, kEnd, kMalformed };
    enum class Wait { kNo, kBriefly, kUntilThere };
    enum class Sent { kDone, kNoRoom, kRefused, kBroken };

    /** peerPid and peerUid are the socket's credentials. */
    Connection(android::base::unique_fd socket, ConnectionKind kind, pid_t peerPid, uid_t peerUid);
    ~Connection() override;

    int fd() const override { return mSocket.get(); }
    ConnectionKind kind() const { return mKind; }
    pid_t peerPid() const { return mPeerPid; }
    uid_t peerUid() const { return mPeerUid; }

    /** These are set once, before the connection is used for messages. */
    void countUnfinished(std::shared_ptr<UnfinishedDescriptors> unfinished);
    /** How long the brief wait is. */
    void setBriefWait(std::chrono::microseconds time);

    /**
     * Reads one message; what has arrived of it when the wait is over is kept and kNotYet returned.
     * After kMalformed, which is logged, the connection is of no more use.
     */
    Received receive(Incoming* message, Wait wait);
    /** Has the I/O thread call the function whenever something can be received. False on failure.
     */
    [[nodiscard]] bool receiveWith(std::function<void()> onReadable);
    /** Ends that. A call that is under way is not waited for. */
    void stopReceiving();

    /** Sends the message, waiting for room; kRefused when the descriptors cannot be passed. */
    Sent sendWaiting(const Outgoing& message);
    /**
     * Sends without waiting; what does not fit the socket is kept, up to limit bytes in all, and
     * sent later by the I/O thread. kNoRoom and kRefused: nothing was sent or kept. When what is
     * kept cannot be sent the connection ends.
     */
    Sent send(const Outgoing& message, size_t limit);

    /** Logs why the connection is of no more use. False, for whoever returns that. */
    bool malformed(const char* why) const;
    /** Wakes whoever waits on the connection and ends it. Any thread. */
    void shutdown() const;

    void onEvents(uint32_t events) override;

  private:
    struct Kept {
        std::vector<uint8_t> bytes;
        std::vector<android::base::unique_fd> descriptors;
        size_t sent = 0;
    };

    Received receiveSome(bool waits);
    /** Checks the header and makes room for the body, whose beginning was read ahead. */
    const char* startBody(std::span<const uint8_t> ahead);
    /** Notes the descriptors of the message that is left unfinished; false when too many. */
    bool noteUnfinished();
    void forgetUnfinished();

    void flush();
    bool watchLocked() REQUIRES(mSendLock);

    const android::base::unique_fd mSocket;
    const ConnectionKind mKind;
    const pid_t mPeerPid;
    const uid_t mPeerUid;
    std::shared_ptr<UnfinishedDescriptors> mUnfinished;

    // Of the one receiving thread.
    Incoming mArriving;
    size_t mArrived = 0;
    uint8_t* mData = nullptr;
    size_t mNoted = 0;
    std::function<void()> mOnReadable;

    std::mutex mSendLock;
    std::deque<Kept> mKept GUARDED_BY(mSendLock);
    size_t mKeptBytes GUARDED_BY(mSendLock) = 0;
    bool mReceives GUARDED_BY(mSendLock) = false;
};

}  // namespace binder
