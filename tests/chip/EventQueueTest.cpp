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

class EventQueueTest : public SimulatedChipTest {
  protected:
    void onFeature(const VelaService::FeatureChanged& function) {
        mService->registerVelaCallback(function, {}, {}, {}, {});
    }
};

TEST_F(EventQueueTest, FunctionsMayMakeRequestsAndRegisterAnew) {
    std::string seen;
    onFeature([this, &seen, captured = std::string(100, 'x')](int, const auto&) {
        onFeature({});
        // An event cannot wait for its own end.
        seen += std::to_string(set(5, {1})) + " " + batch("wait") + captured;
    });
    batch("feature 1; feature 1; wait");
    EXPECT_EQ(seen, "0 -35 line 1: wait" + std::string(100, 'x'));
}

TEST_F(EventQueueTest, StalledClientHoldsNoRequest) {
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
    EXPECT_EQ(get(300), -ENOENT) << "refused writes change nothing";
    release.set_value();
    EXPECT_THAT(batch("wait;last;events"), HasSubstr("last: refresh 1\nevents: 64\n"));
}

TEST_F(EventQueueTest, StoppedChipRaisesNone) {
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
        EXPECT_TRUE(feature(round) == 0 && wait() == 0);
        chip.stop();
        EXPECT_TRUE(feature(round + 1) == -ESHUTDOWN && wait() == -ESHUTDOWN);
    }
    EXPECT_THAT(seen, ElementsAre(2, 4));
}

TEST_F(EventQueueTest, AnswersAreQuotedAndCutWhereTheyAreLong) {
    mService->registerSoftVelaClient({}, {}, [](int type, const std::string& request) {
        return std::to_string(type) + "<" + request + std::string(type == 1 ? 100'000 : 0, 'x');
    });
    EXPECT_THAT(batch("query 5 what is it;wait;last"), HasSubstr("it -> \"5<what is it\"\n"));
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
