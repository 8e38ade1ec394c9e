#include "transport/IoThread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "base/Thread.h"

namespace binder {

IoThread& IoThread::get() {
    static IoThread* const instance = new IoThread;  // outlives every thread
    return *instance;
}

bool IoThread::start() {
    if (mIsStarted) return true;
    mEpoll.reset(epoll_create1(EPOLL_CLOEXEC));
    mWake.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.ptr = nullptr}};
    if (mEpoll < 0 || mWake < 0 || epoll_ctl(mEpoll, EPOLL_CTL_ADD, mWake, &event) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot watch sockets: %s", strerror(errno));
        return false;
    }
    mIsStarted = startQuietThread("binder:io", [this] { run(); });
    return mIsStarted;
}

bool IoThread::watch(const std::shared_ptr<Watched>& watched, uint32_t events) {
    const std::lock_guard lock(mLock);
    const bool isNew = mWatched.emplace(watched.get(), watched).second;
    epoll_event event{.events = events, .data = {.ptr = watched.get()}};
    const int operation = isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (epoll_ctl(mEpoll, operation, watched->fd(), &event) == 0) return true;
    complain(ANDROID_LOG_ERROR, "Cannot watch a socket: %s", strerror(errno));
    if (isNew) mWatched.erase(watched.get());
    return false;
}

void IoThread::forget(const Watched& watched) {
    if (isForked()) return;
    std::shared_ptr<Watched> last;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto found = mWatched.find(&watched);
    if (found == mWatched.end()) return;
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, watched.fd(), nullptr);
    last = std::move(found->second);
    mWatched.erase(found);
}

void IoThread::after(std::chrono::milliseconds time, std::function<void()> function) {
    {
        const std::lock_guard lock(mLock);
        mDue.emplace(Clock::now() + time, std::move(function));
    }
    eventfd_write(mWake, 1);
}

int IoThread::untilDue() {
    const std::lock_guard lock(mLock);
    if (mDue.empty()) return -1;
    const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(mDue.begin()->first - Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

void IoThread::runDue() {
    for (;;) {
        std::function<void()> function;
        {
            const std::lock_guard lock(mLock);
            if (mDue.empty() || mDue.begin()->first > Clock::now()) return;
            function = std::move(mDue.begin()->second);
            mDue.erase(mDue.begin());
        }
        function();
    }
}

void IoThread::run() {
    for (;;) {
        std::array<epoll_event, 32> events;
        const int count = epoll_wait(mEpoll, events.data(), events.size(), untilDue());
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<size_t>(i)];
            std::shared_ptr<Watched> watched;
            {
                const std::lock_guard lock(mLock);
                const auto found = mWatched.find(static_cast<const Watched*>(event.data.ptr));
                if (found != mWatched.end()) watched = found->second;
            }
            if (watched != nullptr) watched->onEvents(event.events);
        }
        runDue();
    }
}

}  // namespace binder
