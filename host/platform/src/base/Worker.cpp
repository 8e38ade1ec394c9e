#include "base/Worker.h"

#include <utility>

#include "base/Thread.h"

namespace binder {

Worker& Worker::get() {
    static Worker* const instance = new Worker;  // outlives every thread
    return *instance;
}

void Worker::post(std::function<void()> work) {
    const std::lock_guard lock(mLock);
    mWork.push_back(std::move(work));
    mStarted = mStarted || startThread("binder:notify", [this] { run(); });
    mPosted.notify_one();
}

void Worker::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(mLock);
            while (mWork.empty())
                mPosted.wait(lock);
            work = std::move(mWork.front());
            mWork.pop_front();
        }
        work();
    }
}

}  // namespace binder
