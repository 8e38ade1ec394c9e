#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

namespace binder {

/** A descriptor that the I/O thread can watch. */
class Watched {
  public:
    virtual ~Watched() = default;

    virtual int fd() const = 0;
    /**
     * For the I/O thread: some of these events of epoll have come. They may be old news, so what is
     * there is found out by trying. Must wait for nobody and run no code of the library's users.
     */
    virtual void onEvents(uint32_t events) = 0;
};

/**
 * The thread that greets other processes, sees them die and objects lose their holders, takes in
 * one-way calls, and sends what others could not send at once. It holds no lock while it calls what
 * it watches.
 */
class IoThread {
  public:
    static IoThread& get();

    /** To be called before all else. False, logged, when the system has no room for it now. */
    bool start();

    // Any thread.

    /** Watches for these events from now on, instead of former ones. False, logged, on failure. */
    [[nodiscard]] bool watch(const std::shared_ptr<Watched>& watched, uint32_t events);
    /** Nothing in a forked process, which would have its parent's thread forget it. */
    void forget(const Watched& watched);
    /** Runs the function once, on the I/O thread, when the time has passed. */
    void after(std::chrono::milliseconds time, std::function<void()> function);

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    void runDue();
    /** Until the next function is due, in milliseconds; -1 when there is none. */
    int untilDue();

    android::base::unique_fd mEpoll;
    android::base::unique_fd mWake;  // an eventfd: a function has been added

    bool mIsStarted = false;

    std::mutex mLock;
    std::unordered_map<const Watched*, std::shared_ptr<Watched>> mWatched GUARDED_BY(mLock);
    std::multimap<Clock::time_point, std::function<void()>> mDue GUARDED_BY(mLock);
};

}  // namespace binder
