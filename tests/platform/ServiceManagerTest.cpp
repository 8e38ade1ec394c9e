#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <android/binder_manager.h>
#include <gmock/gmock.h>

#include "binder_host/ServiceManager.h"
#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

using testing::Contains;

const char* nameOf(binder::ServiceManagerHost host) {
    switch (host) {
        case binder::ServiceManagerHost::kThisProcess:
            return "here";
        case binder::ServiceManagerHost::kAnotherProcess:
            return "elsewhere";
        case binder::ServiceManagerHost::kNone:
            return "nowhere";
    }
    return "?";
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
    while (parent.hear().has_value())
        parent.say(nameOf(binder::startServiceManager()));
});

// Forks after binder has been used and reports what the child could do.
const harness::Role kForker("forker", [](harness::Parent& parent) {
    const std::shared_ptr<ITestPeer> peer = peerNamed(parent.arguments[0]);
    const pid_t child = fork();
    if (child == 0) {
        int32_t pid = 0;
        _exit(peer->callingPid(&pid).getStatus() == STATUS_INVALID_OPERATION ? 0 : 1);
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
    void SetUp() override { prepareProcess(); }

    const ndk::SpAIBinder mBinder = ndk::SharedRefBase::make<TestPeer>()->asBinder();
};

TEST_F(ServiceManagerTest, NamesAreValidated) {
    for (const std::string& name :
         {std::string("a"), std::string(127, 'x'), std::string("aZ09_-./")}) {
        EXPECT_EQ(AServiceManager_addService(mBinder.get(), name.c_str()), EX_NONE) << name;
        EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService(name.c_str())), mBinder) << name;
        EXPECT_TRUE(AServiceManager_isDeclared(name.c_str()));
    }
    for (const std::string& name : {std::string(), std::string(128, 'x'), std::string("a b"),
                                    std::string("\xc3\xa9"), std::string("a\n")}) {
        EXPECT_EQ(AServiceManager_addService(mBinder.get(), name.c_str()), EX_ILLEGAL_ARGUMENT);
        EXPECT_EQ(AServiceManager_checkService(name.c_str()), nullptr);
    }
    EXPECT_NE(AServiceManager_addService(nullptr, "null"), EX_NONE);
    EXPECT_NE(AServiceManager_addService(mBinder.get(), nullptr), EX_NONE);
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    EXPECT_EQ(AServiceManager_getService(nullptr), nullptr);
    EXPECT_FALSE(AServiceManager_isDeclared("null"));
}

TEST_F(ServiceManagerTest, LastOneAddedHasTheName) {
    const ndk::SpAIBinder other = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "replaced"), EX_NONE);
    ASSERT_EQ(AServiceManager_addService(other.get(), "replaced"), EX_NONE);
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService("replaced")), other);

    // The end of a process takes only the names that are still its own.
    PeerProcess replaced("replaced");
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "replaced"), EX_NONE);
    PeerProcess mark("mark");
    replaced.child.kill();
    mark.child.kill();
    EXPECT_TRUE(eventually([] { return !AServiceManager_isDeclared("mark"); }));
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService("replaced")), mBinder);
}

TEST_F(ServiceManagerTest, NamesAreListed) {
    ASSERT_EQ(AServiceManager_addService(mBinder.get(), "listed"), EX_NONE);
    const std::optional<std::vector<std::string>> names = binder::listServices();
    ASSERT_TRUE(names.has_value());
    EXPECT_THAT(*names, Contains("listed"));
}

TEST_F(ServiceManagerTest, WaitingEndsWhenTheNameAppears) {
    EXPECT_EQ(AServiceManager_checkService("awaited"), nullptr);
    ndk::SpAIBinder found[2];
    std::thread waiter([&] { found[0].set(AServiceManager_waitForService("awaited")); });
    std::thread getter([&] { found[1].set(AServiceManager_getService("awaited")); });
    PeerProcess awaited("awaited");
    waiter.join();
    getter.join();
    EXPECT_EQ(found[0], awaited.peer->asBinder());
    EXPECT_EQ(found[1], awaited.peer->asBinder());
}

TEST_F(ServiceManagerTest, GettingGivesUpInTheEnd) {
    EXPECT_EQ(AServiceManager_getService("never"), nullptr);
}

TEST_F(ServiceManagerTest, OneProcessHostsAndAnotherCanFollow) {
    const std::filesystem::path folder = harness::runtimeFolder() / "fresh";
    std::vector<harness::Child> candidates;
    for (int i = 0; i < 6; ++i) {
        candidates.emplace_back("host", std::vector<std::string>{folder.string()});
    }
    for (harness::Child& candidate : candidates)
        EXPECT_EQ(candidate.hear(), "alone");
    for (harness::Child& candidate : candidates)
        candidate.say("start");
    harness::Child* host = nullptr;
    for (harness::Child& candidate : candidates) {
        const std::string answer = candidate.hear();
        if (answer == "here") {
            EXPECT_EQ(host, nullptr);
            host = &candidate;
        } else {
            EXPECT_EQ(answer, "elsewhere");
        }
    }
    ASSERT_NE(host, nullptr);
    host->say("again");
    EXPECT_EQ(host->hear(), "here");
    host->kill();
    harness::Child& successor = host == &candidates[0] ? candidates[1] : candidates[0];
    successor.say("start");
    EXPECT_EQ(successor.hear(), "here");
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
