#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include "tests/platform/ndk/TestPeer.h"

// Processes that end, or become others, while objects lie in two of them.

namespace platformtest {
namespace {

/** References that a process may have to objects of another one: a quarter of its descriptors. */
int mostObjects() {
    rlimit table{};
    getrlimit(RLIMIT_NOFILE, &table);
    return static_cast<int>(std::min<rlim_t>(5000, table.rlim_max / 4 - 100));
}

// Takes as many objects of the peer of that name as the second argument says.
const harness::Role kTaker("taker", [](harness::Parent& parent) {
    const std::shared_ptr<ITestPeer> peer = peerNamed(parent.arguments[0]);
    std::vector<std::shared_ptr<ITestPeer>> taken(std::stoul(parent.arguments[1]));
    const bool all = std::ranges::all_of(taken, [&](auto& it) { return peer->create(&it).isOk(); });
    parent.say(all ? "ready" : "refused");
    parent.untilGone();
});

// Holds an object for the life of the program, and forks a child that merely exits.
const harness::Role kParent("parent", [](harness::Parent& parent) {
    static ndk::SpAIBinder held;
    const std::shared_ptr<ITestPeer> peer = peerNamed(parent.arguments[0]);
    std::shared_ptr<ITestPeer> created;
    if (!peer->create(&created).isOk() || !created->post(1).isOk()) return;
    held = created->asBinder();
    const pid_t child = fork();
    if (child == 0) exit(0);
    int status = -1;
    waitpid(child, &status, 0);
    parent.say(WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "exited" : "ended");
    std::vector<int32_t> posts;
    parent.say(created->post(2).isOk() && created->awaitPosts(2, &posts).isOk() ? "held" : "lost");
    parent.untilGone();
});

const harness::Role kOther("another program", [](harness::Parent& parent) {
    parent.say("changed");
    parent.untilGone();
});

const harness::Role kChanging("changing", [](harness::Parent& parent) {
    ABinderProcess_startThreadPool();
    const auto peer = ndk::SharedRefBase::make<TestPeer>();
    if (AServiceManager_addService(peer->asBinder().get(), "changing") != EX_NONE) return;
    parent.say("ready");
    parent.hear();
    execl("/proc/self/exe", "other", "--role=another program", nullptr);
});

TEST(ProcessEndTest, KilledHolderOfManyObjectsIsForgotten) {
    const PeerProcess owner("owner");
    ASSERT_NE(owner.peer, nullptr);
    const size_t before = harness::openDescriptors(owner.child.pid());
    const int count = mostObjects();
    harness::Child taker("taker", {"owner", std::to_string(count)});
    ASSERT_EQ(taker.hear(), "ready");
    int32_t live = 0;
    ASSERT_TRUE(owner.peer->liveObjects(&live).isOk());
    EXPECT_EQ(live, count + 1);
    taker.kill();
    EXPECT_TRUE(eventually([&] { return owner.peer->liveObjects(&live).isOk() && live == 1; }))
            << live;
    EXPECT_TRUE(eventually([&] { return harness::openDescriptors(owner.child.pid()) <= before; }));
}

TEST(ProcessEndTest, ForkedChildsExitHarmsNobody) {
    const PeerProcess owner("lender");
    ASSERT_NE(owner.peer, nullptr);
    harness::Child parent("parent", {"lender"});
    EXPECT_EQ(parent.hear(), "exited");
    EXPECT_EQ(parent.hear(), "held");
    int32_t live = 0;
    ASSERT_TRUE(owner.peer->liveObjects(&live).isOk());
    EXPECT_EQ(live, 2);
    EXPECT_EQ(parent.finish(), 0);
    EXPECT_TRUE(eventually([&] { return owner.peer->liveObjects(&live).isOk() && live == 1; }));
}

TEST(ProcessEndTest, ProcessThatBecomesAnotherProgramIsDeadAtTheNextCall) {
    for (const bool oneway : {false, true}) {
        harness::Child changing("changing");
        ASSERT_EQ(changing.hear(), "ready");
        const std::shared_ptr<ITestPeer> peer = peerNamed("changing");
        ASSERT_NE(peer, nullptr);
        AIBinder* const binder = peer->asBinder().get();
        EXPECT_EQ(AIBinder_ping(binder), STATUS_OK);
        changing.say("go on");
        ASSERT_EQ(changing.hear(), "changed");
        EXPECT_EQ(oneway ? peer->post(1).getStatus() : AIBinder_ping(binder), STATUS_DEAD_OBJECT);
        EXPECT_FALSE(AIBinder_isAlive(binder));
        EXPECT_EQ(changing.finish(), 0);
    }
}

}  // namespace
}  // namespace platformtest
