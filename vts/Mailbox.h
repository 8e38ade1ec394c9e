#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace vela::test {

/** Long enough that only a fault reaches it. */
constexpr std::chrono::seconds kPatience{60};

/** Things that other threads put in and a test takes out, in order. */
template <typename T>
class Mailbox {
  public:
    void put(T value) {
        const std::lock_guard lock(mLock);
        mValues.push_back(std::move(value));
        mArrived.notify_all();
    }

    /** The next one; none, after a long wait, when nothing comes. */
    std::optional<T> take() {
        std::unique_lock lock(mLock);
        if (!mArrived.wait_for(lock, kPatience, [this] { return !mValues.empty(); })) return {};
        T value = std::move(mValues.front());
        mValues.pop_front();
        return value;
    }

    [[nodiscard]] bool empty() {
        const std::lock_guard lock(mLock);
        return mValues.empty();
    }

  private:
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<T> mValues;
};

}  // namespace vela::test
