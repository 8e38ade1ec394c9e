#include "ThreadPool.h"

#include <chrono>
#include <utility>

#include <sys/epoll.h>

#include <android/binder_process.h>

#include "Log.h"
#include "Peer.h"
#include "Serve.h"
#include "Thread.h"

namespace binder {
namespace {

constexpr uint32_t kEvents = EPOLLIN | EPOLLONESHOT;
constexpr std::chrono::milliseconds kNextCallWait{1};

}  // namespace

ThreadPool::ThreadPool() : mEpoll(epoll_create1(EPOLL_CLOEXEC)) {}

ThreadPool& ThreadPool::get() {
    static ThreadPool* const instance = new ThreadPool;  // outlives every thread
    return *instance;
}

void ThreadPool::add(const std::shared_ptr<Connection>& connection) {
    {
        const std::lock_guard lock(mLock);
        mConnections.insert(connection);
    }
    if (connection->kind() == ConnectionKind::kCall) connection->setBriefWait(kNextCallWait);
    epoll_event event{.events = kEvents, .data = {.ptr = connection.get()}};
    if (epoll_ctl(mEpoll, EPOLL_CTL_ADD, connection->fd(), &event) != 0) drop(connection);
}

void ThreadPool::rearm(Connection& connection) {
    connection.mHandedOver.store(true, std::memory_order_release);
    epoll_event event{.events = kEvents, .data = {.ptr = &connection}};
    epoll_ctl(mEpoll, EPOLL_CTL_MOD, connection.fd(), &event);
}

void ThreadPool::drop(const std::shared_ptr<Connection>& connection) {
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, connection->fd(), nullptr);
    connection->shutdown();
    connection->peer()->removeData(connection);
    {
        const std::lock_guard lock(mLock);
        mConnections.erase(connection);
    }
    // A peer whose one-way calls cannot be read any more would wait for their effect for ever.
    if (connection->kind() == ConnectionKind::kOneway) connection->peer()->died();
}

void ThreadPool::start() {
    {
        const std::lock_guard lock(mLock);
        if (std::exchange(mStarted, true)) return;
    }
    startThread("binder:main", [this] { join(); });
}

bool ThreadPool::isStarted() {
    const std::lock_guard lock(mLock);
    return mStarted;
}

bool ThreadPool::setMaxThreads(uint32_t count) {
    const std::lock_guard lock(mLock);
    if (mStarted && count < mMaxThreads) return false;
    mMaxThreads = count;
    return true;
}

void ThreadPool::startOneMore() {
    {
        const std::lock_guard lock(mLock);
        if (!mStarted || mThreads == mMaxThreads) return;
        ++mThreads;
    }
    if (startThread("binder:pool", [this] { join(); })) return;
    const std::lock_guard lock(mLock);
    --mThreads;
}

void ThreadPool::join() {
    for (;;) {
        epoll_event event;
        mWaiting.fetch_add(1, std::memory_order_relaxed);
        const int count = epoll_wait(mEpoll, &event, 1, -1);
        const bool wasLast = mWaiting.fetch_sub(1, std::memory_order_relaxed) == 1;
        if (count != 1) continue;
        if (wasLast) startOneMore();
        serve(static_cast<Connection*>(event.data.ptr));
    }
}

void ThreadPool::poll() {
    epoll_event event;
    while (epoll_wait(mEpoll, &event, 1, 0) == 1)
        serve(static_cast<Connection*>(event.data.ptr));
}

void ThreadPool::serve(Connection* ready) {
    // One event, one thread: until it is armed again the connection is this thread's.
    static_cast<void>(ready->mHandedOver.load(std::memory_order_acquire));
    const std::shared_ptr<Connection> connection = ready->shared_from_this();
    for (auto wait = Connection::Wait::kNo;; wait = Connection::Wait::kBriefly) {
        Incoming message;
        switch (connection->receive(&message, wait)) {
            case Connection::Received::kMessage:
                break;
            case Connection::Received::kNotYet:
                rearm(*connection);
                return;
            case Connection::Received::kMalformed:
                log(ANDROID_LOG_WARN, "Ending a connection of process %d: %s",
                    connection->peerPid(), connection->fault());
                drop(connection);
                return;
            case Connection::Received::kEnd:
                drop(connection);
                return;
        }
        if (message.header.kind == MessageKind::kOneway) {
            if (!serveOneway(connection, std::move(message))) drop(connection);
            return;
        }
        if (!serveCall(connection, std::move(message))) {
            drop(connection);
            return;
        }
        // A caller often calls again at once. As long as others wait for everybody else, this
        // thread waits for that call where it comes: half the system calls of going through the
        // set.
        if (mWaiting.load(std::memory_order_relaxed) == 0) {
            rearm(*connection);
            return;
        }
    }
}

}  // namespace binder

void ABinderProcess_startThreadPool() {
    binder::ThreadPool::get().start();
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    return binder::ThreadPool::get().setMaxThreads(numThreads);
}

bool ABinderProcess_isThreadPoolStarted() {
    return binder::ThreadPool::get().isStarted();
}

void ABinderProcess_joinThreadPool() {
    binder::ThreadPool::get().join();
}

binder_status_t ABinderProcess_setupPolling(int* fd) {
    if (fd == nullptr) return STATUS_UNEXPECTED_NULL;
    *fd = binder::ThreadPool::get().fd();
    return STATUS_OK;
}

binder_status_t ABinderProcess_handlePolledCommands() {
    binder::ThreadPool::get().poll();
    return STATUS_OK;
}
