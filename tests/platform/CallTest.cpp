#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android/binder_stability.h>
#include <gmock/gmock.h>

#include <aidl/platformtest/BnTestPeer.h>

#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

using testing::ElementsAre;

/** The most bytes that the peer's methods can take, return, and take one way. */
constexpr int32_t kMostIn = 1'040'316;
constexpr int32_t kMostOut = 1'040'376;
constexpr int32_t kMostOneway = 520'124;

class CallTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mPeer, nullptr); }

    PeerProcess mProcess{"call"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
};

TEST_F(CallTest, ValuesSurviveBothWays) {
    Sample sample{.large = INT64_MAX, .kind = static_cast<Kind>(99), .text = "a \xc3\xa9"};
    sample.bytes.assign(20'000, 7);  // more than is read at once
    sample.nested = std::vector<std::optional<Sample>>{Sample{.text = "inner"}, std::nullopt};
    Sample copy;
    Sample result;
    std::vector<int32_t> numbers = {1, -2};
    ASSERT_TRUE(mPeer->echo(sample, &copy, &numbers, &result).isOk());
    EXPECT_EQ(copy, sample);
    EXPECT_EQ(result, sample);
    EXPECT_THAT(numbers, ElementsAre(-1, 2));
}

TEST_F(CallTest, DescriptorsAreTheSameFileAndCloseOnExec) {
    const ndk::ScopedFileDescriptor sent(memfd_create("sent", MFD_CLOEXEC));
    ndk::ScopedFileDescriptor received;
    ASSERT_TRUE(mPeer->echoDescriptor(sent, &received).isOk());
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(fstat(sent.get(), &before), 0);
    ASSERT_EQ(fstat(received.get(), &after), 0);
    EXPECT_NE(received.get(), sent.get());
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_NE(fcntl(received.get(), F_GETFD) & FD_CLOEXEC, 0);

    const ndk::ScopedAStatus status = mPeer->echoDescriptor(ndk::ScopedFileDescriptor(), &received);
    EXPECT_EQ(status.getStatus(), STATUS_UNEXPECTED_NULL);
}

TEST_F(CallTest, DescriptorsDoNotLeak) {
    const auto descriptorsOfPeer = [this] {
        int32_t count = 0;
        EXPECT_TRUE(mPeer->openDescriptors(&count).isOk());
        return count;
    };
    const int32_t theirs = descriptorsOfPeer();
    const size_t ours = harness::openDescriptors();
    for (const size_t count : {1U, 253U}) {
        std::vector<ndk::ScopedFileDescriptor> sent(count);
        for (auto& descriptor : sent)
            descriptor.set(memfd_create("many", MFD_CLOEXEC));
        std::vector<ndk::ScopedFileDescriptor> received;
        ASSERT_TRUE(mPeer->echoDescriptors(sent, &received).isOk());
        EXPECT_EQ(received.size(), count);
    }
    EXPECT_EQ(harness::openDescriptors(), ours);
    EXPECT_EQ(descriptorsOfPeer(), theirs);
}

TEST(FewDescriptorsTest, CallThatBringsTooManyFailsAndLeaksNone) {
    const PeerProcess process(std::vector<std::string>{"few", "48"});
    ASSERT_NE(process.peer, nullptr);
    for (const auto& [count, status] :
         {std::pair{100U, STATUS_FAILED_TRANSACTION}, std::pair{1U, STATUS_OK}}) {
        std::vector<ndk::ScopedFileDescriptor> sent(count);
        for (auto& descriptor : sent)
            descriptor.set(memfd_create("few", MFD_CLOEXEC));
        std::vector<ndk::ScopedFileDescriptor> received;
        int32_t before = 0;
        int32_t after = 0;
        ASSERT_TRUE(process.peer->openDescriptors(&before).isOk());
        EXPECT_EQ(process.peer->echoDescriptors(sent, &received).getStatus(), status);
        ASSERT_TRUE(process.peer->openDescriptors(&after).isOk());
        EXPECT_EQ(after, before);
    }
}

TEST_F(CallTest, TransactionsPassUpToTheirLimit) {
    // Data is padded to four bytes, so four more are too many.
    for (const int32_t more : {0, 4}) {
        const binder_status_t status = more == 0 ? STATUS_OK : STATUS_FAILED_TRANSACTION;
        const auto bytes = [more](int32_t most) {
            return std::vector<uint8_t>(static_cast<size_t>(most + more));
        };
        int32_t swallowed = 0;
        std::vector<uint8_t> reply;
        EXPECT_EQ(mPeer->swallow(bytes(kMostIn), &swallowed).getStatus(), status);
        EXPECT_EQ(swallowed, more == 0 ? kMostIn : 0);
        EXPECT_EQ(mPeer->bytes(kMostOut + more, &reply).getStatus(), status);
        EXPECT_EQ(reply.size(), more == 0 ? size_t{kMostOut} : 0);
        EXPECT_EQ(mPeer->postBytes(bytes(kMostOneway)).getStatus(), status);
    }
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

    // Of what a vendor may change others may not use anything but its name.
    const ndk::SpAIBinder unstable(AIBinder_new(twin, nullptr));
    AIBinder_markVendorStability(unstable.get());
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    AIBinder* const binder = mPeer->asBinder().get();
    ASSERT_EQ(AIBinder_prepareTransaction(binder, in.getR()), STATUS_OK);
    ASSERT_EQ(AParcel_writeStrongBinder(in.get(), unstable.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(in.get(), 1), STATUS_OK);
    EXPECT_EQ(AIBinder_transact(binder, ITestPeer::TRANSACTION_descend, in.getR(), out.getR(), 0),
              STATUS_BAD_TYPE);
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
    int32_t pid = 0;
    int32_t uid = -1;
    ASSERT_TRUE(mPeer->callingPid(&pid).isOk());
    ASSERT_TRUE(mPeer->callingUid(&uid).isOk());
    EXPECT_EQ(pid, getpid());
    EXPECT_EQ(static_cast<uid_t>(uid), getuid());
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_FALSE(AIBinder_isHandlingTransaction());

    ASSERT_TRUE(mPeer->noteCallingPid().isOk());
    ASSERT_TRUE(mPeer->notedPid(&pid).isOk());
    EXPECT_EQ(pid, 0);
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

TEST_F(CallTest, OnewayCallsKeepTheirOrderAndLoseTheirErrors) {
    constexpr int kPosts = 2000;
    EXPECT_TRUE(mPeer->postFailure().isOk());
    for (int i = 0; i < kPosts; ++i)
        ASSERT_TRUE(mPeer->post(i).isOk());
    std::vector<int32_t> posts;
    ASSERT_TRUE(mPeer->awaitPosts(kPosts + 1, &posts).isOk());
    ASSERT_EQ(posts.size(), size_t{kPosts + 1});
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
        while ((status = mPeer->postBytes(bytes)).isOk() && accepted < 100)
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
    EXPECT_TRUE(eventually([&] { return mPeer->postBytes(bytes).isOk(); }));
}

TEST_F(CallTest, OnewayCallsTakeTheirDescriptorsAlongWhenTheyHaveToWait) {
    const int32_t theirs = [this] {
        std::vector<int32_t> posts;
        int32_t count = 0;
        EXPECT_TRUE(mPeer->post(0).isOk());
        EXPECT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
        EXPECT_TRUE(mPeer->openDescriptors(&count).isOk());
        return count;
    }();
    const size_t ours = harness::openDescriptors();
    const std::vector<uint8_t> bytes(100'000);
    std::vector<ndk::ScopedFileDescriptor> sent(100);
    for (auto& descriptor : sent)
        descriptor.set(memfd_create("waiting", MFD_CLOEXEC));
    mProcess.child.signal(SIGSTOP);
    // More than a socket takes.
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(mPeer->postBytes(bytes).isOk());
    EXPECT_TRUE(mPeer->postDescriptors(sent).isOk());
    sent.clear();
    mProcess.child.signal(SIGCONT);
    std::vector<int32_t> posts;
    ASSERT_TRUE(mPeer->awaitPosts(6, &posts).isOk());
    EXPECT_EQ(posts.back(), 100);
    EXPECT_TRUE(eventually([&] { return harness::openDescriptors() == ours; }));
    int32_t count = 0;
    EXPECT_TRUE(
            eventually([&] { return mPeer->openDescriptors(&count).isOk() && count == theirs; }));
}

}  // namespace
}  // namespace platformtest
