#include <cerrno>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class EventsTest : public SimulatedChipTest {
  protected:
    void onFeature(const VelaService::FeatureChanged& function) {
        mService->registerVelaCallback(function, {}, {}, {}, {});
    }
};

TEST_F(EventsTest, ReachTheirFunctionsAndBringTheirAnswersBack) {
    const std::string commands =
            "feature 3 1 2; refresh -1; power 2 5; config 9223372036854775807 4 6; sample 1 2 3;"
            "soft-set 10 11 12; soft-get 10 11 13; query 5 what is it; wait; events";
    EXPECT_EQ(batch(commands),
              "feature 3: event 1 queued\nrefresh -1: event 2 queued\npower 2: event 3 queued\n"
              "config 9223372036854775807: event 4 queued\nsample 1: event 5 queued\n"
              "soft-set 10: event 6 queued\nsoft-get 10: event 7 queued\n"
              "query 5: event 8 queued\nwait: done\nevents: 8\n"
              "1: feature 3 [1,2]\n2: refresh -1\n3: power 2 5\n"
              "4: config 9223372036854775807 4 [6] -> []\n5: sample 1 2 3 -> -1 [] [] [] []\n"
              "6: soft-set 10 11 [12] -> -1\n7: soft-get 10 11 [13] -> -1 []\n"
              "8: query 5 what is it -> \"\"\n")
            << "nobody has registered";

    std::string log;
    const auto logged = [&](const char* what, int64_t first, const std::vector<int>& values) {
        log += what + std::to_string(first) + listText(values) + " ";
    };
    onFeature([&](int feature, const auto& values) { logged("feature ", feature, values); });
    mService->registerSoftVelaClient(
            [](int64_t client, int config, const auto& values) {
                return static_cast<int>(client) + config + values[0];
            },
            [](int64_t client, int config, const auto& values, int& status) {
                status = -config;
                return std::vector<int>{static_cast<int>(client), values[0]};
            },
            [](int type, const std::string& request) {
                return std::to_string(type) + "<" + request + ">";
            });
    mService->registerComposerCallback(
            [](int64_t display, int config, const auto& values) {
                return std::vector<int>{static_cast<int>(display >> 32), config, values[0]};
            },
            [&](int64_t display) { logged("refresh ", display, {}); },
            [&](int64_t display, int mode) { logged("power ", display, {mode}); },
            [](int64_t display, int a, int64_t b) {
                return VelaContentSamples{.value1 = a, .list1 = {b}, .list4 = {display, 0}};
            });
    EXPECT_THAT(batch("clear;" + commands + ";last"),
                EndsWith("events: 8\n9: feature 3 [1,2]\n10: refresh -1\n11: power 2 5\n"
                         "12: config 9223372036854775807 4 [6] -> [2147483647,4,6]\n"
                         "13: sample 1 2 3 -> 2 [3] [] [] [1,0]\n"
                         "14: soft-set 10 11 [12] -> 33\n"
                         "15: soft-get 10 11 [13] -> -11 [10,13]\n"
                         "16: query 5 what is it -> \"5<what is it>\"\n"
                         "last: query 5 what is it -> \"5<what is it>\"\n"));
    EXPECT_EQ(std::exchange(log, {}), "feature 3[1,2] refresh -1[] power 2[5] ");
    EXPECT_THAT(dump(), HasSubstr("soft-get 10 11 [13]"));

    // Requests raise some, too.
    expectEach({{set(255, {1}), 0},
                {set(256, {1}), 0},
                {set(511, {}), 0},
                {mService->handleDisplayEvent(1, 1, 0), 0},
                {mService->handleDisplayEvent(1, 2, 6), 0}});
    batch("wait");
    EXPECT_EQ(log, "feature 256[1] feature 511[] refresh 1[] power 1[6] ");
}

TEST_F(EventsTest, FunctionsMayMakeRequestsAndRegisterAnew) {
    std::string seen;
    onFeature([this, &seen, captured = std::string(100, 'x')](int, const auto&) {
        onFeature({});
        // An event cannot wait for its own end.
        seen += std::to_string(set(5, {1})) + " " + batch("wait") + captured;
    });
    batch("feature 1; feature 1; wait");
    EXPECT_EQ(seen, "0 -35 line 1: wait" + std::string(100, 'x'));
}

TEST_F(EventsTest, StalledClientHoldsNoRequest) {
    std::promise<void> entered;
    std::promise<void> release;
    onFeature([&](int, const auto&) {
        entered.set_value();
        release.get_future().wait();
    });
    batch("feature 1");
    entered.get_future().wait();
    EXPECT_EQ(set(5, {1}), 0);
    EXPECT_EQ(batch("last"), "last: none\n");
    std::string refreshes;
    for (int i = 0; i < 1024; ++i)
        refreshes += "refresh 1;";
    EXPECT_THAT(batch(refreshes), EndsWith("event 1025 queued\n"));
    EXPECT_EQ(batch("refresh 1"), "-11 line 1: refresh");
    EXPECT_EQ(set(300, {1}), -EAGAIN);
    EXPECT_EQ(get(300)[0], -ENOENT) << "refused writes change nothing";
    release.set_value();
    EXPECT_THAT(batch("wait;last;events"), HasSubstr("last: refresh 1\nevents: 64\n"));
}

TEST_F(EventsTest, StoppedChipRaisesNone) {
    SimulatedChip chip;
    std::vector<int> seen;
    onFeature([&](int, const auto& values) { seen.push_back(values[0]); });
    const auto feature = [&](int value) { return int32_t{chip.velaConfigureSet(300, {value})}; };
    const auto wait = [&] {
        int32_t status = 0;
        chip.velaConfigureBatch(0, "wait", [&](int32_t it, const auto&) { status = it; });
        return status;
    };
    EXPECT_EQ(feature(1), -ESHUTDOWN) << "not started";
    for (const int round : {2, 4}) {
        chip.start(VelaServiceCallbacks(*mService));
        expectEach({{feature(round), 0}, {wait(), 0}});
        chip.stop();
        expectEach({{feature(round + 1), -ESHUTDOWN}, {wait(), -ESHUTDOWN}});
    }
    EXPECT_THAT(seen, ElementsAre(2, 4));
}

TEST_F(EventsTest, LongAnswersAreCut) {
    mService->registerSoftVelaClient(
            {}, {}, [](int, const std::string&) { return std::string(100'000, 'x'); });
    EXPECT_LT(batch("query 1 q;wait;last").size(), 2000u);
    // Never inside a character, wherever the limit falls: text that is not UTF-8 cannot be sent on.
    for (const char* const lead : {"", "x"}) {
        std::string text = lead;
        while (text.size() < 5000)
            text += "\xC3\xA9";
        const std::string answer = batch("query 1 " + text + ";wait;last");
        EXPECT_LT(answer.size(), 2000u);
        EXPECT_EQ(answer.find("\xC3."), std::string::npos) << answer;
    }
}

}  // namespace
}  // namespace lmfg
