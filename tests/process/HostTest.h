#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "tests/programs/Program.h"

namespace process_test {

namespace display = aidl::vendor::lumenforge::hardware::display;

using Values = std::vector<int32_t>;

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

/** The published service; waits for it. Starts the thread pool, for callbacks. */
std::shared_ptr<display::IVela> findService();

/** A real service host with the simulated chip in a process of its own, and this process its
 * client. */
class HostTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /** Starts the host and finds the service; fails the test when it does not come up. */
    void startHost();

    /** Kills the host and waits until its process is gone. */
    void killHost();

    /** A `velactl monitor` with these options, registered. */
    std::unique_ptr<Program> startMonitor(std::vector<std::string> options);

    /** Runs a batch of the simulated chip's language; its reply. */
    std::string batch(const std::string& text);

    /** How many descriptors the host's process has open. */
    [[nodiscard]] size_t hostDescriptors() const;

    /**
     * Waits for what the host does after it has answered, such as closing what a request brought,
     * by asking until it is so; fails the test when it never is.
     */
    void await(const char* what, const std::function<bool()>& isSo);

    /** Waits until the host's log has one more line with this text. */
    void awaitLog(const std::string& text);

    std::unique_ptr<Program> host;
    std::shared_ptr<display::IVela> vela;
    size_t mLogSeen = 0;
};

}  // namespace process_test
