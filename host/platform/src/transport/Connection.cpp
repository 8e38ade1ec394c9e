#include "transport/Connection.h"

#include <utility>

#include <sys/epoll.h>
#include <sys/time.h>
#include <unistd.h>

namespace binder {
namespace {

// Until what the system had no room for is tried again.
constexpr std::chrono::milliseconds kFlushAgain{20};

}  // namespace

Connection::Connection(android::base::unique_fd socket, ConnectionKind kind,
                       const ucred& credentials, std::shared_ptr<Account> account, Charge charge)
    : mSocket(std::move(socket)),
      mCredentials(credentials),
      mCharge(std::move(charge)),
      mReceiver(mSocket, kind, credentials.pid, account),
      mQueue(mSocket, std::move(account)) {}

void Connection::setBriefWait(std::chrono::microseconds time) const {
    const timeval limit{.tv_sec = 0, .tv_usec = time.count()};
    setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

bool Connection::malformed(const char* why) const {
    logMalformed(peerPid(), why);
    return false;
}

bool Connection::watchLocked() {
    const uint32_t events =
            (mReceives ? uint32_t{EPOLLIN} : 0) | (mQueue.isEmpty() ? 0 : uint32_t{EPOLLOUT});
    if (events != 0) return IoThread::get().watch(shared_from_this(), events);
    IoThread::get().forget(*this);
    return true;
}

bool Connection::receiveWith(std::function<void()> onReadable) {
    mOnReadable = std::move(onReadable);
    {
        const std::lock_guard lock(mSendLock);
        mReceives = true;
        if (watchLocked()) return true;
        mReceives = false;
    }
    mOnReadable = nullptr;  // it may hold this connection
    return false;
}

void Connection::stopReceiving() {
    const std::lock_guard lock(mSendLock);
    mReceives = false;
    IoThread::get().forget(*this);
}

void Connection::onEvents(uint32_t events) {
    // Whoever receives finds an end that comes meanwhile.
    if ((events & EPOLLOUT) != 0 || !receives()) flush();
    if (!receives() || (events & ~uint32_t{EPOLLOUT}) == 0) return;
    // The function goes when it is not needed any more, and with it what it holds.
    std::function<void()> onReadable = std::move(mOnReadable);
    onReadable();
    if (receives()) mOnReadable = std::move(onReadable);
}

bool Connection::receives() {
    const std::lock_guard lock(mSendLock);
    return mReceives;
}

Sent Connection::send(const Outgoing& message, size_t limit) {
    const std::lock_guard lock(mSendLock);
    const bool wasEmpty = mQueue.isEmpty();
    const Sent sent = mQueue.send(message, limit);
    if (sent != Sent::kDone || !wasEmpty || mQueue.isEmpty() || watchLocked()) return sent;
    return mQueue.takeBack();
}

void Connection::flush() {
    const std::lock_guard lock(mSendLock);
    switch (mQueue.flush()) {
        case Sent::kNoRoom:
            return;
        case Sent::kRefused:
            IoThread::get().forget(*this);
            IoThread::get().after(kFlushAgain, [self = shared_from_this()] { self->flush(); });
            return;
        case Sent::kBroken:
            // Half a message may be out, or the peer waits for one: both end with the connection.
            mQueue.clear();
            shutdown();
            break;
        case Sent::kDone:
            break;
    }
    if (!watchLocked()) shutdown();
}

bool trustedCredentialsOf(int socket, ucred* credentials) {
    socklen_t size = sizeof(*credentials);
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, credentials, &size) == 0 &&
           (credentials->uid == geteuid() || credentials->uid == 0);
}

}  // namespace binder
