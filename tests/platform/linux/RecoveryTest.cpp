#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include "binder_host/ServiceManager.h"
#include "tests/platform/ndk/TestPeer.h"

// Processes that have no descriptors, no threads or no host for a while.

namespace platformtest {
namespace {

using android::base::unique_fd;

// Waits for the name of the first argument; its first use of binder finds all descriptors taken.
const harness::Role kFull("full", [](harness::Parent& parent) {
    std::vector<unique_fd> taken;
    std::atomic<bool> isFull = false;
    bool found = false;
    std::thread waiter([&] {
        do {
            taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        } while (taken.back() >= 0);
        const ndk::SpAIBinder none(AServiceManager_checkService(parent.arguments[0].c_str()));
        isFull = none.get() == nullptr;
        parent.say("tried");
        found = peerNamed(parent.arguments[0]) != nullptr;
    });
    parent.hear();
    if (isFull) taken.clear();
    waiter.join();
    parent.say(found ? "found" : "nothing");
});

// What the kernel tells of each epoll of this process: which descriptors it watches.
std::vector<unique_fd> openWatches() {
    std::vector<unique_fd> files;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (read_symlink(entry, error) != "anon_inode:[eventpoll]") continue;
        files.emplace_back(open(("/proc/self/fdinfo" / entry.path().filename()).c_str(), O_RDONLY));
    }
    return files;
}

std::string textOf(const std::vector<unique_fd>& files) {
    std::string all;
    for (const unique_fd& file : files) {
        std::array<char, 8192> text{};
        pread(file, text.data(), text.size() - 1, 0);
        all += text.data();
    }
    return all;
}

// Serves an object under the first argument, but has all descriptors taken when the first caller
// comes.
const harness::Role kFullService("full service", [](harness::Parent& parent) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder binder = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    if (AServiceManager_addService(binder.get(), parent.arguments[0].c_str()) != EX_NONE) return;
    const std::vector<unique_fd> watches = openWatches();
    std::vector<unique_fd> taken;
    do {
        taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } while (taken.back() >= 0);
    const std::string before = textOf(watches);
    parent.say("full");
    if (!eventually([&] { return textOf(watches) != before; })) return;
    parent.say("pauses");
    parent.hear();
    taken.clear();
    parent.untilGone();
});

// Publishes an object under the first argument, and has no thread that serves it.
const harness::Role kIdle("idle", [](harness::Parent& parent) {
    const auto peer = ndk::SharedRefBase::make<TestPeer>();
    const ndk::SpAIBinder binder = peer->asBinder();
    if (AServiceManager_addService(binder.get(), parent.arguments[0].c_str()) != EX_NONE) return;
    parent.say("ready");
    parent.untilGone();
});

// Calls the object of that name.
const harness::Role kCaller("caller", [](harness::Parent& parent) {
    const ndk::SpAIBinder binder(AServiceManager_waitForService(parent.arguments[0].c_str()));
    parent.say("calls");
    parent.say(AIBinder_ping(binder.get()) == STATUS_OK ? "answered" : "failed");
});

// Has its own object called by the last of those that it calls through; it has no other thread.
const harness::Role kRound("round", [](harness::Parent& parent) {
    std::vector<std::shared_ptr<ITestPeer>> others;
    for (const std::string& name : parent.arguments)
        others.push_back(peerNamed(name));
    const auto local = ndk::SharedRefBase::make<TestPeer>();
    others.push_back(local);
    const std::shared_ptr<ITestPeer> first = others.front();
    others.erase(others.begin());
    std::vector<int32_t> caller;
    if (!first->relay({others.begin(), others.end()}, &caller).isOk()) return;
    parent.say(std::to_string(caller.at(0)));
    bool sameThread = false;
    local->cameBackOnSameThread(&sameThread);
    parent.say(sameThread ? "same thread" : "other thread");
});

const harness::Role kStoppedHost("stopped host", [](harness::Parent& parent) {
    setenv("BINDER_RUNTIME_DIR", parent.arguments[0].c_str(), 1);
    ABinderProcess_startThreadPool();
    parent.say(binder::startServiceManager() == binder::ServiceManagerHost::kThisProcess ? "here"
                                                                                         : "?");
    parent.untilGone();
});

const harness::Role kGetter("getter", [](harness::Parent& parent) {
    setenv("BINDER_RUNTIME_DIR", parent.arguments[0].c_str(), 1);
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    parent.say(AServiceManager_getService("never") == nullptr ? "nothing" : "something");
#pragma clang diagnostic pop
});

TEST(RecoveryTest, FullTableIsNoEnd) {
    harness::Child full("full", {"late"});
    EXPECT_EQ(full.hear(), "tried");
    const PeerProcess late("late");
    full.say("go on");
    EXPECT_EQ(full.hear(), "found");
}

TEST(RecoveryTest, ServiceWithoutDescriptorsIsThereWhenItHasSome) {
    harness::Child service("full service", {"without"});
    ASSERT_EQ(service.hear(), "full");
    harness::Child caller("caller", {"without"});
    ASSERT_EQ(caller.hear(), "calls");
    ASSERT_EQ(service.hear(), "pauses");
    service.say("go on");
    EXPECT_EQ(caller.hear(), "answered");
}

TEST(RecoveryTest, DeadCallersAreLetGoOfThoughNobodyServesThem) {
    harness::Child idle("idle", {"idle"});
    ASSERT_EQ(idle.hear(), "ready");
    const auto open = [&] { return harness::openDescriptors(idle.pid()); };
    size_t before = open();
    for (int i = 0; i < 5; ++i) {
        harness::Child caller("caller", {"idle"});
        ASSERT_EQ(caller.hear(), "calls");
        EXPECT_TRUE(eventually([&] { return open() > before; }));
        caller.kill();
        // The first one that comes has it open what refuses others.
        EXPECT_TRUE(eventually([&] { return open() == before + (i == 0 ? 1 : 0); }));
        before = open();
    }
}

TEST(RecoveryTest, CallThatComesBackThroughOthersRunsOnTheWaitingThread) {
    const PeerProcess second("second");
    const PeerProcess third("third");
    harness::Child round("round", {"second", "third"});
    // Whoever calls is told, not who handed the call on.
    EXPECT_EQ(round.hear(), std::to_string(third.child.pid()));
    EXPECT_EQ(round.hear(), "same thread");
}

TEST(RecoveryTest, WhoKeepsNothingIsToldOnce) {
    static std::atomic<int> told = 0;
    static std::atomic<int> changes = 0;
    const auto count = [](const char*, AIBinder*, void* cookie) {
        ++*static_cast<std::atomic<int>*>(cookie);
    };
    const PeerProcess once("once");
    auto* const first = AServiceManager_registerForServiceNotifications("once", count, &told);
    // Looked at after the first one each time.
    auto* const mark = AServiceManager_registerForServiceNotifications("mark", count, &changes);
    for (int i = 1; i <= 3; ++i) {
        const ndk::SpAIBinder binder = ndk::SharedRefBase::make<TestPeer>()->asBinder();
        ASSERT_EQ(AServiceManager_addService(binder.get(), "mark"), EX_NONE);
        ASSERT_TRUE(eventually([&] { return changes == i; }));
    }
    EXPECT_EQ(told, 1);
    AServiceManager_NotificationRegistration_delete(first);
    AServiceManager_NotificationRegistration_delete(mark);
}

TEST(RecoveryTest, StoppedHostIsGivenUpInTheEnd) {
    const std::vector<std::string> folder = {harness::runtimeFolder() / "stopped"};
    harness::Child host("stopped host", folder);
    ASSERT_EQ(host.hear(), "here");
    host.signal(SIGSTOP);
    harness::Child getter("getter", folder);
    EXPECT_EQ(getter.hear(), "nothing");
}

}  // namespace
}  // namespace platformtest
