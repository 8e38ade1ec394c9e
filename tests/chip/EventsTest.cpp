#include <cerrno>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::HasSubstr;

/// Registers every function; each logs its call and answers.
class EventsTest : public SimulatedChipTest {
  protected:
    EventsTest() {
        mService->registerVelaCallback(
                [this](int feature, const auto& values) { log("feature", feature, values); }, {},
                {}, {}, {});
        mService->registerSoftVelaClient(
                [this](int64_t client, int config, const auto& values) {
                    log("set", client, values);
                    return config + 1;
                },
                [this](int64_t client, int config, const auto& values, int& status) {
                    log("get", client, values);
                    status = -config;
                    return std::vector<int>{7, 8};
                },
                [this](int type, const std::string& request) {
                    log("query", type, {});
                    return "<" + request + ">";
                });
        mService->registerComposerCallback(
                [this](int64_t display, int config, const auto& values) {
                    log("config", display, values);
                    return std::vector<int>{config};
                },
                [this](int64_t display) { log("refresh", display, {}); },
                [this](int64_t display, int mode) { log("power", display, {mode}); },
                [this](int64_t display, int a, int64_t b) {
                    log("sample", display, {a});
                    return VelaContentSamples{.value1 = 2, .list1 = {b}, .list4 = {-1, 0}};
                });
    }
    // The functions use this object.
    ~EventsTest() override { installChip(nullptr); }

    void log(const std::string& what, int64_t first, const std::vector<int>& values) {
        mLog += what + " " + std::to_string(first) + " " + listText(values) + "\n";
        mThreads.push_back(std::this_thread::get_id());
    }

    // Written by the chip's thread, read after a batch waited for it.
    std::string mLog;
    std::vector<std::thread::id> mThreads;
};

TEST_F(EventsTest, ReachTheirFunctionsAndBringTheirAnswersBack) {
    EXPECT_EQ(reply("feature 3 1 2; refresh -1; power 2 5\n"
                    "config 9223372036854775807 4 6\nsample 1 2 3\n"
                    "soft-set 10 11 12\nsoft-get 10 11\nquery 5 what is it\nwait; last; events"),
              "feature 3: event 1 queued\n"
              "refresh -1: event 2 queued\n"
              "power 2: event 3 queued\n"
              "config 9223372036854775807: event 4 queued\n"
              "sample 1: event 5 queued\n"
              "soft-set 10: event 6 queued\n"
              "soft-get 10: event 7 queued\n"
              "query 5: event 8 queued\n"
              "wait: done\n"
              "last: query 5 what is it -> \"<what is it>\"\n"
              "events: 8\n"
              "1: feature 3 [1,2]\n"
              "2: refresh -1\n"
              "3: power 2 5\n"
              "4: config 9223372036854775807 4 [6] -> [4]\n"
              "5: sample 1 2 3 -> 2 [3] [] [] [-1,0]\n"
              "6: soft-set 10 11 [12] -> 12\n"
              "7: soft-get 10 11 [] -> -11 [7,8]\n"
              "8: query 5 what is it -> \"<what is it>\"\n");
    EXPECT_EQ(mLog,
              "feature 3 [1,2]\nrefresh -1 []\npower 2 [5]\nconfig 9223372036854775807 [6]\n"
              "sample 1 [2]\nset 10 [12]\nget 10 []\nquery 5 []\n");
    for (const std::thread::id thread : mThreads) {
        EXPECT_EQ(thread, mThreads.front());
        EXPECT_NE(thread, std::this_thread::get_id());
    }
    EXPECT_THAT(dump(), HasSubstr("soft-get 10 11 []"));
}

TEST_F(EventsTest, FollowFromRequestsToo) {
    EXPECT_EQ(set(255, {1}), 0);
    EXPECT_EQ(set(256, {1}), 0);
    EXPECT_EQ(set(511, {}), 0);
    EXPECT_EQ(mService->handleDisplayEvent(1, 1, 0), 0);
    EXPECT_EQ(mService->handleDisplayEvent(1, 2, 6), 0);
    reply("wait");
    EXPECT_EQ(mLog, "feature 256 [1]\nfeature 511 []\nrefresh 1 []\npower 1 [6]\n");
}

TEST_F(EventsTest, RequestsAreServedFromWithinAnEvent) {
    int status = 0;
    int waited = 0;
    mService->registerVelaCallback(
            [&](int, const auto&) {
                status = set(5, {1});
                waited = batch("wait").status;
            },
            {}, {}, {}, {});
    reply("feature 1; wait");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(waited, -EDEADLK) << "an event cannot wait for its own end";
}

TEST_F(EventsTest, StalledClientHoldsNoRequest) {
    std::promise<void> entered;
    std::promise<void> release;
    mService->registerVelaCallback(
            [&](int, const auto&) {
                entered.set_value();
                release.get_future().wait();
            },
            {}, {}, {}, {});
    reply("feature 1");
    entered.get_future().wait();
    EXPECT_EQ(set(5, {1}), 0);
    EXPECT_EQ(reply("last"), "last: none\n");
    std::string refreshes;
    for (int i = 0; i < 1024; ++i)
        refreshes += "refresh 1;";
    EXPECT_EQ(batch(refreshes).status, 0);
    EXPECT_EQ(batch("refresh 1").status, -EAGAIN);
    EXPECT_EQ(set(300, {1}), -EAGAIN);
    EXPECT_EQ(get(300).status, -ENOENT) << "refused writes change nothing";
    release.set_value();
    EXPECT_THAT(reply("wait;last"), HasSubstr("last: refresh 1\n"));
    EXPECT_THAT(reply("events"), HasSubstr("events: 64\n"));
}

TEST_F(EventsTest, StoppedChipRaisesNone) {
    SimulatedChip chip;
    EXPECT_EQ(chip.velaConfigureSet(300, {1}), -ESHUTDOWN) << "not started";
    chip.start(VelaServiceCallbacks(*mService));
    EXPECT_EQ(chip.velaConfigureSet(300, {1}), 0);
    chip.stop();
    const std::string before = mLog;
    EXPECT_EQ(chip.velaConfigureSet(300, {1}), -ESHUTDOWN);
    int32_t status = 0;
    chip.velaConfigureBatch(0, "wait", [&](int32_t it, const auto&) { status = it; });
    EXPECT_EQ(status, -ESHUTDOWN);
    EXPECT_EQ(mLog, before);
    chip.start(VelaServiceCallbacks(*mService));
    EXPECT_EQ(chip.velaConfigureSet(300, {2}), 0);
    chip.velaConfigureBatch(0, "wait", [&](int32_t it, const auto&) { status = it; });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(mLog, before + "feature 300 [2]\n");
}

TEST_F(EventsTest, LongAnswersAreCut) {
    mService->registerSoftVelaClient(
            {}, {}, [](int, const std::string&) { return std::string(100'000, 'x'); });
    EXPECT_LT(reply("query 1 q;wait;last").size(), 2000u);
    // Never inside a character, wherever the limit falls: text that is not UTF-8 cannot be sent on.
    for (const char* const lead : {"", "x"}) {
        std::string text = lead;
        while (text.size() < 5000)
            text += "\xC3\xA9";
        const std::string answer = reply("query 1 " + text + ";wait;last");
        EXPECT_LT(answer.size(), 2000u);
        EXPECT_EQ(answer.find("\xC3."), std::string::npos) << answer;
    }
}

TEST_F(EventsTest, ConcurrentRequestsAndEvents) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kRounds; ++i) {
                const auto layer = static_cast<uint64_t>(t * kRounds + i);
                mService->CreateLayer(layer, 0);
                mService->SetLayerZOrder(layer, 3);
                set(t, {i});
                reply("feature 1 " + std::to_string(i) + "; wait");
                dump();
                if (i % 2 == 0) mService->DestroyLayer(layer);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mThreads.size(), size_t{kThreads * kRounds});
    EXPECT_THAT(dump(), HasSubstr("refusals 0\n"));
    VelaService::VelaFixedConfig config;
    mService->getCurrentConfig([&](int32_t, const auto& it) { config = it; });
    EXPECT_EQ(config.value10, kThreads * kRounds / 2) << "layers that were left";
}

}  // namespace
}  // namespace lmfg
