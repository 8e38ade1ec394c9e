#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "calls/Serve.h"

namespace binder {

/**
 * The threads that serve calls of other processes. All wait on one set of idle connections; the one
 * that an event wakes reads the call, serves it, and puts the connection back. When the last
 * waiting thread turns to a call, another is started, up to the limit.
 */
class ThreadPool {
  public:
    static ThreadPool& get();

    /** Serves calls over the connection from now on, until it ends. */
    void add(std::shared_ptr<Peer> peer, std::shared_ptr<Connection> connection);

    void start();
    bool isStarted();
    bool setMaxThreads(uint32_t count);
    /** Serves calls for ever; returns at once, logged, in a forked process. */
    void join();
    /** Serves what waits, one message for each connection. */
    void poll();
    /** Readable while something waits. */
    int fd() const { return mEpoll.get(); }

  private:
    using Clock = std::chrono::steady_clock;

    /** Of the one thread that an event woke, until it is armed again. */
    struct Served {
        Line line;
        // A caller that calls again at once is waited for, as long as that pays.
        bool waitPays = true;
        Clock::time_point armed{};
        // Set by the thread that arms it for the one that the event will wake.
        std::atomic<bool> isHandedOver{false};
    };

    ThreadPool();

    void serve(Served& served, bool mayStay);
    void serveOneway(Served& served, Incoming message);
    /** Hands the connection over to whomever its next event wakes. */
    void arm(Served& served, int operation);
    void drop(Served& served);
    void startOneMore();

    const android::base::unique_fd mEpoll;
    std::atomic<int32_t> mWaiting{0};

    std::mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    uint32_t mMaxThreads GUARDED_BY(mLock) = 15;
    uint32_t mThreads GUARDED_BY(mLock) = 0;
    std::unordered_map<const Served*, std::unique_ptr<Served>> mServed GUARDED_BY(mLock);
};

}  // namespace binder
