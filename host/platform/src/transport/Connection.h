#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include <sys/socket.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "transport/IoThread.h"
#include "transport/Receiver.h"
#include "transport/SendQueue.h"

namespace binder {

/**
 * One connected socket.
 *
 * Receiving is for one thread at a time: the one that made the call, the pool thread that the event
 * woke, or the I/O thread. Sending is for any thread, but sendWaiting() only for whoever has the
 * connection for itself.
 */
class Connection final : public Watched, public std::enable_shared_from_this<Connection> {
  public:
    /**
     * The credentials are the socket's, of its other side; the account is that process's, and the
     * charge what the connection is to it.
     */
    Connection(android::base::unique_fd socket, ConnectionKind kind, const ucred& credentials,
               std::shared_ptr<Account> account, Charge charge = {});

    int fd() const override { return mSocket.get(); }
    pid_t peerPid() const { return mCredentials.pid; }
    uid_t peerUid() const { return mCredentials.uid; }

    /** How long a brief wait is. To be set before the connection is used. */
    void setBriefWait(std::chrono::microseconds time) const;

    Received receive(Incoming* message, const Wait& wait) {
        return mReceiver.receive(message, wait);
    }
    /** Has the I/O thread call the function when something can be received. False on failure. */
    [[nodiscard]] bool receiveWith(std::function<void()> onReadable);
    /** Ends that. A call that is under way is not waited for. */
    void stopReceiving();

    Sent sendWaiting(const Outgoing& message) const { return binder::sendWaiting(fd(), message); }
    /** As SendQueue's, which the I/O thread empties; the connection ends when it cannot. */
    Sent send(const Outgoing& message, size_t limit);

    /** Logs why the connection is of no more use. False, for whoever returns that. */
    bool malformed(const char* why) const;
    /** True the first time: whoever finds the connection broken later need not look why. */
    bool noteBroken() { return !mIsBroken.exchange(true); }
    /** Wakes whoever waits on the connection and ends it, but for what has arrived. Any thread. */
    void shutdown() const { ::shutdown(fd(), SHUT_RDWR); }

    void onEvents(uint32_t events) override;

  private:
    bool receives();
    void flush();
    bool watchLocked() REQUIRES(mSendLock);

    const android::base::unique_fd mSocket;
    const ucred mCredentials;
    const Charge mCharge;
    std::atomic<bool> mIsBroken{false};
    Receiver mReceiver;
    std::function<void()> mOnReadable;

    std::mutex mSendLock;
    SendQueue mQueue GUARDED_BY(mSendLock);
    bool mReceives GUARDED_BY(mSendLock) = false;
};

/**
 * The credentials of a connected socket's other side; false when it is neither root nor our user.
 */
bool trustedCredentialsOf(int socket, ucred* credentials);

}  // namespace binder
