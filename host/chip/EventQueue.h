#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include <android-base/thread_annotations.h>

namespace lmfg {

/**
 * One thread, which the first task starts, runs tasks in the order in which they were posted.
 * Thread-safe.
 */
class EventQueue {
  public:
    static constexpr size_t kMaxPending = 1024;

    ~EventQueue() { stop(); }

    void start();
    /** Waits for the running task and drops the others. Not to be called from a task. */
    void stop();

    /** 0, -ESHUTDOWN when not started, or -EAGAIN when kMaxPending tasks wait already. */
    int post(std::function<void()> task);
    /**
     * Waits until everything posted before the call has run: 0, -EDEADLK when called from a task,
     * -ESHUTDOWN when stopped, -ETIMEDOUT.
     */
    int drain(std::chrono::milliseconds timeout) NO_THREAD_SAFETY_ANALYSIS;

  private:
    // The analysis does not follow std::unique_lock.
    void run() NO_THREAD_SAFETY_ANALYSIS;

    std::mutex mLifecycle;  // held over the whole of start() and stop(); before mLock
    std::mutex mLock;
    std::condition_variable mChanged;
    std::thread mThread GUARDED_BY(mLock);
    bool mRunning GUARDED_BY(mLock) = false;
    std::deque<std::function<void()>> mTasks GUARDED_BY(mLock);
    uint64_t mPosted GUARDED_BY(mLock) = 0;
    uint64_t mDone GUARDED_BY(mLock) = 0;
};

}  // namespace lmfg
