#include "host/chip/EventQueue.h"

#include <pthread.h>

#include <cerrno>
#include <utility>

namespace lmfg {

void EventQueue::start() {
    const std::lock_guard<std::mutex> lifecycle(mLifecycle);
    const std::lock_guard<std::mutex> guard(mLock);
    mRunning = true;
}

void EventQueue::stop() {
    const std::lock_guard<std::mutex> lifecycle(mLifecycle);
    std::thread thread;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mRunning = false;
        thread = std::move(mThread);
        mDone += mTasks.size();
        mTasks.clear();
    }
    mChanged.notify_all();
    if (thread.joinable()) thread.join();
}

int EventQueue::post(std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        if (!mRunning) return -ESHUTDOWN;
        if (mTasks.size() >= kMaxPending) return -EAGAIN;
        if (!mThread.joinable()) {
            mThread = std::thread([this] { run(); });
            pthread_setname_np(mThread.native_handle(), "chip:events");
        }
        mTasks.push_back(std::move(task));
        ++mPosted;
    }
    mChanged.notify_all();
    return 0;
}

int EventQueue::drain(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    if (!mRunning) return -ESHUTDOWN;
    if (std::this_thread::get_id() == mThread.get_id()) return -EDEADLK;
    const auto last = mPosted;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (mDone < last && mRunning) {
        if (std::chrono::steady_clock::now() >= deadline) return -ETIMEDOUT;
        mChanged.wait_until(lock, deadline);
    }
    return mRunning ? 0 : -ESHUTDOWN;
}

void EventQueue::run() {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        while (mTasks.empty() && mRunning)
            mChanged.wait(lock);
        if (!mRunning) return;
        std::function<void()> task = std::move(mTasks.front());
        mTasks.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
        ++mDone;
        mChanged.notify_all();
    }
}

}  // namespace lmfg
