#include <sched.h>
#include <sys/stat.h>

#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "tests/load/LoadTest.h"
#include "tests/platform/ndk/TestPeer.h"

namespace load_test {
namespace {

using platformtest::ITestPeer;
using platformtest::PeerProcess;
using platformtest::TestPeer;
using Clock = std::chrono::steady_clock;

// What a round takes while a thread gets next to nothing of its processor.
constexpr std::chrono::milliseconds kRound{300};
constexpr int kMostObjects = 400;

/** Keeps all that it is handed. */
class Holder : public TestPeer {
  public:
    ndk::ScopedAStatus keep(const std::shared_ptr<ITestPeer>& peer) override {
        const std::lock_guard lock(mLock);
        mHeld.push_back(peer);
        return ndk::ScopedAStatus::ok();
    }
    std::vector<std::shared_ptr<ITestPeer>> take() {
        const std::lock_guard lock(mLock);
        return std::exchange(mHeld, {});
    }

  private:
    std::mutex mLock;
    std::vector<std::shared_ptr<ITestPeer>> mHeld GUARDED_BY(mLock);
};

// Has "owner" make objects, calls each one-way at most a few times, hands it on to "holder" and
// drops it; how often is left to the seed. Says how many objects and calls there were.
const harness::Role kForwarder("forwarder", [](harness::Parent& parent) {
    ABinderProcess_startThreadPool();
    const auto owner = platformtest::peerNamed("owner");
    const auto holder = platformtest::peerNamed("holder");
    std::mt19937 random(static_cast<uint32_t>(std::stoul(parent.arguments[0])));
    parent.say("ready");
    while (parent.hear().has_value()) {
        int objects = 0;
        int calls = 0;
        for (const auto end = Clock::now() + kRound;
             objects < kMostObjects && Clock::now() < end;) {
            std::shared_ptr<ITestPeer> object;
            if (!owner->create(&object).isOk()) break;
            for (uint32_t left = random() % 4; left > 0; --left)
                calls += object->post(objects).isOk() ? 1 : 0;
            if (!holder->keep(object).isOk()) break;
            ++objects;
        }
        parent.say(std::to_string(objects));
        parent.say(std::to_string(calls));
    }
});

// Takes all of the processor that the first argument names.
const harness::Role kSpinner("spinner", [](harness::Parent& parent) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(std::stoul(parent.arguments[0]), &one);
    sched_setaffinity(0, sizeof(one), &one);
    parent.say("spins");
    for (volatile bool spin = true; spin;) {
    }
});

/** The process's thread of that name; 0 when there is none. */
pid_t threadNamed(pid_t process, const std::string& name) {
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::string found;
        std::getline(std::ifstream(task.path() / "comm"), found);
        if (found == name) return std::stoi(task.path().filename());
    }
    return 0;
}

/** From now on the thread runs only when nobody else wants that processor. */
bool starve(pid_t thread, int processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(processor), &one);
    const sched_param none{};
    return sched_setaffinity(thread, sizeof(one), &one) == 0 &&
           sched_setscheduler(thread, SCHED_IDLE, &none) == 0;
}

struct Starved {
    bool isOwner;
    const char* thread;  // null for the main one
};

class StarvedTest : public HostTest, public testing::WithParamInterface<Starved> {};

TEST_P(StarvedTest, ObjectsThatAreHandedOnAreNotLost) {
    const uint32_t seed = std::random_device{}();
    figure("seed", seed);
    const int processor = sched_getcpu();
    const auto holder = ndk::SharedRefBase::make<Holder>();
    const ndk::SpAIBinder binder = holder->asBinder();
    ASSERT_EQ(AServiceManager_addService(binder.get(), "holder"), EX_NONE);
    PeerProcess owner("owner");
    ASSERT_NE(owner.peer, nullptr);
    harness::Child forwarder("forwarder", {std::to_string(seed)});
    ASSERT_EQ(forwarder.hear(), "ready");
    int32_t posts = 0;
    const auto round = [&] {
        forwarder.say("go on");
        const int objects = std::stoi(forwarder.hear());
        posts += std::stoi(forwarder.hear());
        const auto held = holder->take();
        EXPECT_EQ(held.size(), static_cast<size_t>(objects));
        int lost = 0;
        for (const auto& object : held)
            lost += object == nullptr || AIBinder_ping(object->asBinder().get()) != STATUS_OK;
        EXPECT_EQ(lost, 0) << "of " << objects;
        return objects;
    };
    // Every thread has been needed once.
    EXPECT_GT(round(), 0);

    harness::Child spinner("spinner", {std::to_string(processor)});
    ASSERT_EQ(spinner.hear(), "spins");
    const pid_t process = (GetParam().isOwner ? owner.child : forwarder).pid();
    const pid_t thread =
            GetParam().thread == nullptr ? process : threadNamed(process, GetParam().thread);
    ASSERT_NE(thread, 0);
    ASSERT_TRUE(starve(thread, processor));
    figure("objects", round());
    spinner.kill();
    int32_t live = 0;
    int32_t posted = 0;
    EXPECT_TRUE(harness::eventually([&] {
        return owner.peer->liveObjects(&live).isOk() && owner.peer->totalPosts(&posted).isOk() &&
               live == 1 && posted == posts;
    })) << live
        << " objects are left; " << posted << " calls of " << posts << " arrived";
}

INSTANTIATE_TEST_SUITE_P(LoadTest, StarvedTest,
                         testing::Values(Starved{true, nullptr}, Starved{true, "binder:io"},
                                         Starved{true, "binder:main"},
                                         Starved{true, "binder:notify"}, Starved{false, nullptr},
                                         Starved{false, "binder:io"},
                                         Starved{false, "binder:main"}),
                         [](const auto& test) {
                             const char* const thread = test.param.thread;
                             std::string name = thread == nullptr ? "itself" : thread + 7;
                             name[0] = static_cast<char>(std::toupper(name[0]));
                             return (test.param.isOwner ? "Owner" : "Forwarder") + name;
                         });

}  // namespace
}  // namespace load_test
