#include "calls/ThreadPool.h"

#include <utility>

#include <sys/epoll.h>

#include <android/binder_process.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "base/Thread.h"

namespace binder {
namespace {

constexpr uint32_t kEvents = EPOLLIN | EPOLLONESHOT;
constexpr std::chrono::milliseconds kNextCallWait{1};
// Of poll(), which is to end also while calls keep coming.
constexpr int kMessagesPerPoll = 64;

bool refuseForked() {
    if (isForked()) log(ANDROID_LOG_ERROR, "Binder cannot be used in a forked process");
    return isForked();
}

}  // namespace

ThreadPool::ThreadPool() : mEpoll(epoll_create1(EPOLL_CLOEXEC)) {
    isForked();  // from here on a forked child would take its parent's events
}

ThreadPool& ThreadPool::get() {
    static ThreadPool* const instance = new ThreadPool;  // outlives every thread
    return *instance;
}

void ThreadPool::add(std::shared_ptr<Peer> peer, std::shared_ptr<Connection> connection) {
    if (connection->kind() == ConnectionKind::kCall) connection->setBriefWait(kNextCallWait);
    auto owned = std::make_unique<Served>();
    Served& served = *owned;
    served.line = {std::move(peer), std::move(connection)};
    {
        const std::lock_guard lock(mLock);
        mServed.emplace(&served, std::move(owned));
    }
    arm(served, EPOLL_CTL_ADD);
}

void ThreadPool::arm(Served& served, int operation) {
    // Whoever the event wakes may end the connection while this thread still returns from the call.
    const std::shared_ptr<Connection> connection = served.line.connection;
    served.armed = Clock::now();
    served.isHandedOver.store(true, std::memory_order_release);
    epoll_event event{.events = kEvents, .data = {.ptr = &served}};
    if (epoll_ctl(mEpoll, operation, connection->fd(), &event) != 0) drop(served);
}

void ThreadPool::drop(Served& served) {
    const Line line = served.line;
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, line.connection->fd(), nullptr);
    line.connection->shutdown();
    line.peer->removeCall(line.connection);
    const std::lock_guard lock(mLock);
    mServed.erase(&served);
}

void ThreadPool::start() {
    if (refuseForked()) return;
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
    while (!refuseForked()) {
        epoll_event event;
        mWaiting.fetch_add(1, std::memory_order_relaxed);
        const int count = epoll_wait(mEpoll, &event, 1, -1);
        const bool wasLast = mWaiting.fetch_sub(1, std::memory_order_relaxed) == 1;
        if (count != 1) continue;
        if (wasLast) startOneMore();
        serve(*static_cast<Served*>(event.data.ptr), true);
    }
}

void ThreadPool::poll() {
    epoll_event event;
    for (int i = 0; i < kMessagesPerPoll && epoll_wait(mEpoll, &event, 1, 0) == 1; ++i)
        serve(*static_cast<Served*>(event.data.ptr), false);
}

void ThreadPool::serve(Served& served, bool mayStay) {
    // One event, one thread: until it is armed again the connection is this thread's.
    static_cast<void>(served.isHandedOver.load(std::memory_order_acquire));
    if (!served.waitPays) served.waitPays = Clock::now() - served.armed < kNextCallWait;
    for (auto wait = Connection::Wait::kNo;; wait = Connection::Wait::kBriefly) {
        Incoming message;
        switch (served.line.connection->receive(&message, wait)) {
            case Connection::Received::kMessage:
                break;
            case Connection::Received::kNotYet:
                if (wait == Connection::Wait::kBriefly) served.waitPays = false;
                arm(served, EPOLL_CTL_MOD);
                return;
            default:
                drop(served);
                return;
        }
        if (served.line.connection->kind() == ConnectionKind::kOneway) {
            serveOneway(served, std::move(message));
            return;
        }
        if (!serveCall(served.line, std::move(message))) {
            drop(served);
            return;
        }
        // A caller often calls again at once. As long as others wait for everybody else, this
        // thread waits for that call where it comes: half the system calls of going through the
        // set.
        if (!mayStay || !served.waitPays || mWaiting.load(std::memory_order_relaxed) == 0) {
            arm(served, EPOLL_CTL_MOD);
            return;
        }
    }
}

void ThreadPool::serveOneway(Served& served, Incoming message) {
    StrongBinder toServe;
    if (!receiveOneway(served.line, std::move(message), &toServe)) {
        drop(served);
        return;
    }
    // The next call may come, and be somebody else's, before this one has been served.
    arm(served, EPOLL_CTL_MOD);
    if (toServe != nullptr) serveOneways(*localOf(toServe.get()));
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

void ABinderProcess_disableBackgroundScheduling(bool /*disable*/) {}

binder_status_t ABinderProcess_setupPolling(int* fd) {
    if (fd == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder::refuseForked()) return STATUS_INVALID_OPERATION;
    *fd = binder::ThreadPool::get().fd();
    return STATUS_OK;
}

binder_status_t ABinderProcess_handlePolledCommands() {
    if (binder::refuseForked()) return STATUS_INVALID_OPERATION;
    binder::ThreadPool::get().poll();
    return STATUS_OK;
}
