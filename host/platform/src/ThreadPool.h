#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_set>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "Connection.h"

namespace binder {

/**
 * The threads that serve calls of other processes. All wait on one set of idle connections; the one
 * that an event wakes reads the call, serves it, and puts the connection back. When the last
 * waiting thread turns to a call, another is started, up to the limit.
 */
class ThreadPool {
  public:
    static ThreadPool& get();

    /** Serves the connection from now on, until it ends. */
    void add(const std::shared_ptr<Connection>& connection);
    /** Waits for the connection's next message. */
    void rearm(Connection& connection);

    void start();
    bool isStarted();
    bool setMaxThreads(uint32_t count);
    /** Serves calls for ever. */
    [[noreturn]] void join();
    /** Serves what waits. */
    void poll();
    /** Readable while something waits. */
    int fd() const { return mEpoll.get(); }

  private:
    ThreadPool();

    void serve(Connection* ready);
    void drop(const std::shared_ptr<Connection>& connection);
    void startOneMore();

    const android::base::unique_fd mEpoll;
    std::atomic<int32_t> mWaiting{0};

    std::mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    uint32_t mMaxThreads GUARDED_BY(mLock) = 15;
    uint32_t mThreads GUARDED_BY(mLock) = 0;
    std::unordered_set<std::shared_ptr<Connection>> mConnections GUARDED_BY(mLock);
};

}  // namespace binder
