#include "calls/ThreadPool.h"

#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <android/binder_process.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "base/Thread.h"
#include "calls/OnewayQueues.h"

namespace binder {
namespace {

constexpr uint32_t kEvents = EPOLLIN | EPOLLONESHOT;
constexpr std::chrono::milliseconds kNextCallWait{1};
// Of poll(), which is to end also while calls keep coming.
constexpr int kMessagesPerPoll = 64;
// Until what the system had no room for is tried again.
constexpr std::chrono::milliseconds kPrepareAgain{100};

bool refuseForked() {
    if (isForked()) log(ANDROID_LOG_ERROR, "Binder cannot be used in a forked process");
    return isForked();
}

}  // namespace

ThreadPool& ThreadPool::get() {
    static ThreadPool* const instance = new ThreadPool;  // outlives every thread
    return *instance;
}

bool ThreadPool::prepare() {
    isForked();  // from here on a forked child would take its parent's events
    const std::lock_guard lock(mLock);
    if (mObjectsWait >= 0) return true;
    if (mEpoll < 0) mEpoll.reset(epoll_create1(EPOLL_CLOEXEC));
    android::base::unique_fd wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
    epoll_event event{.events = EPOLLIN, .data = {.fd = wake.get()}};
    if (mEpoll < 0 || wake < 0 || epoll_ctl(mEpoll, EPOLL_CTL_ADD, wake, &event) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot serve calls: %s", strerror(errno));
        return false;
    }
    mObjectsWait = std::move(wake);
    return true;
}

void ThreadPool::add(Line line) {
    line.connection->setBriefWait(kNextCallWait);
    arm(std::make_shared<Served>(std::move(line)), EPOLL_CTL_ADD);
}

void ThreadPool::arm(const std::shared_ptr<Served>& served, int operation) {
    const int socket = served->line.connection->fd();
    served->armed = Clock::now();
    {
        const std::lock_guard lock(mLock);
        served->isArmed = true;
        if (operation == EPOLL_CTL_ADD) mServed[socket] = served;
        epoll_event event{.events = kEvents, .data = {.fd = socket}};
        if (epoll_ctl(mEpoll, operation, socket, &event) == 0) {
            // The end of a dead process's lines has been told to those that were armed.
            if (!served->line.peer->isDead()) return;
        }
        served->isArmed = false;
    }
    drop(*served);
}

std::shared_ptr<ThreadPool::Served> ThreadPool::disarm(int fd) {
    const std::lock_guard lock(mLock);
    const auto served = mServed.find(fd);
    if (served == mServed.end() || !served->second->isArmed) return nullptr;
    served->second->isArmed = false;
    return served->second;
}

void ThreadPool::drop(const Served& served) {
    const Line& line = served.line;
    line.connection->shutdown();
    line.peer->remove(line.connection);
    std::shared_ptr<Served> last;  // closed without the lock
    const std::lock_guard lock(mLock);
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, line.connection->fd(), nullptr);
    const auto known = mServed.find(line.connection->fd());
    last = std::move(known->second);
    mServed.erase(known);
}

void ThreadPool::letGo(const Connection& connection) {
    std::shared_ptr<Served> served;
    {
        const std::lock_guard lock(mLock);
        const auto known = mServed.find(connection.fd());
        if (known == mServed.end() || known->second->line.connection.get() != &connection ||
            !known->second->isArmed) {
            return;
        }
        served = known->second;
        served->isArmed = false;
    }
    drop(*served);
}

void ThreadPool::serveOnewaysOf(StrongBinder object) {
    {
        const std::lock_guard lock(mLock);
        mObjects.push_back(std::move(object));
    }
    eventfd_write(mObjectsWait, 1);
}

void ThreadPool::start() {
    if (refuseForked()) return;
    const std::lock_guard lock(mLock);
    mStarted = mStarted || startThread("binder:main", [this] { join(); });
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
    const std::lock_guard lock(mLock);
    if (!mStarted || mThreads == mMaxThreads) return;
    if (startThread("binder:pool", [this] { join(); })) ++mThreads;
}

void ThreadPool::join() {
    while (!isForked() && !prepare())
        std::this_thread::sleep_for(kPrepareAgain);
    while (!refuseForked())
        serveOne(-1, true);
}

void ThreadPool::poll() {
    for (int i = 0; i < kMessagesPerPoll && serveOne(0, false); ++i) {
    }
}

bool ThreadPool::serveOne(int timeout, bool mayStay) {
    epoll_event event;
    mWaiting.fetch_add(1, std::memory_order_relaxed);
    const int count = epoll_wait(mEpoll, &event, 1, timeout);
    const bool wasLast = mWaiting.fetch_sub(1, std::memory_order_relaxed) == 1;
    if (count != 1) return false;
    if (wasLast) startOneMore();
    if (event.data.fd == mObjectsWait) {
        serveNextObject();
    } else if (const std::shared_ptr<Served> served = disarm(event.data.fd)) {
        serve(served, mayStay);
    }
    return true;
}

void ThreadPool::serveNextObject() {
    eventfd_t ignored;
    if (eventfd_read(mObjectsWait, &ignored) != 0) return;  // another thread has it
    StrongBinder object;
    {
        const std::lock_guard lock(mLock);
        object = std::move(mObjects.front());
        mObjects.pop_front();
    }
    if (serveOneways(*localOf(object.get()))) serveOnewaysOf(std::move(object));
}

void ThreadPool::serve(const std::shared_ptr<Served>& served, bool mayStay) {
    if (!served->waitPays) served->waitPays = Clock::now() - served->armed < kNextCallWait;
    for (Wait wait;; wait = {.kind = Wait::Kind::kBriefly}) {
        Incoming message;
        switch (served->line.connection->receive(&message, wait)) {
            case Received::kMessage:
                break;
            case Received::kNotYet:
                if (wait.kind == Wait::Kind::kBriefly) served->waitPays = false;
                arm(served, EPOLL_CTL_MOD);
                return;
            default:
                drop(*served);
                return;
        }
        if (!serveCall(served->line, std::move(message))) {
            drop(*served);
            return;
        }
        // A caller often calls again at once. As long as others wait for everybody else, this
        // thread waits for that call where it comes: half the system calls of going through the
        // set.
        if (!mayStay || !served->waitPays || mWaiting.load(std::memory_order_relaxed) == 0) {
            arm(served, EPOLL_CTL_MOD);
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

void ABinderProcess_disableBackgroundScheduling(bool /*disable*/) {}

binder_status_t ABinderProcess_setupPolling(int* fd) {
    if (fd == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder::refuseForked()) return STATUS_INVALID_OPERATION;
    if (!binder::ThreadPool::get().prepare()) return STATUS_NO_MEMORY;
    *fd = binder::ThreadPool::get().fd();
    return STATUS_OK;
}

binder_status_t ABinderProcess_handlePolledCommands() {
    if (binder::refuseForked()) return STATUS_INVALID_OPERATION;
    if (!binder::ThreadPool::get().prepare()) return STATUS_NO_MEMORY;
    binder::ThreadPool::get().poll();
    return STATUS_OK;
}
