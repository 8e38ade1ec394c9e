#include "tests/load/LoadTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <android/binder_manager.h>

namespace load_test {
namespace {

using aidl::velahost::IHost;

// Fifteen on demand, and the one that the host starts.
constexpr int kMostPoolThreads = 16;

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
    const std::string n = " " + std::to_string(number);
    return "feature" + n + ";refresh" + n + ";power" + n + " 1;config" + n + " 1;sample" + n +
           " 1 1;soft-set" + n + " 1;soft-get" + n + " 1;wait";
}

void LoadTest::SetUp() {
    // Which of the host's threads allocated first is not to show in its memory.
    setenv("MALLOC_ARENA_MAX", "1", 1);
    HostTest::SetUp();
    listen();
    mFresh = footprint();
}

void LoadTest::listen() {
    const std::string name = std::string(IHost::descriptor) + "/default";
    mControl = IHost::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
    ASSERT_TRUE(vela->createComposerClient(&mComposer).isOk());
    const auto callback = mHeard.callback<display::IVelaComposerCallback>();
    ASSERT_TRUE(mComposer->registerCallback(callback).isOk());
    ASSERT_TRUE(vela->registerCallback(0, mHeard.callback<display::IVelaCallback>()).isOk());
    const auto client = mHeard.callback<display::ISoftVelaClient>();
    ASSERT_TRUE(vela->registerSoftVelaClient(0, client).isOk());
    mHeard.forget();
    batch(eventsAbout(0));  // from here on the host has its connections to this process
    EXPECT_TRUE(harness::eventually([this] { return mHeard.count() == kEventKinds; }));
    mHeard.forget();
}

Footprint LoadTest::footprint() {
    Footprint now{.descriptors = static_cast<int64_t>(harness::openDescriptors(host->pid()))};
    const std::filesystem::path process = "/proc/" + std::to_string(host->pid());
    for (const auto& task : std::filesystem::directory_iterator(process / "task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        ++(name == "binder:pool" ? now.poolThreads : now.threads);
    }
    EXPECT_TRUE(mControl->liveObjects(&now.objects).isOk());
    std::ifstream status(process / "status");
    for (std::string word; status >> word;) {
        if (word == "RssAnon:") status >> now.memoryKib;
    }
    return now;
}

Footprint LoadTest::settle() {
    Footprint now;
    EXPECT_TRUE(harness::eventually([&] {
        now = footprint();
        return now.descriptors <= mFresh.descriptors && now.objects == mFresh.objects;
    })) << now.descriptors
        << " descriptors and " << now.objects << " objects instead of " << mFresh.descriptors
        << " and " << mFresh.objects;
    EXPECT_LE(now.poolThreads, kMostPoolThreads);
    return now;
}

void LoadTest::leaveNothing(int count, const std::function<void(int)>& work, int64_t growthKib) {
    work(count / 2);
    const Footprint before = settle();
    work(count);
    const Footprint after = settle();
    for (const auto& [when, it] : {std::pair("before", before), std::pair("after", after)}) {
        figure(std::string("descriptors_") + when, it.descriptors);
        figure(std::string("threads_") + when, it.threads);
        figure(std::string("objects_") + when, it.objects);
        figure(std::string("memory_") + when + "_kib", it.memoryKib);
    }
    EXPECT_EQ(after.threads, before.threads);
    // A sanitizer's own memory grows as it likes.
    if (kSlowness == 1) {
        EXPECT_LE(after.memoryKib, before.memoryKib + growthKib);
    }
}

}  // namespace load_test
