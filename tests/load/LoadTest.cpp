#include "tests/load/LoadTest.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>
#include <vector>

#include <android/binder_manager.h>

namespace load_test {
namespace {

using aidl::velahost::IHost;

// Those started on demand, and that of the pool's start.
constexpr int kPoolThreads = 16;

std::filesystem::directory_iterator tasksOf(pid_t pid) {
    return std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task");
}

int poolThreads(pid_t pid) {
    return static_cast<int>(std::ranges::count_if(tasksOf(pid), [](const auto& task) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        return name == "binder:main" || name == "binder:pool";
    }));
}

/** Keeps the chip's thread in an event, and all of the pool's waiting for its end. */
const harness::Role kHolder("holder", [](harness::Parent& parent) {
    const auto vela = process_test::findService();
    std::mutex gate;
    gate.lock();
    const auto client = velactl::makeCallback("ISoftVelaClient", [&](auto&, auto&, auto*) {
        const std::lock_guard guard(gate);
        return ndk::ScopedAStatus::ok();
    });
    const auto batch = [&vela](const std::string& text) {
        std::string reply;
        return vela->velaConfigureBatch(0, text, &reply).isOk();
    };
    const auto soft = std::static_pointer_cast<display::ISoftVelaClient>(client);
    const bool held = vela->registerSoftVelaClient(-1, soft).isOk() && batch("soft-set 0 0");
    std::vector<std::thread> waiting;
    for (int i = 0; i < kPoolThreads; ++i)
        waiting.emplace_back(batch, "wait");
    parent.say(held ? "held" : "failed");
    parent.hear();
    gate.unlock();
    for (std::thread& thread : waiting)
        thread.join();
});

}  // namespace

int Heard::count() {
    const std::lock_guard guard(mLock);
    const bool once = std::ranges::all_of(mEvents, [](const auto& it) { return it.second == 1; });
    return once ? static_cast<int>(mEvents.size()) : -1;
}

void Heard::forget() {
    const std::lock_guard guard(mLock);
    mEvents.clear();
}

void figure(const std::string& name, int64_t value) {
    testing::Test::RecordProperty(name, std::to_string(value));
    std::cout << name << ' ' << value << '\n';
}

std::string eventsAbout(int number) {
    std::string text;
    for (const char* event : {"feature # 1", "refresh #", "power # 1", "config # 1 2",
                              "sample # 1 1", "soft-set # 1", "soft-get # 1"}) {
        text += event;
        text.replace(text.find('#'), 1, std::to_string(number)) += ';';
    }
    return text + "wait";
}

void LoadTest::SetUp() {
    // Which of the host's threads allocated first is not to show in its memory.
    setenv("MALLOC_ARENA_MAX", "1", 1);
    HostTest::SetUp();
    listen();
    mFresh = footprint();
    startThreads();
    mFresh.threads = footprint().threads;
    settle();
}

void LoadTest::listen() {
    const auto hostName = std::string(IHost::descriptor) + "/default";
    mControl = IHost::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(hostName.c_str())));
    ASSERT_TRUE(vela->createComposerClient(&mComposer).isOk());
    const auto callback = mHeard.callback<display::IVelaComposerCallback>();
    ASSERT_TRUE(mComposer->registerCallback(callback).isOk());
    ASSERT_TRUE(vela->registerCallback(0, mHeard.callback<display::IVelaCallback>()).isOk());
    ASSERT_TRUE(
            vela->registerSoftVelaClient(0, mHeard.callback<display::ISoftVelaClient>()).isOk());
    mHeard.forget();
    batch(eventsAbout(0));  // from here on the host has its connections to this process
    EXPECT_TRUE(harness::eventually([this] { return mHeard.count() == kEventKinds; }));
    mHeard.forget();
}

void LoadTest::startThreads() {
    harness::Child holder("holder");
    ASSERT_EQ(holder.hear(), "held");
    EXPECT_TRUE(harness::eventually([this] { return poolThreads(host->pid()) == kPoolThreads; }));
    holder.say("go on");
    EXPECT_EQ(holder.finish(), 0);
    awaitLog("Noticed AIDL death of ISoftVelaClient");  // on the last thread to be started
}

Footprint LoadTest::footprint() {
    Footprint now{.descriptors = static_cast<int64_t>(hostDescriptors()),
                  .threads = std::ranges::distance(tasksOf(host->pid()))};
    EXPECT_TRUE(mControl->liveObjects(&now.objects).isOk());
    std::ifstream status("/proc/" + std::to_string(host->pid()) + "/status");
    for (std::string word; status >> word;) {
        if (word == "RssAnon:") status >> now.memoryKib;
    }
    return now;
}

void LoadTest::settle() {
    Footprint now;
    EXPECT_TRUE(harness::eventually([&] {
        now = footprint();
        return now.descriptors == mFresh.descriptors && now.threads == mFresh.threads &&
               now.objects == mFresh.objects;
    })) << now.descriptors
        << " descriptors, " << now.threads << " threads, " << now.objects << " objects instead of "
        << mFresh.descriptors << ", " << mFresh.threads << " and " << mFresh.objects;
}

void LoadTest::handBuffers() {
    for (int i = 0; i < 10; ++i) {
        const ndk::ScopedFileDescriptor file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
        int32_t code = -1;
        EXPECT_TRUE(vela->velaConfigureBuffer(2, 1, file, 64, &code).isOk());
        EXPECT_EQ(code, 0);
        EXPECT_TRUE(mComposer->configureBuffer(display::VendorConfig{2}, 1, file, 64).isOk());
    }
}

void LoadTest::leaveNothing(int count, const std::function<void(int)>& work, int64_t growthKib) {
    work(count / 2);
    settle();
    const Footprint before = footprint();
    work(count);
    settle();
    const Footprint after = footprint();
    for (const auto& [when, it] : {std::pair("before", before), std::pair("after", after)}) {
        figure(std::string("descriptors_") + when, it.descriptors);
        figure(std::string("threads_") + when, it.threads);
        figure(std::string("objects_") + when, it.objects);
        figure(std::string("memory_") + when + "_kib", it.memoryKib);
    }
#ifndef SANITIZED  // a sanitizer's own memory grows as it likes; it finds leaks by itself
    EXPECT_LE(after.memoryKib, before.memoryKib + growthKib);
#endif
}

}  // namespace load_test
