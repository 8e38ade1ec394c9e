#include <atomic>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

using testing::ElementsAre;

/** The most bytes that the peer's methods can take, return, and take one way. */
constexpr int32_t kMostIn = 1'040'312;
constexpr int32_t kMostOut = 1'040'376;
constexpr int32_t kMostOneway = 520'092;

class CallTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mPeer, nullptr); }

    PeerProcess mProcess{"call"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
};

std::vector<ndk::ScopedFileDescriptor> newFiles(size_t count) {
    std::vector<ndk::ScopedFileDescriptor> files(count);
    for (auto& file : files)
        file.set(memfd_create("file", MFD_CLOEXEC));
    return files;
}

TEST_F(CallTest, DescriptorsAreTheSameFilesAndDoNotLeak) {
    const PeerProcess few(std::vector<std::string>{"few", "48"});
    ASSERT_NE(few.peer, nullptr);
    struct Case {
        const PeerProcess& process;
        size_t count;
        binder_status_t status;
    };
    for (const auto& [process, count, status] : {Case{mProcess, 1, STATUS_OK},
                                                 {mProcess, 253, STATUS_OK},
                                                 {few, 100, STATUS_FAILED_TRANSACTION},
                                                 {few, 1, STATUS_OK}}) {
        const size_t theirs = harness::openDescriptors(process.child.pid());
        const size_t ours = harness::openDescriptors();
        {
            const auto sent = newFiles(count);
            std::vector<ndk::ScopedFileDescriptor> received;
            EXPECT_EQ(process.peer->echoDescriptors(sent, &received).getStatus(), status);
            ASSERT_EQ(received.size(), status == STATUS_OK ? count : 0);
            for (size_t i = 0; i < received.size(); ++i) {
                struct stat before {};
                struct stat after {};
                ASSERT_EQ(fstat(sent[i].get(), &before), 0);
                ASSERT_EQ(fstat(received[i].get(), &after), 0);
                EXPECT_EQ(after.st_ino, before.st_ino);
                EXPECT_NE(fcntl(received[i].get(), F_GETFD) & FD_CLOEXEC, 0);
            }
        }
        EXPECT_LE(harness::openDescriptors(), ours);
        EXPECT_EQ(AIBinder_ping(process.peer->asBinder().get()), STATUS_OK);
        EXPECT_LE(harness::openDescriptors(process.child.pid()), theirs);
    }
}

TEST_F(CallTest, TransactionsPassUpToTheirLimit) {
    // Data is padded to four bytes, so four more are too many.
    for (const int32_t more : {0, 4}) {
        const binder_status_t status = more == 0 ? STATUS_OK : STATUS_FAILED_TRANSACTION;
        const auto bytes = [more](int32_t most) {
            return std::vector<uint8_t>(static_cast<size_t>(most + more));
        };
        std::vector<uint8_t> reply;
        EXPECT_EQ(mPeer->resize(bytes(kMostIn), 0, &reply).getStatus(), status);
        EXPECT_EQ(mPeer->resize({}, kMostOut + more, &reply).getStatus(), status);
        EXPECT_EQ(reply.size(), more == 0 ? size_t{kMostOut} : 0);
        EXPECT_EQ(mPeer->postMuch(bytes(kMostOneway), {}, nullptr).getStatus(), status);
    }
    std::vector<uint8_t> pattern(20'000);  // more than is read at once
    std::iota(pattern.begin(), pattern.end(), uint8_t{0});
    std::vector<uint8_t> copy;
    EXPECT_TRUE(mPeer->resize(pattern, 20'000, &copy).isOk());
    EXPECT_EQ(copy, pattern);
    std::vector<int32_t> posts;
    ASSERT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
    EXPECT_THAT(posts, ElementsAre(kMostOneway));
}

TEST_F(CallTest, WrongTransactionsAreRefused) {
    AIBinder* const binder = mPeer->asBinder().get();
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    const auto transact = [&](AIBinder* target, transaction_code_t code, binder_flags_t flags) {
        EXPECT_EQ(AIBinder_prepareTransaction(binder, in.getR()), STATUS_OK);
        const binder_status_t status =
                AIBinder_transact(target, code, in.getR(), out.getR(), flags);
        EXPECT_EQ(in.get(), nullptr);
        if (status != STATUS_OK) EXPECT_EQ(out.get(), nullptr);
        return status;
    };
    const auto local = ndk::SharedRefBase::make<TestPeer>();
    EXPECT_EQ(transact(binder, LAST_CALL_TRANSACTION, 0), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(transact(binder, LAST_CALL_TRANSACTION + 1, 0), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(transact(binder, 0, 0), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(transact(binder, 1, 0x80), STATUS_BAD_VALUE);
    EXPECT_EQ(transact(local->asBinder().get(), 1, 0), STATUS_BAD_VALUE);
    EXPECT_EQ(transact(nullptr, 1, 0), STATUS_UNEXPECTED_NULL);
    // Arguments that are not there.
    EXPECT_EQ(transact(binder, FIRST_CALL_TRANSACTION, 0), STATUS_NOT_ENOUGH_DATA);
}

TEST_F(CallTest, AnotherInterfacesTokenIsRefused) {
    static AIBinder_Class* const other = AIBinder_Class_define(
            "platformtest.Other", [](void*) -> void* { return nullptr; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    EXPECT_FALSE(AIBinder_associateClass(mPeer->asBinder().get(), other));
    const ndk::SpAIBinder wrong(AIBinder_new(other, nullptr));
    EXPECT_EQ(ITestPeer::fromBinder(wrong), nullptr);

    // A binder of another class arrives as null where the interface is expected.
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    AIBinder* const binder = mPeer->asBinder().get();
    ASSERT_EQ(AIBinder_prepareTransaction(binder, in.getR()), STATUS_OK);
    ASSERT_EQ(AParcel_writeStrongBinder(in.get(), wrong.get()), STATUS_OK);
    ASSERT_EQ(AIBinder_transact(binder, ITestPeer::TRANSACTION_echoPeer, in.getR(), out.getR(), 0),
              STATUS_OK);
    ndk::ScopedAStatus status;
    ASSERT_EQ(AParcel_readStatusHeader(out.get(), status.getR()), STATUS_OK);
    std::shared_ptr<ITestPeer> received;
    ASSERT_EQ(ITestPeer::readFromParcel(out.get(), &received), STATUS_OK);
    EXPECT_EQ(received, nullptr);
}

TEST_F(CallTest, RemoteObjectMayBeUsedThroughAnyClassOfItsName) {
    static AIBinder_Class* const twin = AIBinder_Class_define(
            ITestPeer::descriptor, [](void*) -> void* { return nullptr; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    EXPECT_TRUE(AIBinder_associateClass(mPeer->asBinder().get(), twin));
    const ndk::SpAIBinder local = ndk::SharedRefBase::make<TestPeer>()->asBinder();
    EXPECT_FALSE(AIBinder_associateClass(local.get(), twin));
}

TEST_F(CallTest, PingAndDumpReachTheObject) {
    AIBinder* const binder = mPeer->asBinder().get();
    EXPECT_EQ(AIBinder_ping(binder), STATUS_OK);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const ndk::ScopedFileDescriptor reader(ends[0]);
    const ndk::ScopedFileDescriptor writer(ends[1]);
    const char* arguments[] = {"one", "two words"};
    EXPECT_EQ(AIBinder_dump(binder, writer.get(), arguments, 2), STATUS_OK);
    char text[64] = {};
    EXPECT_GT(read(reader.get(), text, sizeof(text) - 1), 0);
    EXPECT_STREQ(text, "[one][two words]");
}

TEST_F(CallTest, CallerIsKnownDuringACallOnly) {
    std::vector<int32_t> caller;
    ASSERT_TRUE(mPeer->caller(&caller).isOk());
    EXPECT_THAT(caller, ElementsAre(getpid(), getuid()));
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_FALSE(AIBinder_isHandlingTransaction());
}

TEST_F(CallTest, NestedCallsRunOnTheWaitingThread) {
    const auto local = ndk::SharedRefBase::make<TestPeer>();
    int32_t calls = 0;
    ASSERT_TRUE(local->descend(mPeer, 20, &calls).isOk());
    EXPECT_EQ(calls, 21);
    bool sameThread = false;
    ASSERT_TRUE(local->cameBackOnSameThread(&sameThread).isOk());
    EXPECT_TRUE(sameThread);
    ASSERT_TRUE(mPeer->cameBackOnSameThread(&sameThread).isOk());
    EXPECT_TRUE(sameThread);
}

TEST_F(CallTest, ConcurrentCallsRunInParallel) {
    // All of them have to be within the method at once: the pool's fifteen and its first thread.
    constexpr int kCallers = 16;
    const size_t before = harness::openDescriptors();
    std::vector<std::thread> threads;
    std::atomic<int> succeeded{0};
    for (int i = 0; i < kCallers; ++i) {
        threads.emplace_back([&] { succeeded += mPeer->meet(kCallers).isOk() ? 1 : 0; });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(succeeded, kCallers);
    // Nor do they stay connected for ever.
    EXPECT_TRUE(eventually([&] { return harness::openDescriptors() < before + kCallers / 2; }));
}

TEST_F(CallTest, OnewayCallsKeepTheirOrderAndLoseTheirErrorsAndCaller) {
    constexpr int kPosts = 2000;
    EXPECT_TRUE(mPeer->postMuch({}, {}, nullptr).isOk());
    for (int i = 0; i < kPosts; ++i)
        ASSERT_TRUE(mPeer->post(i).isOk());
    std::vector<int32_t> posts;
    ASSERT_TRUE(mPeer->awaitPosts(kPosts + 1, &posts).isOk());
    ASSERT_EQ(posts.size(), size_t{kPosts + 1});
    EXPECT_EQ(posts[0], 0);
    for (int i = 0; i < kPosts; ++i)
        EXPECT_EQ(posts[static_cast<size_t>(i) + 1], i);
}

TEST_F(CallTest, OnewayCallsToOtherObjectsAreNotHeldUp) {
    std::shared_ptr<ITestPeer> other;
    ASSERT_TRUE(mPeer->create(&other).isOk());
    ASSERT_TRUE(mPeer->holdPosts().isOk());
    ASSERT_TRUE(mPeer->post(1).isOk());
    ASSERT_TRUE(other->post(2).isOk());
    std::vector<int32_t> posts;
    ASSERT_TRUE(other->awaitPosts(1, &posts).isOk());
    EXPECT_THAT(posts, ElementsAre(2));
    ASSERT_TRUE(mPeer->releasePosts().isOk());
    ASSERT_TRUE(mPeer->awaitPosts(2, &posts).isOk());
    EXPECT_THAT(posts, ElementsAre(-1, 1));
}

TEST_F(CallTest, OnewayCallsThatWaitShareHalfTheBuffer) {
    const std::vector<uint8_t> bytes(100'000);
    const auto flood = [&] {
        int accepted = 0;
        ndk::ScopedAStatus status;
        while ((status = mPeer->postMuch(bytes, {}, nullptr)).isOk() && accepted < 100)
            ++accepted;
        EXPECT_EQ(status.getStatus(), STATUS_FAILED_TRANSACTION);
        return accepted;
    };
    std::vector<int32_t> posts;
    ASSERT_TRUE(mPeer->holdPosts().isOk());
    const int whileBusy = flood();
    // The first of them may be under way already.
    EXPECT_THAT(whileBusy, testing::AllOf(testing::Ge(5), testing::Le(6)));
    ASSERT_TRUE(mPeer->releasePosts().isOk());
    ASSERT_TRUE(mPeer->awaitPosts(whileBusy + 1, &posts).isOk());

    mProcess.child.signal(SIGSTOP);
    const int whileStopped = flood();
    mProcess.child.signal(SIGCONT);
    ASSERT_TRUE(mPeer->awaitPosts(whileBusy + 1 + whileStopped, &posts).isOk());
    EXPECT_TRUE(eventually([&] { return mPeer->postMuch(bytes, {}, nullptr).isOk(); }));
}

TEST_F(CallTest, OnewayCallsTakeTheirDescriptorsAlongWhenTheyHaveToWait) {
    std::vector<int32_t> posts;
    EXPECT_TRUE(mPeer->post(0).isOk());
    EXPECT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
    const auto open = [this] {
        return harness::openDescriptors() + harness::openDescriptors(mProcess.child.pid());
    };
    const size_t before = open();
    const std::vector<uint8_t> bytes(100'000);
    mProcess.child.signal(SIGSTOP);
    // More than a socket takes.
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(mPeer->postMuch(bytes, {}, nullptr).isOk());
    EXPECT_TRUE(mPeer->postMuch({}, newFiles(100), nullptr).isOk());
    mProcess.child.signal(SIGCONT);
    ASSERT_TRUE(mPeer->awaitPosts(6, &posts).isOk());
    EXPECT_EQ(posts.back(), 100);
    EXPECT_TRUE(eventually([&] { return open() <= before; })) << open() << ", not " << before;
}

}  // namespace
}  // namespace platformtest
