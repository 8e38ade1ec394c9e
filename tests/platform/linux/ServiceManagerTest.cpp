#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gmock/gmock.h>

#include "binder_host/ServiceManager.h"
#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

using testing::Contains;

const char* nameOf(binder::ServiceManagerHost host) {
    if (host == binder::ServiceManagerHost::kNone) return "nowhere";
    return host == binder::ServiceManagerHost::kThisProcess ? "here" : "elsewhere";
}

// Tries to host the service manager of the folder that the first argument names.
const harness::Role kHost("host", [](harness::Parent& parent) {
    setenv("BINDER_RUNTIME_DIR", parent.arguments[0].c_str(), 1);
    const auto peer = ndk::SharedRefBase::make<TestPeer>();
    const ndk::SpAIBinder binder = peer->asBinder();
    const bool early = AServiceManager_checkService("early") != nullptr ||
                       AServiceManager_isDeclared("early") ||
                       AServiceManager_addService(binder.get(), "early") == EX_NONE ||
                       binder::listServices().has_value();
    parent.say(early ? "served" : "alone");
    ABinderProcess_startThreadPool();
    while (parent.hear().has_value())
        parent.say(nameOf(binder::startServiceManager()));
});

// Serves by polling: without end while it is flooded, but for a turn at a time.
const harness::Role kPolled("polled", [](harness::Parent& parent) {
    binder::startServiceManager();
    int fd = -1;
    if (ABinderProcess_setupPolling(nullptr) != STATUS_UNEXPECTED_NULL ||
        ABinderProcess_setupPolling(&fd) != STATUS_OK) {
        return;
    }
    const auto peer = ndk::SharedRefBase::make<TestPeer>();
    const ndk::SpAIBinder binder = peer->asBinder();
    std::thread adder([&] {  // the service manager's host asks for the descriptor meanwhile
        parent.say(AServiceManager_addService(binder.get(), "polled") == EX_NONE ? "ready" : "no");
    });
    adder.detach();
    int32_t posts = 0;
    for (int turns = 0; posts < 5000; ++turns) {
        pollfd event{.fd = fd, .events = POLLIN, .revents = 0};
        poll(&event, 1, -1);
        if (ABinderProcess_handlePolledCommands() != STATUS_OK) return;
        if (turns == 0) parent.say("turned");
        peer->totalPosts(&posts);
    }
    parent.say("served");
});

// Forks after binder has been used and reports what the child could do.
const harness::Role kForker("forker", [](harness::Parent& parent) {
    const std::shared_ptr<ITestPeer> peer = peerNamed(parent.arguments[0]);
    const pid_t child = fork();
    if (child == 0) {
        int fd = -1;
        ABinderProcess_startThreadPool();
        ABinderProcess_joinThreadPool();  // returns: there is nothing to serve
        const bool refused = peer->post(0).getStatus() == STATUS_INVALID_OPERATION &&
                             ABinderProcess_setupPolling(&fd) == STATUS_INVALID_OPERATION &&
                             ABinderProcess_handlePolledCommands() == STATUS_INVALID_OPERATION &&
                             AServiceManager_waitForService("never") == nullptr;
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    parent.say(WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "refused" : "allowed");
    const auto local = ndk::SharedRefBase::make<TestPeer>();
    std::shared_ptr<ITestPeer> returned;
    parent.say(peer->echoPeer(local, &returned).isOk() && returned == local ? "well" : "unwell");
});

class ServiceManagerTest : public testing::Test {
  protected:
    const ndk::SpAIBinder mBinder = ndk::SharedRefBase::make<TestPeer>()->asBinder();
};

TEST_F(ServiceManagerTest, WhatIsAbsentIsRefused) {
    const auto note = [](const char*, AIBinder*, void*) {};
    EXPECT_EQ(AServiceManager_registerForServiceNotifications("no name", note, nullptr), nullptr);
    EXPECT_EQ(AServiceManager_registerForServiceNotifications("name", nullptr, nullptr), nullptr);
    EXPECT_NE(AServiceManager_addService(mBinder.get(), nullptr), EX_NONE);
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    EXPECT_FALSE(AServiceManager_isDeclared("null"));
}

TEST_F(ServiceManagerTest, ObjectOfAVendorIsNotCalled) {
    static AIBinder_Class* const twin = AIBinder_Class_define(
            ITestPeer::descriptor, [](void*) -> void* { return nullptr; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    const PeerProcess process("strict");
    ASSERT_NE(process.peer, nullptr);
    // Declared for vendors' code only.
    void* const mark = dlsym(RTLD_DEFAULT, "AIBinder_markVendorStability");
    ASSERT_NE(mark, nullptr);
    const ndk::SpAIBinder unstable(AIBinder_new(twin, nullptr));
    reinterpret_cast<void (*)(AIBinder*)>(mark)(unstable.get());
    // Others may not use anything but its name.
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    AIBinder* const binder = process.peer->asBinder().get();
    ASSERT_EQ(AIBinder_prepareTransaction(binder, in.getR()), STATUS_OK);
    ASSERT_EQ(AParcel_writeStrongBinder(in.get(), unstable.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(in.get(), 1), STATUS_OK);
    EXPECT_EQ(AIBinder_transact(binder, ITestPeer::TRANSACTION_descend, in.getR(), out.getR(), 0),
              STATUS_BAD_TYPE);
}

TEST_F(ServiceManagerTest, NamesAreListed) {
    EXPECT_FALSE(AServiceManager_isDeclared("listed"));
    ASSERT_EQ(AServiceManager_addServiceWithFlags(mBinder.get(), "listed",
                                                  ADD_SERVICE_ALLOW_ISOLATED),
              EX_NONE);
    EXPECT_TRUE(AServiceManager_isDeclared("listed"));
    const std::optional<std::vector<std::string>> names = binder::listServices();
    ASSERT_TRUE(names.has_value());
    EXPECT_THAT(*names, Contains("listed"));

    for (const char* const name : {"a.IB/default", "a.IB/other", "a.IBC/default"})
        ASSERT_EQ(AServiceManager_addService(mBinder.get(), name), EX_NONE);
    std::vector<std::string> instances;
    AServiceManager_forEachDeclaredInstance("a.IB", &instances, [](const char* name, void* to) {
        static_cast<std::vector<std::string>*>(to)->emplace_back(name);
    });
    EXPECT_THAT(instances, testing::UnorderedElementsAre("default", "other"));
}

TEST_F(ServiceManagerTest, PolledCommandsAreServedTurnByTurn) {
    harness::Child polled("polled");
    EXPECT_EQ(polled.hear(), "ready");
    const auto peer = peerNamed("polled");
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(polled.hear(), "turned");
    // The calls do not stop before it has been round often enough to see them.
    std::atomic<bool> served = false;
    std::thread flooder([&] {
        while (!served && (peer->post(1).isOk() || AIBinder_isAlive(peer->asBinder().get()))) {
        }
    });
    EXPECT_EQ(polled.hear(), "served");
    served = true;
    flooder.join();
}

// Load tests show that another can follow, and that whoever waits for a name waits on meanwhile.
TEST_F(ServiceManagerTest, OneProcessHosts) {
    const std::filesystem::path folder = harness::runtimeFolder() / "fresh";
    std::vector<harness::Child> candidates;
    for (int i = 0; i < 6; ++i) {
        candidates.emplace_back("host", std::vector<std::string>{folder.string()});
    }
    for (harness::Child& candidate : candidates)
        EXPECT_EQ(candidate.hear(), "alone");
    for (int time = 0; time < 2; ++time) {  // the second one changes nothing
        for (harness::Child& candidate : candidates)
            candidate.say("start");
        std::vector<std::string> answers;
        for (harness::Child& candidate : candidates)
            answers.push_back(candidate.hear());
        EXPECT_THAT(answers, testing::UnorderedElementsAre("here", "elsewhere", "elsewhere",
                                                           "elsewhere", "elsewhere", "elsewhere"));
    }
}

TEST_F(ServiceManagerTest, FolderThatOthersCanReadIsRefused) {
    const std::filesystem::path folder = harness::runtimeFolder() / "open";
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(
            folder, std::filesystem::perms::owner_all | std::filesystem::perms::group_read);
    harness::Child candidate("host", {folder.string()});
    EXPECT_EQ(candidate.hear(), "alone");
    candidate.say("start");
    EXPECT_EQ(candidate.hear(), "nowhere");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(ServiceManagerTest, SocketsOfEndedProcessesGo) {
    const std::filesystem::path folder = harness::runtimeFolder() / "swept";
    const auto socketsOf = [&](pid_t pid) {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            count += entry.path().filename().string().starts_with(std::to_string(pid) + ".");
        }
        return count;
    };
    harness::Child killed("host", {folder.string()});
    harness::Child finished("host", {folder.string()});
    for (harness::Child* const child : {&killed, &finished}) {
        EXPECT_EQ(child->hear(), "alone");
        EXPECT_EQ(socketsOf(child->pid()), 1);
    }
    const pid_t finishedPid = finished.pid();
    EXPECT_EQ(finished.finish(), 0);
    EXPECT_EQ(socketsOf(finishedPid), 0);
    const pid_t killedPid = killed.pid();
    killed.kill();
    EXPECT_EQ(socketsOf(killedPid), 1);
    harness::Child next("host", {folder.string()});
    EXPECT_EQ(next.hear(), "alone");
    EXPECT_EQ(socketsOf(killedPid), 0);
}

TEST_F(ServiceManagerTest, ForkedProcessIsRefusedAndHarmsNobody) {
    PeerProcess server("forked");
    harness::Child forker("forker", {"forked"});
    EXPECT_EQ(forker.hear(), "refused");
    EXPECT_EQ(forker.hear(), "well");
    EXPECT_EQ(forker.finish(), 0);
}

}  // namespace
}  // namespace platformtest
