#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "calls/Serve.h"

namespace binder {

/**
 * The threads that serve calls of other processes. All wait on one set of idle connections; the one
 * that an event wakes reads the call, serves it, and puts the connection back. One-way calls wait
 * elsewhere, and the set tells of their objects. When the last waiting thread turns to a call,
 * another is started, up to the limit.
 */
class ThreadPool {
  public:
    static ThreadPool& get();

    /** To be called before all else. False, logged, when the system has no room for it now. */
    bool prepare();

    /** Serves synchronous calls over the line from now on, until it ends. */
    void add(Line line);
    /** Lets go of the line of the connection unless a call over it is being served. */
    void letGo(const Connection& connection);
    /** Serves the object's one-way calls, until there are no more. */
    void serveOnewaysOf(StrongBinder object);

    void start();
    bool isStarted();
    bool setMaxThreads(uint32_t count);
    /** Serves calls for ever; returns at once, logged, in a forked process. */
    void join();
    /** Serves what waits, for a turn. */
    void poll();
    /** Readable while something waits. */
    int fd() const { return mEpoll.get(); }

  private:
    using Clock = std::chrono::steady_clock;

    /** A line. It belongs to the set, or to the one thread that serves it. */
    struct Served {
        explicit Served(Line line) : line(std::move(line)) {}

        const Line line;
        bool isArmed = false;  // guarded by the pool's lock
        // A caller that calls again at once is waited for, as long as that pays.
        bool waitPays = true;
        Clock::time_point armed{};
    };

    /** Waits so long for an event and serves it; false when none came. */
    bool serveOne(int timeout, bool mayStay);
    void serve(const std::shared_ptr<Served>& served, bool mayStay);
    void serveNextObject();
    /** Gives the line back to the set. */
    void arm(const std::shared_ptr<Served>& served, int operation);
    void drop(const Served& served);
    std::shared_ptr<Served> disarm(int fd);
    void startOneMore();

    android::base::unique_fd mEpoll;
    android::base::unique_fd mObjectsWait;  // an eventfd that counts mObjects
    std::atomic<int32_t> mWaiting{0};

    std::mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    uint32_t mMaxThreads GUARDED_BY(mLock) = 15;
    uint32_t mThreads GUARDED_BY(mLock) = 0;
    std::unordered_map<int, std::shared_ptr<Served>> mServed GUARDED_BY(mLock);  // by socket
    std::deque<StrongBinder> mObjects GUARDED_BY(mLock);  // of which one-way calls wait
};

}  // namespace binder
