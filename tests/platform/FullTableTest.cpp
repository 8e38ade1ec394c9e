#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

/** Holds up whoever calls it until the lock is free. */
class Blocker : public TestPeer {
  public:
    explicit Blocker(std::mutex& lock) : mGate(lock) {}

    ndk::ScopedAStatus descend(const std::shared_ptr<ITestPeer>& /*other*/, int32_t /*depth*/,
                               int32_t* result) override {
        const std::lock_guard guard(mGate);
        *result = 1;
        return ndk::ScopedAStatus::ok();
    }

  private:
    std::mutex& mGate;
};

TEST(FullTableTest, ProcessWithoutDescriptorsServesOnAndStaysQuiet) {
#if defined(__has_feature)
#if __has_feature(undefined_behavior_sanitizer)
    GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
#endif
    const PeerProcess process(std::vector<std::string>{"full", "64"});
    PeerProcess other("other");
    ASSERT_NE(process.peer, nullptr);
    ASSERT_NE(other.peer, nullptr);
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(process.peer->create(&created).isOk());
    ASSERT_TRUE(other.peer->keep(created).isOk());
    ASSERT_TRUE(other.peer->callKept().isOk());
    created.reset();

    // More callers at once than it has room for: some are refused, nobody hangs.
    std::vector<std::thread> callers;
    std::atomic<int> refused = 0;
    std::mutex lock;
    lock.lock();
    for (int i = 0; i < 100; ++i) {
        callers.emplace_back([&] {
            const auto local = ndk::SharedRefBase::make<Blocker>(lock);
            int32_t calls = 0;
            refused += process.peer->descend(local, 1, &calls).isOk() ? 0 : 1;
        });
    }
    int32_t lines = 0;
    int32_t pid = 0;
    EXPECT_TRUE(eventually([&] { return refused > 30; }));
    other.child.kill();
    int32_t live = 0;
    EXPECT_TRUE(eventually([&] { return other.peer->post(1).getStatus() == STATUS_DEAD_OBJECT; }));
    lock.unlock();
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_TRUE(eventually([&] { return process.peer->liveObjects(&live).isOk() && live == 1; }));
    EXPECT_TRUE(process.peer->callingPid(&pid).isOk());
    ASSERT_TRUE(process.peer->logLines(&lines).isOk());
    EXPECT_LT(lines, 300);
}

}  // namespace
}  // namespace platformtest
