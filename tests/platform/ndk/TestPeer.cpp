#include "tests/platform/ndk/TestPeer.h"

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

#include <android/binder_manager.h>
#include <android/binder_process.h>

namespace platformtest {
namespace {

using ndk::ScopedAStatus;

// The thread is within a call of descend() to another process.
thread_local int gDescending = 0;
const std::thread::id gMain = std::this_thread::get_id();

// Serves a TestPeer under the name of the first argument; the second limits its descriptors.
const harness::Role kServer("peer", [](harness::Parent& parent) {
    if (parent.arguments.size() > 1) {
        const rlim_t limit = std::stoul(parent.arguments[1]);
        const rlimit few{.rlim_cur = limit, .rlim_max = limit};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ABinderProcess_startThreadPool();
    const auto peer = ndk::SharedRefBase::make<TestPeer>();
    if (AServiceManager_addService(peer->asBinder().get(), parent.arguments[0].c_str()) !=
        EX_NONE) {
        return;
    }
    parent.say("ready");
    parent.untilGone();
});

}  // namespace

std::shared_ptr<ITestPeer> peerNamed(const std::string& name) {
    return ITestPeer::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
}

PeerProcess::PeerProcess(const std::vector<std::string>& arguments) : child("peer", arguments) {
    ABinderProcess_startThreadPool();
    if (child.hear() == "ready") peer = peerNamed(arguments[0]);
}

ScopedAStatus TestPeer::resize(const std::vector<uint8_t>& bytes, int32_t size,
                               std::vector<uint8_t>* result) {
    *result = bytes;
    result->resize(static_cast<size_t>(size));
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::echoDescriptors(const std::vector<ndk::ScopedFileDescriptor>& descriptors,
                                        std::vector<ndk::ScopedFileDescriptor>* result) {
    for (const ndk::ScopedFileDescriptor& descriptor : descriptors) {
        result->push_back(descriptor.dup());
    }
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::isYou(const ndk::SpAIBinder& binder, bool* result) {
    *result = binder.get() == asBinder().get() && !AIBinder_isRemote(binder.get());
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* result) {
    *result = binder;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::echoPeer(const std::shared_ptr<ITestPeer>& peer,
                                 std::shared_ptr<ITestPeer>* result) {
    *result = peer;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::create(std::shared_ptr<ITestPeer>* result) {
    *result = ndk::SharedRefBase::make<TestPeer>();
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::keep(const std::shared_ptr<ITestPeer>& peer) {
    const std::lock_guard lock(mLock);
    mKept = peer;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::kept(std::shared_ptr<ITestPeer>* result) {
    const std::lock_guard lock(mLock);
    *result = mKept;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::callKept() {
    std::shared_ptr<ITestPeer> peer;
    std::vector<int32_t> caller;
    kept(&peer);
    if (peer == nullptr) return ScopedAStatus::fromStatus(STATUS_UNEXPECTED_NULL);
    return peer->caller(&caller);
}

ScopedAStatus TestPeer::descend(const std::shared_ptr<ITestPeer>& other, int32_t depth,
                                int32_t* result) {
    {
        const std::lock_guard lock(mLock);
        mSameThread = gDescending > 0;
    }
    *result = 1;
    if (depth == 0) return ScopedAStatus::ok();
    int32_t below = 0;
    ++gDescending;
    ScopedAStatus status = other->descend(ref<ITestPeer>(), depth - 1, &below);
    --gDescending;
    *result += below;
    return status;
}

ScopedAStatus TestPeer::relay(const std::vector<std::shared_ptr<ITestPeer>>& others,
                              std::vector<int32_t>* result) {
    {
        const std::lock_guard lock(mLock);
        mSameThread = std::this_thread::get_id() == gMain;
    }
    if (others.empty()) return caller(result);
    return others.front()->relay({others.begin() + 1, others.end()}, result);
}

ScopedAStatus TestPeer::cameBackOnSameThread(bool* result) {
    const std::lock_guard lock(mLock);
    *result = mSameThread;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::meet(int32_t callers) {
    std::unique_lock lock(mLock);
    ++mMeeting;
    mChanged.notify_all();
    while (mMeeting < callers)
        mChanged.wait(lock);
    return ScopedAStatus::ok();
}

void TestPeer::posted(int32_t number) {
    std::unique_lock lock(mLock);
    while (mHolding)
        mChanged.wait(lock);
    mPosts.push_back(number);
    ++gPosts;
    mChanged.notify_all();
}

ScopedAStatus TestPeer::post(int32_t number) {
    posted(number);
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::holdPosts() {
    {
        const std::lock_guard lock(mLock);
        mHolding = true;
    }
    mChanged.notify_all();  // the call that ends it may have overtaken this one
    posted(-1);
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::releasePosts() {
    std::unique_lock lock(mLock);
    while (!mHolding)
        mChanged.wait(lock);
    mHolding = false;
    mChanged.notify_all();
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::awaitPosts(int32_t count, std::vector<int32_t>* result) {
    std::unique_lock lock(mLock);
    while (mPosts.size() < static_cast<size_t>(count))
        mChanged.wait(lock);
    *result = mPosts;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::postMuch(const std::vector<uint8_t>& bytes,
                                 const std::vector<ndk::ScopedFileDescriptor>& descriptors,
                                 const std::shared_ptr<ITestPeer>& peer) {
    keep(peer);
    posted(AIBinder_getCallingPid() + static_cast<int32_t>(bytes.size() + descriptors.size()));
    return ScopedAStatus::fromServiceSpecificError(42);
}

ScopedAStatus TestPeer::totalPosts(int32_t* result) {
    *result = gPosts;
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::caller(std::vector<int32_t>* result) {
    *result = {AIBinder_getCallingPid(), static_cast<int32_t>(AIBinder_getCallingUid())};
    return ScopedAStatus::ok();
}

ScopedAStatus TestPeer::liveObjects(int32_t* result) {
    *result = live();
    return ScopedAStatus::ok();
}

binder_status_t TestPeer::handleShellCommand(int /*in*/, int out, int err, const char** argv,
                                             uint32_t argc) {
    dump(out, argv, argc);
    dprintf(err, "%u", argc);
    return STATUS_OK;
}

binder_status_t TestPeer::dump(int fd, const char** args, uint32_t numArgs) {
    for (uint32_t i = 0; i < numArgs; ++i)
        dprintf(fd, "[%s]", args[i]);
    return STATUS_OK;
}

}  // namespace platformtest
