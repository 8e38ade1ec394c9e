#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <android-base/thread_annotations.h>

#include <aidl/platformtest/BnTestPeer.h>

#include "tests/support/ProcessHarness.h"

namespace platformtest {

using ::aidl::platformtest::ITestPeer;
using ::harness::eventually;

/** Serves ITestPeer. Any thread. */
class TestPeer : public ::aidl::platformtest::BnTestPeer {
  public:
    TestPeer() { ++gLive; }
    ~TestPeer() override { --gLive; }

    static int live() { return gLive; }

    ndk::ScopedAStatus resize(const std::vector<uint8_t>& bytes, int32_t size,
                              std::vector<uint8_t>* result) override;
    ndk::ScopedAStatus echoDescriptors(const std::vector<ndk::ScopedFileDescriptor>& descriptors,
                                       std::vector<ndk::ScopedFileDescriptor>* result) override;

    ndk::ScopedAStatus isYou(const ndk::SpAIBinder& binder, bool* result) override;
    ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* result) override;
    ndk::ScopedAStatus echoPeer(const std::shared_ptr<ITestPeer>& peer,
                                std::shared_ptr<ITestPeer>* result) override;
    ndk::ScopedAStatus create(std::shared_ptr<ITestPeer>* result) override;
    ndk::ScopedAStatus keep(const std::shared_ptr<ITestPeer>& peer) override;
    ndk::ScopedAStatus kept(std::shared_ptr<ITestPeer>* result) override;
    ndk::ScopedAStatus callKept() override;

    ndk::ScopedAStatus descend(const std::shared_ptr<ITestPeer>& other, int32_t depth,
                               int32_t* result) override;
    ndk::ScopedAStatus relay(const std::vector<std::shared_ptr<ITestPeer>>& others,
                             std::vector<int32_t>* result) override;
    ndk::ScopedAStatus cameBackOnSameThread(bool* result) override;
    ndk::ScopedAStatus meet(int32_t callers) override;

    ndk::ScopedAStatus post(int32_t number) override;
    ndk::ScopedAStatus holdPosts() override;
    ndk::ScopedAStatus releasePosts() override;
    ndk::ScopedAStatus awaitPosts(int32_t count, std::vector<int32_t>* result) override;
    ndk::ScopedAStatus postMuch(const std::vector<uint8_t>& bytes,
                                const std::vector<ndk::ScopedFileDescriptor>& descriptors,
                                const std::shared_ptr<ITestPeer>& peer) override;

    ndk::ScopedAStatus totalPosts(int32_t* result) override;

    ndk::ScopedAStatus caller(std::vector<int32_t>* result) override;

    ndk::ScopedAStatus liveObjects(int32_t* result) override;

    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;
    /** Writes its arguments to out, and their number to err. */
    binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                       uint32_t argc) override;

  private:
    void posted(int32_t number);

    static inline std::atomic<int> gLive{0};
    static inline std::atomic<int> gPosts{0};

    std::mutex mLock;
    std::condition_variable mChanged;
    std::shared_ptr<ITestPeer> mKept GUARDED_BY(mLock);
    std::vector<int32_t> mPosts GUARDED_BY(mLock);
    bool mHolding GUARDED_BY(mLock) = false;
    int32_t mMeeting GUARDED_BY(mLock) = 0;
    bool mSameThread GUARDED_BY(mLock) = false;
};

/** The service of that name; waits for it. */
std::shared_ptr<ITestPeer> peerNamed(const std::string& name);

/** A child process that serves a TestPeer under a name. */
class PeerProcess {
  public:
    explicit PeerProcess(const std::string& name) : PeerProcess(std::vector{name}) {}
    /** The arguments of the role, the name first. */
    explicit PeerProcess(const std::vector<std::string>& arguments);

    harness::Child child;
    std::shared_ptr<ITestPeer> peer;
};

}  // namespace platformtest
