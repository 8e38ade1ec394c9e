#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include <android-base/thread_annotations.h>

namespace binder {

/**
 * The one thread that runs, in order, what may call code of the library's users and must not do so
 * where it is found to be due: death notifications, and the release of objects that other
 * processes have given back. Started at the first need.
 */
class Worker {
  public:
    static Worker& get();

    /** Any thread. */
    void post(std::function<void()> work);
    /** Destroys it there. Any thread. */
    template <typename T>
    void release(T last) {
        auto shared = std::make_shared<T>(std::move(last));
        post([shared = std::move(shared)]() mutable { shared.reset(); });
    }

  private:
    // The analysis does not follow std::unique_lock.
    void run() NO_THREAD_SAFETY_ANALYSIS;

    std::mutex mLock;
    std::condition_variable mPosted;
    std::deque<std::function<void()>> mWork GUARDED_BY(mLock);
    bool mStarted GUARDED_BY(mLock) = false;
};

}  // namespace binder
